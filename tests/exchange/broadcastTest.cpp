#include "exchange/Broadcast.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using ZceBoard::CBroadcast;
using ZceBoard::CInstrumentList;
using ZceBoard::Phase;

constexpr int64_t SECOND = 1000000000;
constexpr ZceBoard::BroadcastPace PACE{4 * SECOND, 60 * SECOND};

CInstrumentList ListOf(const std::vector<std::string>& names) {
    CInstrumentList list;
    for (const std::string& name : names) {
        EXPECT_EQ(list.Add(name), "");
    }
    return list;
}

TEST(MapPacket, ByteForByte) {
    const CInstrumentList list = ListOf({"SR209", "SPD-SR209&SR301", "SR209C5000"});
    const CBroadcast broadcast(list.All(), PACE);
    ASSERT_EQ(broadcast.Packets().size(), 1U);
    const std::vector<unsigned char> expected = {
        2, 0, 0, 0,         // type, little-endian
        0, 0, 51, 0,        // channel 0; 51 bytes after byte 12, little-endian
        0, 0, 0, 0,         //
        0, 49,              // length of the records, big-endian: 14 + 20 + 15
        0, 14, 0, 0, 0, 0,  // first record: 14 bytes, 4 bytes that later records do not
                            // have
        0, 0, 0, 'S', 'R', '2', '0', '9',  // attribute, index 0, name
        0, 20, 2, 0, 0,                    // second: 20 bytes, attribute, index 0
        'S', 'P', 'D', '-', 'S', 'R', '2', '0', '9', '&', 'S', 'R', '3', '0', '1', 0, 15, 1, 0,
        1,  // third: 15 bytes, attribute, index 1
        'S', 'R', '2', '0', '9', 'C', '5', '0', '0', '0'};
    EXPECT_EQ(broadcast.Packets()[0].bytes, expected);
    EXPECT_EQ(broadcast.Packets()[0].first, 0U);
    EXPECT_EQ(broadcast.Packets()[0].count, 3U);
}

TEST(MapPacket, AnIndexAndALengthAbove255AreBigEndian) {
    CInstrumentList list;
    for (int k = 0; k < 300; ++k) {
        ASSERT_EQ(list.Add("X" + std::to_string(10000 + k)), "");
    }
    const CBroadcast broadcast(list.All(), PACE);
    ASSERT_EQ(broadcast.Packets().size(), 8U);
    const auto& packet = broadcast.Packets()[7].bytes;  // indexes 280 to 299
    EXPECT_EQ(broadcast.Packets()[7].first, 280U);
    EXPECT_EQ(broadcast.Packets()[7].count, 20U);
    EXPECT_EQ(packet[12] * 256 + packet[13], 15 + 19 * 11);
    EXPECT_EQ(packet[21], 1);
    EXPECT_EQ(packet[22], 280 - 256);
    EXPECT_EQ(packet.size(), 14U + 15 + 19 * 11);
    const auto& full = broadcast.Packets()[0].bytes;  // 40 records
    EXPECT_EQ(full[12], (15 + 39 * 11) / 256);
    EXPECT_EQ(full[13], (15 + 39 * 11) % 256);
    EXPECT_EQ(full[6], (2 + 15 + 39 * 11) % 256);
    EXPECT_EQ(full[7], (2 + 15 + 39 * 11) / 256);
}

