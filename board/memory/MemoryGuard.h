#pragma once

#include <cstddef>
#include <string>

namespace ZceBoard {

// What happens to a process that touches a board's memory whose file somebody has cut short: the
// system sends SIGBUS. The process ends by it all the same, but says why in one line on standard
// error. A SIGBUS for any other address goes to the handler that was there before the first board
// was mapped, or does what it would have done without one. A handler that the program installs
// later takes the place of this one. Any thread.

// From now on an access to these bytes that fails ends the process with `line`, of which 255
// characters are printed.
void WatchMemory(const void* begin, size_t size, const std::string& line);
// Before they are unmapped; does nothing for memory that is not watched.
void UnwatchMemory(const void* begin);

}  // namespace ZceBoard
