// zce-capture export --csv: which messages of which files become rows, and how it ends.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zstd.h>

#include <cstdlib>
#include <ctime>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "boardMessage.h"
#include "capturetool/CsvRow.h"
#include "capturetool/Export.h"
#include "tempDir.h"
#include "wholeFile.h"

namespace velatest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using ZceCaptureTool::ExportOptions;

class Export : public testing::Test {
  protected:
    Export() {
        setenv("TZ", "UTC-8", 1);
        tzset();
        m_options.file = "day.pcap";
        m_options.output = "day.csv";
    }

    // Status, what was said, and the packets' numbers of the rows.
    int Run() {
        testing::internal::CaptureStderr();
        const int status = RunExport(m_options);
        m_said = testing::internal::GetCapturedStderr();
        std::istringstream text(WholeFile(m_options.output));
        std::string line;
        m_packets.clear();
        m_rows.clear();
        EXPECT_TRUE(std::getline(text, line)) << "no header";
        EXPECT_EQ(line + "\n", ZceCaptureTool::CCsvRows::Header());
        while (std::getline(text, line)) {
            m_packets.push_back(std::stoull(line));
            m_rows.push_back(line);
        }
        return status;
    }

    // Five messages, a second and more apart, and a note of three lost ones.
    static CaptureBytes Day() {
        BoardMessage one;
        BoardMessage five;
        five.type = 19;
        five.channel = 5;
        five.levels = std::vector<BoardLevel>(5);
        return CaptureBytes()
            .Add(RECORDED_SECOND, 0, Prefix(1, 0, 1) + OtherMessage(2, std::string(20, '\1')))
            .Add(RECORDED_SECOND, 500'000'000, Packet(one, 1))
            .Add(RECORDED_SECOND + 1, 0, Prefix(2, 3, 3))
            .Add(RECORDED_SECOND + 1, 0, Packet(five, 1))
            .Add(RECORDED_SECOND + 60, 1, Packet(one, 5))
            .Add(RECORDED_SECOND + 86400, 0, Packet(one, 6));
    }

    static std::string Packed(const std::string& bytes) {
        std::string packed(ZSTD_compressBound(bytes.size()), '\0');
        packed.resize(ZSTD_compress(packed.data(), packed.size(), bytes.data(), bytes.size(), 3));
        return packed;
    }

    TempDir m_dir{TempDir::Enter::yes};
    ExportOptions m_options;
    std::string m_said;
    std::vector<uint64_t> m_packets;
    std::vector<std::string> m_rows;
};

TEST_F(Export, EveryMessageIsARow) {
    Day().Write("day.pcap");
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(m_packets, ElementsAre(1, 2, 4, 5, 6));
    EXPECT_EQ(m_said, "");
    // The lost ones stand before the message that the note stands before.
    EXPECT_THAT(m_rows[2],
                testing::StartsWith(
                    "4,1795135505000000000,2026-11-20T08:45:05.000000000+08:00,0,5,1,1,3,19,"));
    EXPECT_THAT(m_rows[3],
                testing::StartsWith(
                    "5,1795135564000000001,2026-11-20T08:46:04.000000001+08:00,0,3,1,5,0,17,"));
}

TEST_F(Export, OfChannelsAndTypes) {
    Day().Write("day.pcap");
    m_options.channels = {3};
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(m_packets, ElementsAre(2, 5, 6));
    m_options.channels = {0, 5};
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(m_packets, ElementsAre(1, 4));
    m_options.types = {2, 17};
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(m_packets, ElementsAre(1));
    m_options.channels = {};
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(m_packets, ElementsAre(1, 2, 5, 6));
    m_options.types = {18};
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(m_packets, IsEmpty());
}

