#include "exchange/SessionTable.h"

#include <gtest/gtest.h>

namespace {

using ZceBoard::Phase;
using ZceBoard::PhaseAt;

struct Edge {
    uint32_t hhmmss;
    Phase phase;
};

// Each bound of the day: the second before it, and it.
constexpr Edge EDGES[] = {
    {0, Phase::Closed},       {82959, Phase::Closed},   {83000, Phase::Auction},
    {85510, Phase::Auction},  {85959, Phase::Auction},  {90000, Phase::Trading},
    {101459, Phase::Trading}, {101500, Phase::Break},   {102959, Phase::Break},
    {103000, Phase::Trading}, {112959, Phase::Trading}, {113000, Phase::Break},
    {132959, Phase::Break},   {133000, Phase::Trading}, {145959, Phase::Trading},
    {150000, Phase::Closed},  {202959, Phase::Closed},  {203000, Phase::Auction},
    {205510, Phase::Auction}, {205959, Phase::Auction}, {210000, Phase::Trading},
    {232959, Phase::Trading}, {233000, Phase::Closed},  {235959, Phase::Closed},
};

TEST(SessionTable, EachBoundOfTheDay) {
    for (const Edge& edge : EDGES) {
        EXPECT_EQ(PhaseAt(edge.hhmmss), edge.phase) << edge.hhmmss;
    }
}

TEST(SessionTable, TheMarketIsOpenInAuctionsAndTradingOnly) {
    EXPECT_TRUE(IsMarketOpen(Phase::Auction));
    EXPECT_TRUE(IsMarketOpen(Phase::Trading));
    EXPECT_FALSE(IsMarketOpen(Phase::Break));
    EXPECT_FALSE(IsMarketOpen(Phase::Closed));
}

TEST(SessionTable, PhasesHaveNames) {
    EXPECT_STREQ(PhaseName(Phase::Closed), "closed");
    EXPECT_STREQ(PhaseName(Phase::Auction), "auction");
    EXPECT_STREQ(PhaseName(Phase::Trading), "trading");
    EXPECT_STREQ(PhaseName(Phase::Break), "break");
}

}  // namespace
