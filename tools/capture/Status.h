#pragma once

namespace ZceCaptureTool {

// The exit status of a command that did its work and found something that is not well: a cut file,
// a difference. 0 and 2 are those of every program (program/Program.h).
constexpr int EXIT_NOT_WELL = 1;

}  // namespace ZceCaptureTool