// The first moment counts, the last does not; the day is that of the first message.
TEST_F(Export, OfATime) {
    Day().Write("day.pcap");
    const struct {
        const char* from;
        const char* to;
        std::vector<uint64_t> packets;
    } cases[] = {{"08:45:04.5", nullptr, {2, 4, 5, 6}},
                 {"08:45:04.500000001", nullptr, {4, 5, 6}},
                 {nullptr, "08:45:05", {1, 2}},
                 {"08:45:05", "08:46:04.000000002", {4, 5}},
                 {"08:45:05", "08:46:04.000000001", {4}},
                 {"08:46", nullptr, {5, 6}},
                 {"2026-11-21T00:00", nullptr, {6}},
                 {nullptr, "2026-11-21 08:45:04", {1, 2, 4, 5}},
                 {"0000-01-01T00:00", "9999-12-31T23:59:59.999999999", {1, 2, 4, 5, 6}},
                 {"9999-12-31T00:00", nullptr, {}}};
    for (const auto& one : cases) {
        m_options.from = m_options.to = {};
        if (one.from != nullptr) {
            m_options.from = ZceCaptureTool::ReadTime(one.from);
            ASSERT_TRUE(m_options.from) << one.from;
        }
        if (one.to != nullptr) {
            m_options.to = ZceCaptureTool::ReadTime(one.to);
            ASSERT_TRUE(m_options.to) << one.to;
        }
        EXPECT_EQ(Run(), 0);
        EXPECT_EQ(m_packets, one.packets)
            << (one.from ? one.from : "") << " " << (one.to ? one.to : "");
    }
    for (const char* text : {"", "8:45", "08:45.5", "08:45:04.", "08:45:04.1234567890",
                             "08:45:04.x", "2026-02-30T08:45", "2026-11-20", "08:60",
                             "2026-11-20T08:45.5", "24:00", "08:45:04.-1"}) {
        EXPECT_FALSE(ZceCaptureTool::ReadTime(text)) << text;
    }
}

TEST_F(Export, WhatIsBeforeACutIsWritten) {
    const std::string whole = Day().Bytes();
    PutFile("day.pcap", whole.substr(0, whole.size() - 1));
    EXPECT_EQ(Run(), 1);
    EXPECT_THAT(m_packets, ElementsAre(1, 2, 4, 5));
    EXPECT_EQ(m_said,
              "zce-capture: day.pcap: packet 6: truncated dump file; tried to read 164 captured "
              "bytes, only got 163: the rows before it are written\n");
    CaptureBytes bad = Day();
    bad.Add(RECORDED_SECOND, 0, Prefix(1, 3, 7, 0, 1, 9) + "x").Write("day.pcap");
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(m_said,
              "zce-capture: day.pcap: packet 7: version 9, expected 1: the rows before it are "
              "written\n");
    EXPECT_THAT(m_packets, ElementsAre(1, 2, 4, 5, 6));
}

TEST_F(Export, CapturesOfAnotherByteOrderOfMicrosecondsAndCompressed) {
    Day().Write("day.pcap");
    ASSERT_EQ(Run(), 0);
    const std::vector<std::string> rows = m_rows;
    // The same in big-endian: the heads of file and packets, not the packets.
    std::string other =
        Big(0xa1b23c4d, 4) + Big(2, 2) + Big(4, 2) + Big(0, 8) + Big(262144, 4) + Big(147, 4);
    const std::string day = Day().Bytes();
    for (std::size_t at = 24; at < day.size();) {
        const std::size_t size = static_cast<unsigned char>(day[at + 8]) +
                                 256U * static_cast<unsigned char>(day[at + 9]);
        for (int k = 0; k < 4; ++k) {
            const std::string word = day.substr(at + 4 * static_cast<std::size_t>(k), 4);
            other += std::string(word.rbegin(), word.rend());
        }
        other += day.substr(at + 16, size);
        at += 16 + size;
    }
    PutFile("day.pcap", other);
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(m_rows, rows);

    // Two frames, the first up to the third packet.
    const std::size_t half = 24 + 2 * 32 + 164 + 16 + 32;
    const std::string packed = Packed(day.substr(0, half)) + Packed(day.substr(half));
    PutFile("day.pcap", packed);
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(m_rows, rows);
    PutFile("day.pcap", packed.substr(0, packed.size() - 1));
    EXPECT_EQ(Run(), 1);
    EXPECT_THAT(m_packets, ElementsAre(1, 2));
    EXPECT_THAT(m_said, testing::HasSubstr("the rows before it are written"));

    CaptureBytes(CaptureBytes::MICRO)
        .Add(RECORDED_SECOND, 123456, Packet(BoardMessage(), 1))
        .Write("day.pcap");
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(m_rows[0], testing::StartsWith("1,1795135504123456000,"));
}

