// What is counted of a stream, on a clock in the test's hand: a tick is a nanosecond.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "watch/GapWindows.h"
#include "watch/StreamWatch.h"
#include "watch/Ticks.h"

namespace velatest {
namespace {

using ZceWatch::BoardState;
using ZceWatch::CGapWindows;
using ZceWatch::CountersState;
using ZceWatch::CStreamWatch;
using ZceWatch::Entry;
using ZceWatch::EntryState;

constexpr uint64_t oneSecond = 1'000'000'000;
constexpr uint64_t begin = 500 * oneSecond;

// ---- The windows ----

TEST(GapWindows, AGapIsOfTheSecondInWhichItEndsAndOfTheNextOne) {
    CGapWindows windows(oneSecond);
    EXPECT_FALSE(windows.RollTo(begin));
    EXPECT_FALSE(windows.RollTo(begin + oneSecond - 1));
    EXPECT_TRUE(windows.Add(70));
    EXPECT_FALSE(windows.Add(70));
    EXPECT_FALSE(windows.Add(69));
    EXPECT_EQ(windows.Second(), 70U);
    EXPECT_TRUE(windows.RollTo(begin + oneSecond));  // the first moment of the second one
    EXPECT_EQ(windows.Second(), 70U);
    EXPECT_TRUE(windows.Add(30));
    EXPECT_EQ(windows.Second(), 70U);
    EXPECT_FALSE(windows.RollTo(begin + 2 * oneSecond - 1));
    EXPECT_TRUE(windows.RollTo(begin + 2 * oneSecond));
    EXPECT_EQ(windows.Second(), 30U);
    EXPECT_EQ(windows.Minute(), 70U);
    EXPECT_TRUE(windows.RollTo(begin + 3 * oneSecond));
    EXPECT_EQ(windows.Second(), 0U);
    EXPECT_EQ(windows.Ever(), 70U);
}

TEST(GapWindows, AMinuteIsSixtyWholeSecondsAndTheRunningOne) {
    CGapWindows windows(oneSecond);
    windows.RollTo(begin);
    windows.Add(70);
    for (uint64_t k = 1; k <= 60; ++k) {
        windows.RollTo(begin + k * oneSecond);
        windows.Add(k == 30 ? 50 : 1);
        EXPECT_EQ(windows.Minute(), 70U) << k;
    }
    windows.RollTo(begin + 61 * oneSecond);
    EXPECT_EQ(windows.Minute(), 50U);
    windows.Add(90);
    EXPECT_EQ(windows.Minute(), 90U);
    EXPECT_EQ(windows.Ever(), 90U);
}

TEST(GapWindows, SecondsInWhichNobodyPolledAreEmpty) {
    CGapWindows windows(oneSecond);
    windows.RollTo(begin);
    windows.Add(70);
    EXPECT_TRUE(windows.RollTo(begin + 5 * oneSecond + 1));
    EXPECT_EQ(windows.Second(), 0U);
    EXPECT_EQ(windows.Minute(), 70U);
    EXPECT_FALSE(windows.RollTo(begin + 6 * oneSecond - 1));
    EXPECT_TRUE(windows.RollTo(begin + 6 * oneSecond));
    windows.Add(20);
    // 60 seconds later the first one is out of the minute, and the last is not.
    EXPECT_TRUE(windows.RollTo(begin + 66 * oneSecond));
    EXPECT_EQ(windows.Minute(), 20U);
    EXPECT_TRUE(windows.RollTo(begin + 100'000 * oneSecond));
    EXPECT_EQ(windows.Minute(), 0U);
    EXPECT_EQ(windows.Second(), 0U);
    EXPECT_EQ(windows.Ever(), 70U);
}

// ---- A stream ----

struct Vendor {
    std::array<uint32_t, 4> counters{1, 2, 3, 4};
    int failing = -1;  // of the four
    int board = 0;
    int asked = 0;
};
Vendor g_vendor;

int Counter(int which, uint32_t* value) {
    ++g_vendor.asked;
    errno = ERANGE;
    *value = g_vendor.counters[static_cast<size_t>(which)];
    return g_vendor.failing == which ? -1 : 0;
}

ZceWatch::VendorCalls CallsThatAnswer() {
    ZceWatch::VendorCalls calls;
    calls.poll = [](enyx_hw_a2c_stream*, enyx_hw_a2c_handler, void*) { return 0; };
    calls.backPressure = [](enyx_hw_a2c_stream*, uint32_t* value) { return Counter(0, value); };
    calls.packets = [](enyx_hw_a2c_stream*, uint32_t* value) { return Counter(1, value); };
    calls.fifoErrors = [](enyx_hw_a2c_stream*, uint32_t* value) { return Counter(2, value); };
    calls.errors = [](enyx_hw_a2c_stream*, uint32_t* value) { return Counter(3, value); };
    calls.boardState = [] { return g_vendor.board; };
    return calls;
}

class StreamWatch : public testing::Test {
  protected:
    StreamWatch() {
        g_vendor = {};
        m_watch.Opened(CallsThatAnswer());
    }

    // A poll when the clock shows `now`; whether the clock was read.
    bool PollAt(uint64_t now) {
        const bool reads = m_watch.CountPoll(nullptr, nullptr);
        if (reads) {
            m_watch.TickAt(now);
        }
        return reads;
    }
    // Polls with this pause until the clock is read.
    uint64_t StretchOf(uint64_t pauseNs) {
        uint64_t polls = 1;
        while (!PollAt(m_now += pauseNs)) {
            ++polls;
        }
        return polls;
    }
    std::vector<uint64_t> Gaps() const { return {m_entry.gaps.begin(), m_entry.gaps.end()}; }
    void Message(uint32_t type, uint32_t size) {
        std::array<unsigned char, 4> data{};
        std::memcpy(data.data(), &type, sizeof(type));
        m_watch.CountMessage(data.data(), size);
    }

    Entry m_entry{};
    CStreamWatch m_watch{m_entry, {ZceWatch::TickSource::Monotonic, oneSecond}};
    uint64_t m_now = begin;
};

TEST_F(StreamWatch, MessagesAndBytesAreCountedByTheirType) {
    const std::array<std::pair<uint32_t, uint32_t>, 11> messages{{{2, 1000},
                                                                  {17, 100},
                                                                  {17, 101},
                                                                  {18, 110},
                                                                  {19, 120},
                                                                  {20, 130},
                                                                  {16, 1},
                                                                  {21, 2},
                                                                  {0, 4},
                                                                  {1, 8},
                                                                  {0xFFFFFFFF, 16}}};
    for (const auto& [type, size] : messages) {
        Message(type, std::max(size, 4U));
    }
    Message(17, 3);  // has no type
    Message(17, 0);
    const std::array<std::pair<uint64_t, uint64_t>, 6> expected{
        {{1, 1000}, {2, 201}, {1, 110}, {1, 120}, {1, 130}, {7, 4 + 4 + 4 + 8 + 16 + 3}}};
    for (size_t k = 0; k < expected.size(); ++k) {
        EXPECT_EQ(m_entry.messages[k].messages, expected[k].first) << ZceWatch::TYPE_NAMES[k];
        EXPECT_EQ(m_entry.messages[k].bytes, expected[k].second) << ZceWatch::TYPE_NAMES[k];
    }
}

TEST_F(StreamWatch, TheHandlerGetsWhatTheVendorGaveWithItsOwnContext) {
    struct Got {
        const unsigned char* data = nullptr;
        unsigned int size = 0;
    } got;
    m_watch.CountPoll(
        [](const unsigned char* data, unsigned int size, void* context) {
            *static_cast<Got*>(context) = {data, size};
        },
        &got);
    const std::array<unsigned char, 8> message{18};
    CStreamWatch::OnPacket(message.data(), 8, &m_watch);
    EXPECT_EQ(got.data, message.data());
    EXPECT_EQ(got.size, 8U);
    EXPECT_EQ(m_entry.messages[2].messages, 1U);
    EXPECT_EQ(m_entry.messages[2].bytes, 8U);
}

TEST_F(StreamWatch, SlowPollsAreMeasuredOneByOne) {
    EXPECT_TRUE(PollAt(begin));
    EXPECT_EQ(m_entry.lastPollTicks, begin);
    EXPECT_EQ(m_entry.gapEverNs, 0U);
    EXPECT_TRUE(PollAt(begin + 5000));
    EXPECT_TRUE(PollAt(begin + 5000 + 7000));
    EXPECT_TRUE(PollAt(begin + 5000 + 7000 + 6000));
    EXPECT_EQ(m_entry.polls, 4U);
    EXPECT_EQ(m_entry.gapSecondNs, 7000U);
    EXPECT_EQ(m_entry.gapMinuteNs, 7000U);
    EXPECT_EQ(m_entry.gapEverNs, 7000U);
    EXPECT_EQ(m_entry.lastPollTicks, begin + 18000);
}

TEST_F(StreamWatch, QuickPollsShareAReadingOfTheClockButTakeNoMoreThanABoundTogether) {
    PollAt(begin);
    for (const uint64_t expected : {1U, 2U, 4U, 8U, 16U, 32U, 64U, 128U, 128U}) {
        EXPECT_EQ(StretchOf(5), expected);
    }
    // 20 ns a poll: 128 of them take more than 1500 ns, 64 do not.
    EXPECT_EQ(StretchOf(20), 128U);
    EXPECT_EQ(StretchOf(20), 64U);
    EXPECT_EQ(StretchOf(20), 64U);
    // 749 ns is below the half: the next one is twice as long; 750 is not.
    for (int k = 0; k < 7; ++k) {
        StretchOf(2000);
    }
    EXPECT_EQ(StretchOf(750), 1U);
    EXPECT_EQ(StretchOf(749), 1U);
    EXPECT_EQ(StretchOf(750), 2U);  // 1500 in all: not too long
    EXPECT_EQ(StretchOf(751), 2U);
    EXPECT_EQ(StretchOf(751), 1U);
    EXPECT_EQ(m_entry.polls, 1U + 255 + 128 + 128 + 64 + 64 + 127 + 1 + 1 + 2 + 2 + 1);
}

TEST_F(StreamWatch, BehindTheHalfOfTheBoundAStretchGrowsByEighths) {
    PollAt(begin);
    for (const uint64_t expected : {1U, 2U, 4U, 8U, 16U, 32U, 64U, 72U, 81U, 91U}) {
        EXPECT_EQ(StretchOf(12), expected);
    }
    // 1224 ns: an eighth more would leave little room.
    EXPECT_EQ(StretchOf(12), 102U);
    EXPECT_EQ(StretchOf(12), 102U);
    for (const uint64_t expected : {102U, 114U, 128U, 128U}) {
        EXPECT_EQ(StretchOf(10), expected);
    }
    // 1208 ns is short enough to grow, 1209 is not.
    for (const uint64_t expected : {128U, 64U, 32U, 16U, 8U}) {
        EXPECT_EQ(StretchOf(190), expected);
    }
    EXPECT_EQ(StretchOf(151), 4U);
    m_now += 1200;
    EXPECT_EQ(StretchOf(1), 8U);
    m_now += 1200;
    EXPECT_EQ(StretchOf(1), 9U);
    EXPECT_EQ(StretchOf(1), 9U);
}

TEST_F(StreamWatch, OneLongGapAmongManyShortOnesIsNeverToldTooShort) {
    PollAt(begin);
    for (int k = 0; k < 9; ++k) {
        StretchOf(5);
    }
    const uint64_t before = m_entry.gaps[0];
    m_now += 300'000;  // within a stretch of 128
    EXPECT_EQ(StretchOf(5), 128U);
    EXPECT_EQ(m_entry.gapEverNs, 300'000U + 128 * 5);
    // 2048 << 7 = 262144: bucket 8; the other 127 are short.
    EXPECT_EQ(m_entry.gaps[8], 1U);
    EXPECT_EQ(m_entry.gaps[0], before + 127);
}

TEST_F(StreamWatch, TheHistogramsBoundsAreBeforeOnAndAfterPowersOfTwo) {
    PollAt(m_now);
    std::vector<uint64_t> expected(24);
    const auto gap = [&](uint64_t ns, size_t bucket) {
        EXPECT_EQ(StretchOf(ns), 1U);
        ++expected[bucket];
        EXPECT_EQ(Gaps(), expected) << ns;
    };
    gap(2047, 0);
    gap(2048, 1);
    gap(2049, 1);
    gap(4095, 1);
    gap(4096, 2);
    gap(8191, 2);
    gap(8192, 3);
    gap((uint64_t{1} << 32) - 1, 21);
    gap(uint64_t{1} << 32, 22);
    gap((uint64_t{1} << 33) - 1, 22);
    gap(uint64_t{1} << 33, 23);
    gap(uint64_t{1} << 34, 23);
    gap(uint64_t{3600} * oneSecond, 23);
    EXPECT_EQ(m_entry.gapEverNs, 3600 * oneSecond);
}

TEST_F(StreamWatch, AClockThatIsBehindIsNoGap) {
    PollAt(begin);
    PollAt(begin + 3000);
    PollAt(begin + 2990);  // another core's
    EXPECT_EQ(m_entry.gapEverNs, 3000U);
    EXPECT_EQ(m_entry.gaps[0], 1U);
    EXPECT_EQ(m_entry.gaps[1], 1U);
}

TEST_F(StreamWatch, WindowsRollWhileEveryPollBringsAMessage) {
    PollAt(begin);
    PollAt(begin + 9000);
    for (m_now = begin + 9000; m_now < begin + 3 * oneSecond;) {
        Message(17, 100);
        StretchOf(oneSecond / 100);
    }
    EXPECT_EQ(m_entry.gapSecondNs, oneSecond / 100);
    EXPECT_EQ(m_entry.gapMinuteNs, oneSecond / 100);
    EXPECT_EQ(g_vendor.asked, 0);
}

TEST_F(StreamWatch, TheCountersAreReadOnceASecondAndWithTheBoardsState) {
    EXPECT_TRUE(m_watch.CareIsDue());  // by the first poll that finds nothing
    PollAt(begin);
    EXPECT_EQ(m_entry.countersState, static_cast<uint64_t>(CountersState::NotRead));
    errno = 77;
    m_watch.TakeCare(nullptr);
    EXPECT_EQ(errno, 77);
    EXPECT_FALSE(m_watch.CareIsDue());
    EXPECT_EQ(m_entry.countersState, static_cast<uint64_t>(CountersState::Read));
    EXPECT_EQ(m_entry.backPressure, 1U);
    EXPECT_EQ(m_entry.packets, 2U);
    EXPECT_EQ(m_entry.fifoErrors, 3U);
    EXPECT_EQ(m_entry.errors, 4U);
    EXPECT_NEAR(static_cast<double>(m_entry.countersNs),
                static_cast<double>(ZceWatch::ClockNs(CLOCK_REALTIME)), 60e9);
    EXPECT_EQ(m_entry.boardState, static_cast<uint64_t>(BoardState::Runs));
    PollAt(begin + oneSecond - 1);
    EXPECT_FALSE(m_watch.CareIsDue());
    PollAt(begin + oneSecond);
    EXPECT_TRUE(m_watch.CareIsDue());
    const std::array<std::pair<int, BoardState>, 4> states{{{1, BoardState::Gone},
                                                            {2, BoardState::Replaced},
                                                            {3, BoardState::Unknown},
                                                            {0, BoardState::Runs}}};
    for (const auto& [told, expected] : states) {
        g_vendor.board = told;
        m_watch.TakeCare(nullptr);
        EXPECT_EQ(m_entry.boardState, static_cast<uint64_t>(expected)) << told;
    }
}

TEST_F(StreamWatch, CountersThatCannotBeReadAreToldAndKeepWhatTheyWere) {
    m_watch.TakeCare(nullptr);
    g_vendor.counters = {10, 20, 30, 40};
    for (g_vendor.failing = 0; g_vendor.failing < 4; ++g_vendor.failing) {
        m_watch.TakeCare(nullptr);
        EXPECT_EQ(m_entry.countersState, static_cast<uint64_t>(CountersState::Failed));
        EXPECT_EQ(m_entry.backPressure, 1U);
        EXPECT_EQ(m_entry.errors, 4U);
    }
    g_vendor.failing = -1;
    m_watch.TakeCare(nullptr);
    EXPECT_EQ(m_entry.countersState, static_cast<uint64_t>(CountersState::Read));
    EXPECT_EQ(m_entry.errors, 40U);
}

TEST_F(StreamWatch, ALibraryThatSaysNothingOfItsBoardLeavesItUnknown) {
    ZceWatch::VendorCalls calls = CallsThatAnswer();
    calls.boardState = nullptr;
    m_watch.Opened(calls);
    m_watch.TakeCare(nullptr);
    EXPECT_EQ(m_entry.boardState, static_cast<uint64_t>(BoardState::Unknown));
    EXPECT_EQ(m_entry.countersState, static_cast<uint64_t>(CountersState::Read));
}

TEST_F(StreamWatch, TheLastMessagesTimeIsNotedOnceInAMillisecondAndWithTheClosing) {
    const auto now = [] { return ZceWatch::ClockNs(CLOCK_REALTIME_COARSE); };
    PollAt(begin);
    EXPECT_EQ(m_entry.lastMessageNs, 0);
    const int64_t before = now();
    Message(17, 100);
    PollAt(begin + 5000);
    EXPECT_GE(m_entry.lastMessageNs, before);
    EXPECT_LE(m_entry.lastMessageNs, now());
    m_entry.lastMessageNs = 5;
    Message(17, 100);
    PollAt(begin + 5000 + 999'999);
    EXPECT_EQ(m_entry.lastMessageNs, 5);
    PollAt(begin + 5000 + 1'000'000);
    EXPECT_GE(m_entry.lastMessageNs, before);
    m_entry.lastMessageNs = 5;
    PollAt(begin + 3'000'000);
    EXPECT_EQ(m_entry.lastMessageNs, 5);  // no message since
    Message(2, 100);
    m_watch.Closed(nullptr);
    EXPECT_GE(m_entry.lastMessageNs, before);
}

TEST_F(StreamWatch, AnotherOpeningCountsOnWhileTheVendorsCountersBeginAnew) {
    EXPECT_TRUE(m_watch.IsOpen());
    EXPECT_EQ(m_entry.opening, 1U);
    PollAt(begin);
    StretchOf(2000);
    StretchOf(5);
    m_watch.CountPoll(nullptr, nullptr);  // in the middle of a stretch of two
    Message(17, 100);
    m_watch.Closed(nullptr);
    EXPECT_FALSE(m_watch.IsOpen());
    EXPECT_EQ(m_entry.state, static_cast<uint64_t>(EntryState::Closed));
    EXPECT_EQ(m_entry.polls, 4U);
    EXPECT_EQ(m_entry.packets, 2U);  // read at the closing
    EXPECT_GE(m_entry.closedNs, m_entry.openedNs);
    m_watch.Opened(CallsThatAnswer());
    EXPECT_TRUE(m_watch.IsOpen());
    EXPECT_EQ(m_entry.opening, 2U);
    EXPECT_EQ(m_entry.closedNs, 0);
    EXPECT_EQ(m_entry.packets, 0U);
    EXPECT_EQ(m_entry.countersState, static_cast<uint64_t>(CountersState::NotRead));
    EXPECT_EQ(m_entry.lastPollTicks, 0U);
    // The time in which it was closed is no gap.
    PollAt(begin + 100 * oneSecond);
    EXPECT_EQ(m_entry.gapEverNs, 2000U);
    EXPECT_EQ(m_entry.gapMinuteNs, 0U);
    Message(17, 100);
    EXPECT_EQ(m_entry.messages[1].messages, 2U);
    EXPECT_EQ(m_entry.polls, 5U);
}

// What is read at any time by another thread is whole, and never goes back.
TEST_F(StreamWatch, AReaderSeesWholeNumbersThatOnlyGrow) {
    constexpr uint64_t many = 200'000;
    std::thread writer([this] {
        for (uint64_t k = 0; k < many; ++k) {
            Message(17, 100);
            PollAt(begin + 1 + k * 3);
        }
    });
    uint64_t last = 0;
    while (last < many) {
        const uint64_t seen = m_entry.messages[1].messages.load(std::memory_order_relaxed);
        EXPECT_GE(seen, last);
        last = seen;
    }
    writer.join();
    EXPECT_EQ(m_entry.messages[1].bytes, many * 100);
}

TEST(Ticks, TheRateIsMeasuredToWhatItIs) {
    const ZceWatch::TickSource source = ZceWatch::FindTickSource();
    const uint64_t perSecond = ZceWatch::CTickRate(source).PerSecond();
    const uint64_t ticks = ZceWatch::ReadTicks(source);
    const int64_t ns = ZceWatch::ClockNs(CLOCK_MONOTONIC);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const uint64_t took = ZceWatch::ReadTicks(source) - ticks;
    const auto expected = static_cast<double>(ZceWatch::ClockNs(CLOCK_MONOTONIC) - ns);
    EXPECT_NEAR(static_cast<double>(ZceWatch::TicksToNs(took, perSecond)), expected,
                expected * 0.05);
    EXPECT_EQ(ZceWatch::CTickRate(ZceWatch::TickSource::Monotonic).PerSecond(), oneSecond);
}

TEST(Ticks, AreNanosecondsAndBackWithoutOverflow) {
    EXPECT_EQ(ZceWatch::TicksToNs(2'000'000'000, 2'000'000'000), oneSecond);
    EXPECT_EQ(ZceWatch::TicksToNs(3, 2'000'000'000), 1U);
    EXPECT_EQ(ZceWatch::TicksToNs(uint64_t{86'400} * 5'000'000'000, 5'000'000'000),
              86'400 * oneSecond);
    EXPECT_EQ(ZceWatch::NsToTicks(2048, 2'000'000'000), 4096U);
    EXPECT_EQ(ZceWatch::NsToTicks(3600 * oneSecond, 5'000'000'000), uint64_t{3600} * 5'000'000'000);
}

}  // namespace
}  // namespace velatest
