#pragma once

#include <csignal>
#include <cstdint>
#include <memory>
#include <string>

#include "top/TopPage.h"

namespace ZceBoard {

// Where the monitor shows what it sees, and what it hears from there. One at a time in a process.
class CTopOutput {
  public:
    CTopOutput() = default;
    virtual ~CTopOutput() = default;
    CTopOutput(const CTopOutput&) = delete;
    CTopOutput& operator=(const CTopOutput&) = delete;

    // Shows this page and nothing else.
    virtual void Show(const TopPage& page) = 0;

    // Why what was shown is lost; empty: it is not.
    virtual std::string Fault() const { return ""; }

    enum class Event { TimeUp, Redraw, Key, Quit };
    // Until `ns` of real time have passed or something else comes: the size has changed, the user
    // has pressed `key`, or a signal ends the monitor.
    virtual Event Wait(int64_t ns, TopKey& key) = 0;
};

// The whole terminal that standard output is, given back as it was when the object goes. In colour
// if it has any and NO_COLOR is not set. Null if it cannot be drawn on: nobody knows it, or it
// lacks what that takes; or, with `error`, for another reason.
std::unique_ptr<CTopOutput> MakeTerminal(std::string& error);

// Standard output as a text: each Show is the page's lines and an empty one. No key is heard.
std::unique_ptr<CTopOutput> MakePlainOutput();

// Prints the text on standard output, at once. What went wrong; empty: nothing.
std::string PrintText(const std::string& text);

// SIGINT, SIGTERM and SIGHUP end the monitor from now on: while an output waits, and no sooner.
void CatchEndSignals();

// Waits up to `ns` for one of the end signals, or for `fd` (-1: none) to be readable.
enum class WaitEnd { TimeUp, Readable, Interrupted, Stop };
WaitEnd WaitForInput(int fd, int64_t ns);

}  // namespace ZceBoard
