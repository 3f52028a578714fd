#pragma once

// The commands of zce-check, each with a command line of its own. All take the program's whole
// argument list, write their answer to standard output and the reason of a failure to standard
// error, and return the exit status: 0 fine, 1 warnings, 2 errors and whatever could not be done.
namespace ZceCheck {

// zce-check CONFIG: what a configuration file will do.
int ConfigMain(int argc, const char* const* argv);

}  // namespace ZceCheck
