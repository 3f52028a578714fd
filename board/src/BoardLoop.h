#pragma once

#include <csignal>
#include <cstdint>
#include <string>

#include "Board.h"
#include "Broadcast.h"
#include "Exchange.h"
#include "Instruments.h"
#include "Pacer.h"

namespace ZceBoard {

struct BoardOptions {
    uint32_t bus = 0;
    uint64_t seed = 1;
    uint64_t rate = 20000;  // ticks a second of real time, over all instruments
    BroadcastPace pace{4'000'000'000, 60'000'000'000};
};

// Brings board and exchange together and keeps them going in real time: once a millisecond what is
// due is done, in bounded batches, and in between it sleeps. One thread.
class CBoardLoop {
  public:
    // Board and list outlive this object.
    CBoardLoop(CBoard& board, const CInstrumentList& list, const BoardOptions& options);

    // Until `stop` is set; prints to standard output a status line every second, and the counts of
    // an opening of a stream when it ends.
    void Run(const volatile std::sig_atomic_t& stop);

    // One round of everything that is due. `realNs` does not go back.
    void Pass(const BoardTime& time, int64_t realNs);

    std::string StatusLine(const BoardTime& time) const;
    // The last lines: the counts of each opening that has not ended, of each channel that was ever
    // open, and the totals.
    std::string LastLines() const;

  private:
    void TellEnds();
    void Broadcast(Phase phase, int64_t wallNs);
    void Decode(Phase phase, const BoardTime& time, int64_t realNs);

    CBoard& m_board;
    const CInstrumentList& m_list;
    BoardOptions m_options;
    CBroadcast m_broadcast;
    CExchange m_exchange;
    CPacer m_pacer;
    int64_t m_nextHolderCheckNs = 0;
};

}  // namespace ZceBoard
