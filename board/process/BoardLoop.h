#pragma once

#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

#include "device/Board.h"
#include "memory/Control.h"
#include "process/ClockFile.h"
#include "process/Command.h"
#include "traffic/Traffic.h"

namespace ZceBoard {

// Brings a board and its traffic together and keeps them going: in each pass what is due is done,
// in bounded batches, and what happened is told in the board's memory. One thread.
class CBoardLoop {
  public:
    // Board and traffic outlive this object. `clockFile` is that of CClockFile.
    CBoardLoop(CBoard& board, CTraffic& traffic, uint32_t bus, const std::string& clockFile = {})
        : m_board(board),
          m_traffic(traffic),
          m_bus(bus),
          m_clockFile(clockFile),
          m_requests(board.Shm().control),
          m_passes(board.Shm().stats.passes.load(std::memory_order_relaxed)) {}

    // One round of everything that is due. `now.realNs` does not go back. Prints to standard output
    // the counts of each opening of a stream that has ended.
    void Pass(const HostTime& now);

    // After the last pass: tells the openings that have ended since.
    void Finish();

    bool HasBacklog() const { return !m_bPaused && m_traffic.HasBacklog(); }
    bool IsOver() const { return m_traffic.IsOver(); }

    std::string ReadyLine() const;
    std::string StatusLine() const;
    // The last lines: the counts of each opening that has not ended, of each channel that was ever
    // open, and the totals.
    std::string LastLines() const;

  private:
    int Answer(Request request, uint64_t argument);
    int Step(uint64_t ms);
    void TellEnds();
    void Publish();
    void LookAfterMemory(int64_t nowNs);
    uint64_t Garbage() const { return m_board.Garbage() + m_requests.Garbage(); }

    CBoard& m_board;
    CTraffic& m_traffic;
    uint32_t m_bus;
    CClockFile m_clockFile;
    CRequestTaker m_requests;
    uint64_t m_passes;
    int64_t m_nextHolderCheckNs = 0;
    int64_t m_nextNameCheckNs = 0;
    bool m_bLost = false;  // its memory has lost its name
    bool m_bPaused = false;
};

// Keeps boards going in real time, once a millisecond each and sleeping in between, until `stop` is
// set or all traffic is over. Prints a status line for each every second, and the last lines.
// With a command it is started after the first pass, when the boards are there for it and have told
// the clock; then its end is theirs, and there are no status lines.
void RunBoards(std::vector<CBoardLoop*>& loops, const volatile std::sig_atomic_t& stop,
               CCommand* command = nullptr);

}  // namespace ZceBoard
