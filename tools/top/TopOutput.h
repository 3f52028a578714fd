#pragma once

#include <csignal>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace ZceBoard {

// Where the monitor shows what it sees, and what it hears from there. One at a time in a process.
class CTopOutput {
  public:
    CTopOutput() = default;
    virtual ~CTopOutput() = default;
    CTopOutput(const CTopOutput&) = delete;
    CTopOutput& operator=(const CTopOutput&) = delete;

    // Shows these lines and no others.
    virtual void Show(const std::vector<std::string>& lines) = 0;

    // Why what was shown is lost; empty: it is not.
    virtual std::string Fault() const { return ""; }

    enum class Event { TimeUp, Redraw, Quit };
    // Until `ns` of real time have passed or something else comes: the size has changed, or the
    // user or a signal ends the monitor.
    virtual Event Wait(int64_t ns) = 0;
};

// The whole terminal that standard output is, given back as it was when the object goes. Null with
// `error` if it cannot be used.
std::unique_ptr<CTopOutput> MakeTerminal(std::string& error);

// Standard output as a text: each Show is the lines and an empty one.
std::unique_ptr<CTopOutput> MakePlainOutput();

// Prints the text on standard output, at once. What went wrong; empty: nothing.
std::string PrintText(const std::string& text);

// SIGINT, SIGTERM and SIGHUP end the monitor from now on: while an output waits, and no sooner.
void CatchEndSignals();

// Waits up to `ns` for one of the end signals, or for `fd` (-1: none) to be readable.
enum class WaitEnd { TimeUp, Readable, Interrupted, Stop };
WaitEnd WaitForInput(int fd, int64_t ns);

}  // namespace ZceBoard
