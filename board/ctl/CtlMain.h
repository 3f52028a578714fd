#pragma once

#include <string>

namespace ZceBoard {

// What a command gave: its exit status, and what goes to standard output and to standard error.
struct CtlResult {
    int status;
    std::string output;
    std::string error;
};

// Looks at a living board or asks it for something: `zce-board ctl [--bus N] [--json] COMMAND`;
// argv[0] is "ctl". 0, and 2 for a usage error and for a board that is not there, does not answer
// or refuses; `error` is then one line and `output` is empty.
CtlResult RunCtl(int argc, const char* const* argv);

// The same with the texts printed: the exit status of the process.
int CtlMain(int argc, const char* const* argv);

}  // namespace ZceBoard
