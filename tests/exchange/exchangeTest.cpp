#include "exchange/Exchange.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <vector>

namespace {

using ZceBoard::BoardTime;
using ZceBoard::CExchange;
using ZceBoard::CInstrumentList;
using ZceBoard::Phase;
using ZceBoard::Tick;

constexpr BoardTime NOON{20261120, 120000, 43200ULL * 1000000000 + 5, 7};

// All the bytes of the first messages of an exchange, one after another.
std::vector<unsigned char> BytesOf(const CInstrumentList& list, uint64_t seed, int ticks) {
    CExchange exchange(list.All(), seed);
    std::vector<unsigned char> bytes;
    for (int k = 0; k < ticks; ++k) {
        const Tick tick = exchange.Next();
        ZceBoardL5_t body{};
        exchange.Fill(tick, NOON, Phase::Trading, body);
        const auto* begin = reinterpret_cast<const unsigned char*>(&body);
        bytes.push_back(static_cast<unsigned char>(tick.type));
        bytes.insert(bytes.end(), begin, begin + ZceBoardBodySize(tick.type));
    }
    return bytes;
}

class Exchange : public testing::Test {
  protected:
    Exchange() { m_list.AddAllProducts(); }
    CInstrumentList m_list;
};

TEST_F(Exchange, TheSameSeedGivesTheSameBytesAndAnotherSeedOthers) {
    const auto bytes = BytesOf(m_list, 42, 5000);
    EXPECT_EQ(bytes, BytesOf(m_list, 42, 5000));
    EXPECT_NE(bytes, BytesOf(m_list, 43, 5000));
}

TEST_F(Exchange, AMessagesTypeTellsFeedAndTable) {
    CExchange exchange(m_list.All(), 1);
    std::map<uint32_t, int> types;
    for (int k = 0; k < 4000; ++k) {
        const Tick tick = exchange.Next();
        ++types[tick.type];
        EXPECT_EQ(tick.instrument, &m_list.All()[tick.place]);
        EXPECT_EQ(tick.instrument->table, tick.type == 18 || tick.type == 20 ? 1U : 0U);
        EXPECT_EQ(tick.feed, tick.type <= 18 ? 2U : 1U) << "bit 1 is L1, bit 0 is L5";
    }
    ASSERT_EQ(types.size(), 4U);
    EXPECT_EQ(types.begin()->first, 17U);
    EXPECT_EQ(types.rbegin()->first, 20U);
    EXPECT_NEAR(types[17] + types[18], 2000, 200);
    EXPECT_NEAR(types[18] + types[20], 600, 120);
}

TEST_F(Exchange, EveryInstrumentTicks) {
    CExchange exchange(m_list.All(), 1);
    std::vector<bool> seen(m_list.All().size());
    for (int k = 0; k < 400000; ++k) {
        seen[exchange.Next().place] = true;
    }
    for (size_t place = 0; place < seen.size(); ++place) {
        EXPECT_TRUE(seen[place]) << m_list.All()[place].name;
    }
}

TEST_F(Exchange, AListOfOneKindOnlyTicksToo) {
    CInstrumentList one;
    one.Add("SPD-SR209&SR301");
    CExchange exchange(one.All(), 1);
    for (int k = 0; k < 100; ++k) {
        EXPECT_EQ(exchange.Next().instrument->name, "SPD-SR209&SR301");
    }
}

TEST_F(Exchange, ABodyTellsInstrumentTimeAndPhase) {
    CExchange exchange(m_list.All(), 1);
    const Tick tick = exchange.Next();
    ZceBoardL5_t body{};
    exchange.Fill(tick, NOON, Phase::Auction, body);
    char name[17];
    EXPECT_EQ(ZceBoardName(&body.quote, name), tick.instrument->name);
    EXPECT_EQ(body.quote.usIndex, tick.instrument->index);
    EXPECT_EQ(body.quote.ucTable, tick.instrument->table);
    EXPECT_EQ(body.quote.uiDate, 20261120U);
    EXPECT_EQ(body.quote.uiTime, 120000U);
    EXPECT_EQ(body.quote.ulTimeNs, 43200000000005U);
    EXPECT_EQ(body.quote.ucPhase, ZCE_BOARD_PHASE_AUCTION);
}

TEST_F(Exchange, PricesAreInOrderAndLevelsAreThoseOfTheFeed) {
    CExchange exchange(m_list.All(), 7);
    for (int k = 0; k < 50000; ++k) {
        const Tick tick = exchange.Next();
        ZceBoardL5_t body;
        memset(&body, 0xEE, sizeof(body));
        exchange.Fill(tick, NOON, Phase::Trading, body);
        const ZceBoardQuote_t& quote = body.quote;
        ASSERT_EQ(quote.ucLevels, tick.feed == 1 ? 5 : 1);
        ASSERT_LE(quote.lLowPrice, quote.lLastPrice);
        ASSERT_LE(quote.lLastPrice, quote.lHighPrice);
        ASSERT_LE(quote.lLowPrice, quote.lOpenPrice);
        ASSERT_LE(quote.lOpenPrice, quote.lHighPrice);
        ASSERT_GE(quote.ulVolume, quote.uiLastVolume);
        ASSERT_GT(quote.uiLastVolume, 0U);
        ASSERT_TRUE(quote.ucTable == 1 || quote.lLastPrice > 0) << tick.instrument->name;
        for (int level = 0; level < 5; ++level) {
            const ZceBoardLevel_t& at = body.aLevel[level];
            if (level >= quote.ucLevels) {
                ASSERT_TRUE(at.lBidPrice == 0 && at.lAskPrice == 0 && at.uiBidVolume == 0 &&
                            at.uiAskVolume == 0);
                continue;
            }
            ASSERT_GT(at.lAskPrice, quote.lLastPrice);
            ASSERT_TRUE(at.uiBidVolume == 0 ? at.lBidPrice == 0 : at.lBidPrice < quote.lLastPrice);
        }
    }
}

}  // namespace
