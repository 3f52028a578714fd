// What a subscriber writes and counts.

#include <gtest/gtest.h>

#include <span>
#include <string>

#include "captureBytes.h"
#include "relay-tool/Received.h"
#include "tempDir.h"
#include "wholeFile.h"

namespace ZceRelay {
namespace {

using velatest::CaptureBytes;
using velatest::Little;
using velatest::Prefix;

constexpr int64_t SECOND = 1'000'000'000;

Incoming Message(uint16_t channel, uint32_t type, uint64_t session, uint64_t number, int64_t timeNs,
                 const std::string& body) {
    Incoming incoming;
    incoming.subject = {Kind::MarketData, 0, channel, type};
    incoming.sequence = {session, number, true};
    incoming.timeNs = timeNs;
    incoming.body = {reinterpret_cast<const unsigned char*>(body.data()), body.size()};
    return incoming;
}

Incoming Mark(uint16_t channel, uint64_t session, uint64_t number) {
    Incoming incoming;
    incoming.subject = {Kind::Mark, 0, channel, 0};
    incoming.sequence = {session, number, true};
    return incoming;
}

// The board's head: type, channel, length of the body, zero.
std::string Head(uint32_t type, uint16_t channel, size_t size) {
    return Little(type, 4) + Little(channel, 2) + Little(size, 2) + Little(0, 4);
}

TEST(RelayReceived, IsACaptureWithWhatIsMissingInIt) {
    const velatest::TempDir folder;
    CReceived received;
    std::string error;
    ASSERT_TRUE(received.OpenCapture(folder / "day.pcap", error)) << error;
    Incoming list;
    list.subject = {Kind::Instruments, 0, 0, 0};
    received.Take(list);
    received.Take(Message(3, 17, 9, 1, 7 * SECOND + 5, "one"));
    received.Take(Message(3, 20, 9, 4, 8 * SECOND, "four!"));
    received.Take(Message(3, 20, 9, 4, 8 * SECOND, "again"));
    received.Take(Message(0, 19, 8, 2, 9 * SECOND, "late"));
    received.Take(Mark(3, 9, 6));
    received.Take(Message(3, 18, 10, 1, 10 * SECOND, "anew"));
    ASSERT_TRUE(received.Flush(error)) << error;
    CaptureBytes expected;
    expected.Add(7, 5, Prefix(1, 3, 1) + Head(17, 3, 3) + "one");
    expected.Add(8, 0, Prefix(2, 3, 2));
    expected.Add(8, 0, Prefix(1, 3, 4) + Head(20, 3, 5) + "four!");
    expected.Add(9, 0, Prefix(1, 0, 2) + Head(19, 0, 4) + "late");
    expected.Add(9, 0, Prefix(2, 3, 2));
    expected.Add(10, 0, Prefix(1, 3, 1, 0, 2) + Head(18, 3, 4) + "anew");
    EXPECT_EQ(velatest::WholeFile(folder / "day.pcap"), expected.Bytes());
    EXPECT_EQ(received.StatusLine(), "zce-relay status received=4 lost=4 duplicates=1");
    EXPECT_EQ(received.Lines(),
              "zce-relay subscribe bus=0 channel=0 received=1 lost=0 duplicates=0 first=2 last=2 "
              "sessions=1 other-publisher=0\n"
              "zce-relay subscribe bus=0 channel=3 received=3 lost=4 duplicates=1 first=1 last=1 "
              "sessions=2 other-publisher=0\n");
}

TEST(RelayReceived, ACaptureThatCannotBeMadeIsRefused) {
    CReceived received;
    std::string error;
    EXPECT_FALSE(received.OpenCapture("/nowhere/day.pcap", error));
    EXPECT_NE(error, "");
}

}  // namespace
}  // namespace ZceRelay
