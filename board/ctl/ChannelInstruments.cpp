#include "ctl/ChannelInstruments.h"

#include "ctl/Snapshot.h"
#include "memory/RegisterFile.h"

namespace ZceBoard {

std::vector<ChannelInstrument> TakeInstruments(BoardShm& shm, size_t channel) {
    const CRegisterFile registers(shm);
    std::vector<ChannelInstrument> instruments;
    for (uint32_t table = 0; table < TABLE_COUNT; ++table) {
        for (uint32_t index = 0; index < TABLE_ENTRIES; ++index) {
            const bool bSubscribed = (registers.Mask(table, index) >> channel & 1) != 0;
            const uint64_t messages =
                shm.instruments[channel].sent[table][index].load(std::memory_order_relaxed);
            if (bSubscribed || messages != 0) {
                instruments.push_back({table, index, Printable(registers.LoadName(table, index)),
                                       bSubscribed, messages});
            }
        }
    }
    return instruments;
}

}  // namespace ZceBoard
