#pragma once

#include <array>
#include <csignal>

namespace ZceBoard {

// SIGINT, SIGTERM, SIGHUP and SIGQUIT of a process that has boards, and perhaps a command beside
// them. Of the process, not of a thread.
namespace Signals {

constexpr std::array<int, 4> OF_THE_COMMAND = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// From now on the first three are noted and end nothing by themselves; with `bCommand` SIGQUIT too.
// SIGPIPE is ignored, SIGCHLD is not.
void Install(bool bCommand);

// Set by any of them.
const volatile std::sig_atomic_t& Stop();

// The next one that somebody sent to this process alone, 0 if there is none. What comes from the
// terminal is left out: the command has that itself.
int TakeSent();

// In a forked child: all as they were before Install.
void Restore();

}  // namespace Signals

}  // namespace ZceBoard
