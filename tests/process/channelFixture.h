#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/memory/boardFixture.h"

namespace boardtest {

// Readers of a board's streams by channel. m_memory is the derived test's to make.
class ChannelFixture : public BoardFixture {
  protected:
    void OpenChannel(uint32_t channel) {
        const ZceBoard::RingView ring = ViewOf(m_memory->Shm().a2c[channel]);
        // The reader's lock, which shows the board that it lives.
        m_holders[channel] = std::make_unique<ZceBoard::CBoardFile>();
        EXPECT_EQ(m_memory->Reopen(*m_holders[channel]), 0);
        EXPECT_EQ(m_holders[channel]->Lock(ZceBoard::LOCK_A2C_FIRST + channel), 0);
        m_generations[channel] = OpenRing(ring, true);
        m_consumers[channel] = ZceBoard::CRingConsumer(ring, m_generations[channel]);
    }
    void CloseChannel(uint32_t channel) {
        CloseRing(ViewOf(m_memory->Shm().a2c[channel]), m_generations[channel]);
        m_holders.erase(channel);
    }
    std::vector<std::string> Drain(uint32_t channel) {
        std::vector<std::string> messages;
        while (m_consumers[channel].PollOnce([&messages](const unsigned char* data, uint32_t len) {
            messages.emplace_back(reinterpret_cast<const char*>(data), len);
        }) == 1) {}
        return messages;
    }

    std::unique_ptr<ZceBoard::CBoardMemory> m_memory;

  private:
    std::map<uint32_t, std::unique_ptr<ZceBoard::CBoardFile>> m_holders;
    std::map<uint32_t, uint32_t> m_generations;
    std::map<uint32_t, ZceBoard::CRingConsumer> m_consumers;
};

}  // namespace boardtest
