#pragma once

#include <cstdint>
#include <string>

#include "exchange/BoardClock.h"
#include "memory/HostClock.h"

namespace ZceBoard {

// Tells the board's clock to other programs in a file that libfaketime reads: how far it is ahead
// of the machine's. A program that runs under libfaketime with FAKETIME_TIMESTAMP_FILE on this file
// has the board's time.
class CClockFile {
  public:
    // An empty path: nothing is written.
    explicit CClockFile(std::string path) : m_path(std::move(path)) {}

    // Why no clock file can be at this place; empty: it can.
    static std::string WhyNot(const std::string& path);

    // The board's time at a moment; it is written when it has moved against the machine's clock by
    // more than a few ms, at most a hundred times a second. The file is replaced as a whole. A
    // failure is told on standard error, once.
    void Tell(const BoardTime& time, const HostTime& now);
    // The clock was moved by somebody who goes by the file afterwards: the next time it is not
    // waited with.
    void Hurry() { m_nextNs = 0; }

  private:
    bool Write(int64_t aheadNs);

    std::string m_path;
    int64_t m_toldNs = 0;
    int64_t m_nextNs = 0;
    bool m_bTold = false;
    bool m_bFailed = false;
};

}  // namespace ZceBoard
