#pragma once

namespace ZceBoard {

// Whether there is a description of the terminal that TERM names, and the terminal can be cleared
// and written on at any place.
bool CanDrawOnTerminal();

}  // namespace ZceBoard
