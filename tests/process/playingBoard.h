#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "boardMessages.h"
#include "device/Board.h"
#include "nanoseconds.h"
#include "process/BoardLoop.h"
#include "tests/memory/boardFixture.h"
#include "traffic/LiveTraffic.h"

namespace boardtest {

// A board whose clock the test sets, with a short list of instruments, and readers of its streams.
class PlayingBoard : public BoardFixture {
  protected:
    explicit PlayingBoard(const ZceBoard::CFeeds& feeds = {}) : m_board(*m_memory, feeds) {
        for (const char* name : {"SR209", "CF301", "SR209C5000", "SPD-SR209&SR301"}) {
            m_list.Add(name);
        }
        ZceBoard::LiveOptions options;
        options.rate = 10000;
        m_traffic = std::make_unique<Traffic>(m_list, options);
        m_loop = std::make_unique<ZceBoard::CBoardLoop>(m_board, *m_traffic, 0);
    }

    // Real and board time pass in steps of 1 ms from a board time hhmmss on.
    void Pass(uint32_t hhmmss, int64_t ns) {
        ZceBoard::BoardTime time{20261120, hhmmss, 0, m_wallNs};
        for (const int64_t end = m_wallNs + ns; m_wallNs < end; m_wallNs += MS) {
            time.wallNs = m_wallNs;
            m_realNs += MS;
            m_traffic->m_now = time;
            m_loop->Pass({m_wallNs, m_realNs});
        }
    }

    struct Reader {
        ZceBoard::RingView ring;
        uint32_t generation;
        ZceBoard::CRingConsumer consumer;
    };
    Reader Open(uint32_t channel) {
        const ZceBoard::RingView ring = ViewOf(m_memory->Shm().a2c[channel]);
        // The reader's lock, which shows the board that it lives.
        EXPECT_EQ(m_memory->Reopen(m_holders[channel]), 0);
        EXPECT_EQ(m_holders[channel].Lock(ZceBoard::LOCK_A2C_FIRST + channel), 0);
        const uint32_t generation = OpenRing(ring, true);
        return {ring, generation, ZceBoard::CRingConsumer(ring, generation)};
    }
    static std::vector<std::vector<unsigned char>> Drain(Reader& reader) {
        std::vector<std::vector<unsigned char>> messages;
        while (reader.consumer.PollOnce([&](const unsigned char* data, uint32_t len) {
            messages.emplace_back(data, data + len);
        }) == 1) {}
        return messages;
    }
    void Subscribe(uint32_t table, uint32_t index, uint32_t mask) {
        const uint32_t window = table == 0 ? 0x11000 : 0x12000;
        m_host.WriteWord(window + 1, mask);
        m_host.WriteWord(window, index * 64);
    }

    std::unique_ptr<ZceBoard::CBoardMemory> m_memory = MakeBoard();
    ZceBoard::CRegisterFile m_host{m_memory->Shm()};
    ZceBoard::CBoard m_board;
    ZceBoard::CInstrumentList m_list;
    // Live traffic at a time of day that the test gives.
    struct Traffic : ZceBoard::CLiveTraffic {
        using CLiveTraffic::CLiveTraffic;
        void Follow(const ZceBoard::HostTime& now) override {
            PassRealTime(now.realNs, true);
            SetTime(m_now);
        }
        ZceBoard::BoardTime m_now{};
    };
    std::unique_ptr<Traffic> m_traffic;
    std::unique_ptr<ZceBoard::CBoardLoop> m_loop;
    std::array<ZceBoard::CBoardFile, 16> m_holders;
    int64_t m_wallNs = 1000 * SECOND;
    int64_t m_realNs = 5 * SECOND;
};

}  // namespace boardtest
