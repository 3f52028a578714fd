#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "memory/ShmLayout.h"

namespace ZceBoard {

// One instrument on one channel.
struct ChannelInstrument {
    uint32_t table = 0;        // TABLE_SINGLE or TABLE_COMBINE
    uint32_t index = 0;        // its entry there
    std::string name;          // as the table has it now, with "?" for what cannot be printed
    bool bSubscribed = false;  // the entry's mask has the channel
    uint64_t messages = 0;     // sent to the channel, over all openings
};

// The instruments that a channel (below CHANNELS) has in their mask or has had messages of, by
// table and index. Reads the board's memory without touching anything.
std::vector<ChannelInstrument> TakeInstruments(BoardShm& shm, size_t channel);

}  // namespace ZceBoard
