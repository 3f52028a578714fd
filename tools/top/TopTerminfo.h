#pragma once

namespace ZceBoard {

// Whether there is a description of the terminal that TERM names.
bool IsTerminalKnown();

}  // namespace ZceBoard
