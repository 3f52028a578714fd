#pragma once

#include <string>

namespace ZceRelay {

// A line on standard error, with the program's name in front; any thread.
void TellError(const std::string& line);
// The same of what could not be done, for the end of a command: EXIT_NOT_DONE.
int NotDone(const std::string& reason);

// A line on standard output, at once; none if its reader takes nothing just now: nobody waits for
// it. Whether any was lost FinishOutput tells. Any thread.
void TellStatus(const std::string& line);

// From here on SIGINT and SIGTERM do not end the process: a loop looks at IsStopped.
void CatchSignals();
bool IsStopped();

}  // namespace ZceRelay