TEST(MapPacket, TheFullListIsToldOnceInPacketsUnder1500BytesWithSeveralRecords) {
    CInstrumentList list;
    list.AddAllProducts();
    const CBroadcast broadcast(list.All(), PACE);
    size_t next = 0;
    for (const auto& packet : broadcast.Packets()) {
        EXPECT_EQ(packet.first, next);
        EXPECT_GT(packet.count, 1U);
        EXPECT_LE(packet.bytes.size(), 1500U);
        // Read back as a receiver does.
        const size_t records = packet.bytes[12] * 256U + packet.bytes[13];
        ASSERT_EQ(packet.bytes.size(), 14 + records);
        size_t p = 14;
        for (size_t n = 0; n < packet.count; ++n) {
            const size_t head = n == 0 ? 9 : 5;
            const size_t length = packet.bytes[p] * 256U + packet.bytes[p + 1];
            ASSERT_LE(p + length, packet.bytes.size());
            const auto* bytes = reinterpret_cast<const char*>(packet.bytes.data()) + p;
            EXPECT_EQ(std::string(bytes + head, length - head), list.All()[next + n].name);
            p += length;
        }
        EXPECT_EQ(p, packet.bytes.size());
        next += packet.count;
    }
    EXPECT_EQ(next, list.All().size());
}

class Pace : public testing::Test {
  protected:
    Pace() {
        for (int k = 0; k < 4000; ++k) {
            m_list.Add("X" + std::to_string(k));
        }
    }

    // Lets a time pass in steps of one ms and counts the packets.
    size_t Pass(CBroadcast& broadcast, Phase phase, int64_t ns) {
        size_t packets = 0;
        for (const int64_t end = m_now + ns; m_now < end; m_now += SECOND / 1000) {
            for (size_t due = broadcast.Due(phase, m_now); due != 0; --due) {
                broadcast.Advance();
                ++packets;
            }
        }
        return packets;
    }

    CInstrumentList m_list;  // 100 packets
    int64_t m_now = 1000 * SECOND;
};

TEST_F(Pace, ARoundTakesTheAuctionsTimeInAnAuctionAndTheSessionsInTradingTime) {
    CBroadcast broadcast(m_list.All(), PACE);
    ASSERT_EQ(broadcast.Packets().size(), 100U);
    EXPECT_NEAR(static_cast<double>(Pass(broadcast, Phase::Auction, 4 * SECOND)), 100, 1);
    EXPECT_NEAR(static_cast<double>(Pass(broadcast, Phase::Auction, 8 * SECOND)), 200, 1);
    EXPECT_NEAR(static_cast<double>(Pass(broadcast, Phase::Trading, 60 * SECOND)), 100, 2);
    EXPECT_EQ(broadcast.Rounds(), 3U);
}

TEST_F(Pace, ThereIsNoneInBreaksAndWhenClosedAndNothingIsMadeUpForAfterwards) {
    CBroadcast broadcast(m_list.All(), PACE);
    EXPECT_EQ(Pass(broadcast, Phase::Closed, 60 * SECOND), 0U);
    EXPECT_EQ(Pass(broadcast, Phase::Break, 60 * SECOND), 0U);
    EXPECT_LE(Pass(broadcast, Phase::Auction, SECOND / 25), 1U);
}

TEST_F(Pace, AJumpOfTheClockGivesOneRoundAtMostAndOneBackNone) {
    CBroadcast broadcast(m_list.All(), PACE);
    EXPECT_EQ(broadcast.Due(Phase::Auction, m_now), 0U);
    EXPECT_EQ(broadcast.Due(Phase::Auction, m_now + 3600 * SECOND), 100U);
    for (int k = 0; k < 100; ++k) {
        broadcast.Advance();
    }
    EXPECT_EQ(broadcast.Due(Phase::Auction, m_now), 0U);
    EXPECT_EQ(broadcast.Due(Phase::Auction, m_now + SECOND), 25U);
}

TEST_F(Pace, WhatCouldNotBeSentStaysDue) {
    CBroadcast broadcast(m_list.All(), PACE);
    broadcast.Due(Phase::Auction, m_now);
    EXPECT_EQ(broadcast.Due(Phase::Auction, m_now + SECOND), 25U);
    EXPECT_EQ(broadcast.Due(Phase::Auction, m_now + SECOND), 25U);
    broadcast.Advance();
    EXPECT_EQ(broadcast.Due(Phase::Auction, m_now + SECOND), 24U);
    EXPECT_EQ(broadcast.Next().first, 40U);
}

}  // namespace