TEST_F(Export, WhatCannotBeDone) {
    const std::string header(ZceCaptureTool::CCsvRows::Header());
    const auto fails = [this](const std::string& file, const std::string& output) {
        m_options.file = file;
        m_options.output = output;
        testing::internal::CaptureStderr();
        const int status = RunExport(m_options);
        EXPECT_EQ(status, 2) << file << " " << output;
        return testing::internal::GetCapturedStderr();
    };
    PutFile("empty.pcap", "");
    PutFile("text.pcap", "no capture, but long enough to be one");
    CaptureBytes(CaptureBytes::NANO, 1).Write("ether.pcap");
    const std::string day = Day().Write("day.pcap");
    PutFile("other.csv", "kept");
    EXPECT_EQ(fails("none.pcap", "other.csv"),
              "zce-capture: none.pcap: No such file or directory\n");
    EXPECT_EQ(fails(".", "other.csv"), "zce-capture: .: Is a directory\n");
    EXPECT_EQ(fails("/dev/null", "other.csv"), "zce-capture: /dev/null: is no regular file\n");
    EXPECT_EQ(fails("empty.pcap", "other.csv"),
              "zce-capture: empty.pcap: empty: there is nothing in it\n");
    EXPECT_EQ(fails("text.pcap", "other.csv"),
              "zce-capture: text.pcap: not a capture: unknown file format\n");
    EXPECT_EQ(fails("ether.pcap", "other.csv"),
              "zce-capture: ether.pcap: link type EN10MB (1), expected USER0 (147)\n");
    EXPECT_EQ(WholeFile("other.csv"), "kept");
    EXPECT_EQ(fails("day.pcap", "./day.pcap"),
              "zce-capture: ./day.pcap: it is the capture itself: give another file\n");
    EXPECT_EQ(WholeFile("day.pcap"), Day().Bytes());
    EXPECT_EQ(fails("day.pcap", "none/day.csv"),
              "zce-capture: none/day.csv: No such file or directory\n");
    EXPECT_EQ(fails("day.pcap", "/dev/full"), "zce-capture: /dev/full: No space left on device\n");
}

// Many messages, of every kind: the rows are those of the messages one by one.
TEST_F(Export, ManyMessages) {
    std::mt19937 random(7);
    CaptureBytes capture;
    constexpr uint64_t count = 6000;  // some MiB of rows: several pieces
    for (uint64_t k = 1; k <= count; ++k) {
        BoardMessage message;
        message.seq = k;
        capture.Add(RECORDED_SECOND + k, k,
                    random() % 3 == 0
                        ? Prefix(1, 3, k) + OtherMessage(17, std::string(random() % 900, 'x'))
                        : Packet(message, k));
    }
    capture.Write("day.pcap");
    EXPECT_EQ(Run(), 0);
    ASSERT_EQ(m_packets.size(), count);
    for (uint64_t k = 1; k <= count; ++k) {
        ASSERT_EQ(m_packets[k - 1], k);
        EXPECT_THAT(m_rows[k - 1], testing::HasSubstr(",0,3,1," + std::to_string(k) + ",0,17,"));
    }
}

}  // namespace
}  // namespace velatest
