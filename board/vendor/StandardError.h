#pragma once

#include <cstddef>

namespace ZceBoard {

// Writes a line to standard error from inside an application's call: it never waits (a pipe that is
// full or a terminal that is stopped does not get the line), raises no signal (a pipe that nobody
// reads), takes no memory, and leaves errno alone. At most PIPE_BUF bytes, so that a pipe takes the
// line whole or not at all. Any thread.
void TellWithoutWaiting(const char* line, size_t size);

}  // namespace ZceBoard
