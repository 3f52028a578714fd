#pragma once

#include <array>
#include <csignal>

namespace ZceBoard {

// SIGINT, SIGTERM, SIGHUP and SIGQUIT of a process that has boards, and perhaps a command beside
// them. Of the process, not of a thread.
namespace Signals {

constexpr std::array<int, 4> OF_THE_COMMAND = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// A pipe that nobody reads is an error of the write from now on.
void IgnoreBrokenPipes();

// From now on the first three are noted and end nothing by themselves; with `bCommand` SIGQUIT too.
// SIGCHLD is not ignored.
void Install(bool bCommand);

// Set by any of them.
const volatile std::sig_atomic_t& Stop();

// The next one that somebody sent to this process alone, 0 if there is none. What comes from the
// terminal is left out: the command has that itself.
int TakeSent();

// While it lives, none of the four reaches this thread: they wait. For a fork: until the child has
// Restore()d, a signal to it would end up in this process's notes, and be lost.
class CBlocked {
  public:
    CBlocked();
    ~CBlocked() { Release(); }
    CBlocked(const CBlocked&) = delete;
    CBlocked& operator=(const CBlocked&) = delete;
    void Release() const;

  private:
    sigset_t m_before{};
};

// In a forked child: all as they were before.
void Restore();

}  // namespace Signals

}  // namespace ZceBoard
