// zce-capture diff: two captures, message by message.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "boardMessage.h"
#include "capturetool/Diff.h"
#include "tempDir.h"
#include "wholeFile.h"

namespace velatest {
namespace {

using testing::HasSubstr;

BoardMessage On(uint16_t channel, uint64_t seq) {
    BoardMessage message;
    message.channel = channel;
    message.seq = seq;
    return message;
}

class Diff : public testing::Test {
  protected:
    Diff() {
        setenv("TZ", "UTC-8", 1);
        tzset();
    }
    // Of a.pcap and b.pcap: the status, what was printed and what was said.
    int Compare(bool times = false) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const int status = ZceCaptureTool::RunDiff({"a.pcap", "b.pcap", times});
        m_text = testing::internal::GetCapturedStdout();
        m_said = testing::internal::GetCapturedStderr();
        return status;
    }
    TempDir m_dir{TempDir::Enter::yes};
    std::string m_text;
    std::string m_said;
};

// The same messages at other times, from other openings, the channels in another order.
TEST_F(Diff, TwoRecordingsOfTheSame) {
    CaptureBytes()
        .Add(RECORDED_SECOND, 0, Packet(On(3, 1), 1))
        .Add(RECORDED_SECOND, 1, Packet(On(5, 1), 1))
        .Add(RECORDED_SECOND, 2, Packet(On(3, 2), 2))
        .Write("a.pcap");
    CaptureBytes()
        .Add(RECORDED_SECOND + 9, 0, Packet(On(5, 1), 7, 4))
        .Add(RECORDED_SECOND + 9, 1, Packet(On(3, 1), 8, 2))
        .Add(RECORDED_SECOND + 10, 0, Prefix(2, 3, 5))
        .Add(RECORDED_SECOND + 10, 1, Packet(On(3, 2), 1, 3))
        .Write("b.pcap");
    EXPECT_EQ(Compare(), 0);
    EXPECT_EQ(m_text,
              "  bus channel            A            B\n"
              "    0       3            2            2 the same\n"
              "    0       5            1            1 the same\n");
    EXPECT_EQ(m_said, "");
    EXPECT_EQ(Compare(true), 1);
    EXPECT_EQ(
        m_text,
        "  bus channel            A            B\n"
        "    0       3            2            2 DIFFERENT\n"
        "    0       5            1            1 DIFFERENT\n"
        "bus 0 channel 3: message 1 differs\n"
        "  A: a.pcap: packet 1, 2026-11-20 08:45:04.000000000, opening 1 number 1, type 17, 148 "
        "bytes\n"
        "  B: b.pcap: packet 2, 2026-11-20 08:45:13.000000001, opening 2 number 8, type 17, 148 "
        "bytes\n"
        "bus 0 channel 5: message 1 differs\n"
        "  A: a.pcap: packet 2, 2026-11-20 08:45:04.000000001, opening 1 number 1, type 17, 148 "
        "bytes\n"
        "  B: b.pcap: packet 1, 2026-11-20 08:45:13.000000000, opening 4 number 7, type 17, 148 "
        "bytes\n");
    PutFile("b.pcap", WholeFile("a.pcap"));
    EXPECT_EQ(Compare(true), 0);
}

TEST_F(Diff, TheFirstThatDiffersOfEachChannel) {
    BoardMessage other = On(3, 2);
    other.name = "SR,305";
    other.levels[0].bid = -1;
    other.lastVolume = 13;
    CaptureBytes()
        .Add(RECORDED_SECOND, 0, Packet(On(3, 1), 1))
        .Add(RECORDED_SECOND + 2, 0, Packet(On(3, 2), 2))
        .Add(RECORDED_SECOND + 3, 0, Packet(On(3, 3), 3))
        .Add(RECORDED_SECOND + 4, 0, Prefix(1, 0, 1) + OtherMessage(2, "abcd"))
        .Add(RECORDED_SECOND + 5, 0, Packet(On(7, 1), 1))
        .Write("a.pcap");
    CaptureBytes()
        .Add(RECORDED_SECOND, 0, Packet(On(3, 1), 1))
        .Add(RECORDED_SECOND + 1, 0, Prefix(1, 0, 1) + OtherMessage(2, "abxdy"))
        .Add(RECORDED_SECOND + 2, 0, Packet(other, 2))
        .Add(RECORDED_SECOND + 3, 0, Packet(On(3, 4), 3))
        .Write("b.pcap");
    EXPECT_EQ(Compare(), 1);
    EXPECT_EQ(
        m_text,
        "  bus channel            A            B\n"
        "    0       0            1            1 DIFFERENT\n"
        "    0       3            3            3 DIFFERENT\n"
        "    0       7            1            0 DIFFERENT\n"
        "bus 0 channel 0: message 1 differs\n"
        "  A: a.pcap: packet 4, 2026-11-20 08:45:08.000000000, opening 1 number 1, type 2, 16 "
        "bytes\n"
        "  B: b.pcap: packet 2, 2026-11-20 08:45:05.000000000, opening 1 number 1, type 2, 17 "
        "bytes\n"
        "    byte 14: 0x63 | 0x78\n"
        "bus 0 channel 3: message 2 differs\n"
        "  A: a.pcap: packet 2, 2026-11-20 08:45:06.000000000, opening 1 number 2, type 17, 148 "
        "bytes\n"
        "  B: b.pcap: packet 3, 2026-11-20 08:45:06.000000000, opening 1 number 2, type 17, 148 "
        "bytes\n"
        "    name: SR301 | \"SR,305\"\n"
        "    last_volume: 12 | 13\n"
        "    bid1: 5612 | -0.0001\n"
        "bus 0 channel 7: message 1 differs\n"
        "  A: a.pcap: packet 5, 2026-11-20 08:45:09.000000000, opening 1 number 1, type 17, 148 "
        "bytes\n"
        "  B: b.pcap: there is none\n");
}

TEST_F(Diff, CutFilesAndThoseThatCannotBeRead) {
    CaptureBytes capture;
    capture.Add(RECORDED_SECOND, 0, Packet(On(3, 1), 1)).Write("a.pcap");
    PutFile("b.pcap", capture.Bytes() + "x");
    EXPECT_EQ(Compare(), 1);
    EXPECT_THAT(m_text, HasSubstr("1            1 the same\n"));
    EXPECT_EQ(m_said,
              "zce-capture: b.pcap: packet 2: truncated dump file; tried to read 16 header "
              "bytes, only got 1: what is before it is compared\n");
    PutFile("b.pcap", "");
    EXPECT_EQ(Compare(), 2);
    EXPECT_EQ(m_said, "zce-capture: b.pcap: empty: there is nothing in it\n");
    EXPECT_EQ(m_text, "");
}

// Each message's length counts: two that were put together are others.
TEST_F(Diff, WhereAMessageEndsCounts) {
    CaptureBytes()
        .Add(RECORDED_SECOND, 0, Prefix(1, 3, 1) + "abcd")
        .Add(RECORDED_SECOND, 0, Prefix(1, 3, 2) + "ef")
        .Write("a.pcap");
    CaptureBytes()
        .Add(RECORDED_SECOND, 0, Prefix(1, 3, 1) + "abc")
        .Add(RECORDED_SECOND, 0, Prefix(1, 3, 2) + "def")
        .Write("b.pcap");
    EXPECT_EQ(Compare(), 1);
    EXPECT_THAT(m_text, HasSubstr("message 1 differs"));
}

// One changed message in a random place is found.
TEST_F(Diff, OneOfMany) {
    std::mt19937 random(5);
    for (int round = 0; round < 5; ++round) {
        std::vector<std::pair<uint16_t, std::string>> packets;
        for (uint64_t k = 1; k <= 500; ++k) {
            const auto channel = static_cast<uint16_t>(random() % 4);
            packets.emplace_back(channel, Packet(On(channel, k), k));
        }
        const std::size_t changed = random() % packets.size();
        CaptureBytes a;
        CaptureBytes b;
        std::size_t index = 0;
        for (std::size_t k = 0; k < packets.size(); ++k) {
            index += k <= changed && packets[k].first == packets[changed].first ? 1 : 0;
            a.Add(RECORDED_SECOND, k, packets[k].second);
            packets[k].second[16 + 12 + 50] ^= k == changed ? 1 : 0;
            b.Add(RECORDED_SECOND, k, packets[k].second);
        }
        a.Write("a.pcap");
        b.Write("b.pcap");
        EXPECT_EQ(Compare(), 1);
        EXPECT_THAT(m_text, HasSubstr("bus 0 channel " + std::to_string(packets[changed].first) +
                                      ": message " + std::to_string(index) +
                                      " differs\n  A: a.pcap: "
                                      "packet " +
                                      std::to_string(changed + 1) + ","));
        EXPECT_THAT(m_text, HasSubstr("    last: 5612.5 | "));
        EXPECT_EQ(std::count(m_text.begin(), m_text.end(), '\n'), 9);
    }
}

}  // namespace
}  // namespace velatest
