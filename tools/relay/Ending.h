#pragma once

#include <string>

namespace ZceRelay {

// A line on standard error, with the program's name in front; any thread.
void TellError(const std::string& line);
// The same of what could not be done, for the end of a command: EXIT_NOT_DONE.
int NotDone(const std::string& reason);

// From here on SIGINT and SIGTERM do not end the process: a loop looks at IsStopped.
void CatchSignals();
bool IsStopped();

}  // namespace ZceRelay
