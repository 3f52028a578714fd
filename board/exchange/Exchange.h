#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "ZceBoardMsg.h"
#include "exchange/BoardClock.h"
#include "exchange/Instruments.h"
#include "exchange/Random.h"
#include "exchange/SessionTable.h"

namespace ZceBoard {

// One tick: which instrument moved, and on which feed the exchange tells it.
struct Tick {
    const Instrument* instrument;
    size_t place;   // of the instrument in the list
    uint32_t type;  // of the message: 17 to 20
    uint32_t feed;  // SWITCH_L1 or SWITCH_L5
};

// The exchange as the board hears it: instruments whose prices walk. It knows nothing of the board.
// The same list and seed give the same ticks in the same order, whatever the pace and the time.
//
// Futures tick far more often than options, as they do.
class CExchange {
  public:
    // The list holds one instrument at least, stays unchanged and outlives this object.
    CExchange(const std::vector<Instrument>& instruments, uint64_t seed);

    // The next tick, on a feed by chance or on the given one (SWITCH_L1 or SWITCH_L5); the
    // instrument's prices have moved.
    Tick Next();
    Tick NextOn(uint32_t feed);

    // What the tick's message says, but for the sequence number, which belongs to the channel. The
    // levels beyond those of the tick's feed are 0.
    void Fill(const Tick& tick, const BoardTime& time, Phase phase, ZceBoardL5_t& body) const;

  private:
    struct State {
        int64_t lTick;
        int64_t lLow;  // the walk's bounds
        int64_t lHigh;
        ZceBoardQuote_t quote;
        uint32_t auiDepth[2];  // lots at the best bid and ask
    };

    static State Begin(const Instrument& instrument, CRandom& random);
    size_t PickPlace();
    size_t MoveOne();
    Tick TickOf(size_t place, uint32_t feed) const;
    void Move(State& state);

    const std::vector<Instrument>& m_instruments;
    // How often instruments of a kind tick, and where they are in the list; weight 0: none are.
    struct Kind {
        uint32_t weight = 0;
        std::vector<uint32_t> places;
    };
    std::array<Kind, 3> m_kinds;
    uint32_t m_weights = 0;  // together
    std::vector<State> m_states;
    CRandom m_random;
};

}  // namespace ZceBoard
