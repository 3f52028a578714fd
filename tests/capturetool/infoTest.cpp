// zce-capture info: what is counted, and how it is said.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "boardMessage.h"
#include "capturetool/Info.h"
#include "tempDir.h"
#include "wholeFile.h"

namespace velatest {
namespace {

using testing::HasSubstr;
using testing::Not;
using ZceCaptureTool::CScan;
using ZceCaptureTool::Ending;

BoardMessage Sent(uint64_t seq) {
    BoardMessage message;
    message.seq = seq;
    return message;
}

class Info : public testing::Test {
  protected:
    Info() {
        setenv("TZ", "UTC-8", 1);
        tzset();
    }
    // What the capture holds, with bursts of 10 us.
    static CScan Scan(const CaptureBytes& capture) {
        capture.Write("day.pcap");
        CScan scan(10'000);
        EXPECT_TRUE(scan.Read("day.pcap")) << scan.Error();
        return scan;
    }
    TempDir m_dir{TempDir::Enter::yes};
};

// On channel 3: 1, then numbers 2 and 3 lost by the recorder (sequence 2 and 3), then the board
// leaves out sequence 5 and 6. Channel 0 has an instrument map.
CaptureBytes Day() {
    return CaptureBytes()
        .Add(RECORDED_SECOND, 1, Prefix(1, 0, 1, 65535) + OtherMessage(2, std::string(20, '\1')))
        .Add(RECORDED_SECOND, 5000, Packet(Sent(1), 1))
        .Add(RECORDED_SECOND + 1, 0, Prefix(2, 3, 2))
        .Add(RECORDED_SECOND + 1, 0, Packet(Sent(4), 4))
        .Add(RECORDED_SECOND + 2, 0, Packet(Sent(7), 5));
}

TEST_F(Info, SaysWhatIsInAFile) {
    EXPECT_EQ(
        InfoText(Scan(Day())),
        "day.pcap\n"
        "  file      660 bytes, 5 packets, read to its end\n"
        "  messages  4, 476 bytes\n"
        "  first     2026-11-20 08:45:04.000000001\n"
        "  last      2026-11-20 08:45:06.000000000\n"
        "  duration  1.999999999 s\n"
        "  rate      2.0 messages a second, mean\n"
        "  peak      2 messages in 1 s, to 2026-11-20 08:45:04.000005000\n"
        "  peak      2 messages in 100 ms, to 2026-11-20 08:45:04.000005000\n"
        "  peak      2 messages in 1 ms, to 2026-11-20 08:45:04.000005000\n"
        "  bursts    messages less than 10 us behind the one before: 1 of 2 or more, 0 of 10 "
        "or more, 0 of 100 or more, 0 of 1000 or more, 0 of 10000 or more\n"
        "  largest   2 messages in 0.000004999 s, from 2026-11-20 08:45:04.000000001\n"
        "  bodies    the software board's\n"
        "  lost      2 messages by the recorder, as its notes say\n"
        "  missing   2 messages that the board sent were never polled, in 1 places\n"
        "    bus channel opening     messages          bytes    first no.     last no.   left "
        "out    missing\n"
        "      0       3       1            3            444            1            5          "
        "2          2\n"
        "                type 17            3            444 L1 single-leg\n"
        "      ?       0       1            1             32            1            1          "
        "0          -\n"
        "                 type 2            1             32 instrument map\n"
        "  gap       packet 4, 2026-11-20 08:45:05.000000000: bus 0 channel 3 opening 1: 2 "
        "left out, 4 follows 1\n"
        "  gap       packet 5, 2026-11-20 08:45:06.000000000: bus 0 channel 3 opening 1: 2 "
        "sequence numbers missing, 7 follows 4\n");
}

TEST_F(Info, TheSameAsJson) {
    const auto json = nlohmann::json::parse(ZceCaptureTool::InfoJson({Scan(Day())}));
    const auto& file = json["files"][0];
    EXPECT_EQ(file["file"], "day.pcap");
    EXPECT_EQ(file["bytes"], 660);
    EXPECT_EQ(file["packets"], 5);
    EXPECT_EQ(file["end"], "whole");
    EXPECT_EQ(file["error"], "");
    EXPECT_EQ(file["messages"], 4);
    EXPECT_EQ(file["message_bytes"], 476);
    EXPECT_EQ(file["lost"], 2);
    EXPECT_EQ(file["first"]["ns"], 1795135504000000001);
    EXPECT_EQ(file["last"]["local"], "2026-11-20T08:45:06.000000000+08:00");
    EXPECT_EQ(file["duration_ns"], 1999999999);
    EXPECT_NEAR(double(file["rate"]["mean_per_s"]), 2, 1e-6);
    EXPECT_EQ(file["rate"]["peaks"][0]["messages"], 2);
    EXPECT_EQ(file["rate"]["peaks"][2]["window_ns"], 1'000'000);
    EXPECT_EQ(file["bursts"]["gap_ns"], 10'000);
    EXPECT_EQ(file["bursts"]["counts"][0]["bursts"], 1);
    EXPECT_EQ(file["bursts"]["largest"]["duration_ns"], 4999);
    EXPECT_EQ(file["bodies"]["market"], 3);
    EXPECT_EQ(file["bodies"]["software_board"], 3);
    const auto& stream = file["streams"][0];
    EXPECT_EQ(stream["channel"], 3);
    EXPECT_EQ(stream["first_number"], 1);
    EXPECT_EQ(stream["last_number"], 5);
    EXPECT_EQ(stream["left_out"]["messages"], 2);
    EXPECT_EQ(stream["board_sequence"]["first"], 1);
    EXPECT_EQ(stream["board_sequence"]["last"], 7);
    EXPECT_EQ(stream["board_sequence"]["missing"]["messages"], 2);
    EXPECT_EQ(stream["board_sequence"]["missing"]["places"], 1);
    EXPECT_EQ(stream["types"][0]["type"], 17);
    EXPECT_EQ(stream["types"][0]["bytes"], 444);
    EXPECT_TRUE(file["streams"][1]["bus"].is_null());
    EXPECT_TRUE(file["streams"][1]["board_sequence"].is_null());
    EXPECT_EQ(file["gap_count"], 2);
    EXPECT_EQ(file["gaps"][0]["numbering"], "recorder");
    EXPECT_EQ(file["gaps"][1]["numbering"], "board");
    EXPECT_EQ(file["gaps"][1]["packet"], 5);
    EXPECT_EQ(file["gaps"][1]["missing"], 2);
}

TEST_F(Info, BodiesThatAreNotTheSoftwareBoards) {
    const std::string other = OtherMessage(17, std::string(136, '\1'));
    CaptureBytes capture;
    capture.Add(RECORDED_SECOND, 0, Prefix(1, 3, 1) + other)
        .Add(RECORDED_SECOND, 1, Prefix(1, 3, 2) + other);
    const std::string text = InfoText(Scan(capture));
    EXPECT_THAT(text,
                HasSubstr("  bodies    unknown: not the software board's; what the board sent "
                          "and was not polled cannot be told\n"));
    EXPECT_THAT(text, Not(HasSubstr("never polled")));
    EXPECT_THAT(text, Not(HasSubstr("gap ")));
    capture.Add(RECORDED_SECOND, 2, Packet(Sent(9), 3))
        .Add(RECORDED_SECOND, 3, Packet(Sent(12), 4));
    EXPECT_THAT(InfoText(Scan(capture)),
                HasSubstr("  bodies    the software board's in 2 of 4 messages, else unknown\n"));
    EXPECT_THAT(InfoText(Scan(capture)), HasSubstr("2 sequence numbers missing, 12 follows 9"));
    EXPECT_THAT(InfoText(Scan(CaptureBytes().Add(RECORDED_SECOND, 0,
                                                 Prefix(1, 0, 1) + OtherMessage(2, "x")))),
                HasSubstr("  bodies    none of types 17 to 20\n"));
}

// A file that another program has taken packets out of, or put together in another order.
TEST_F(Info, PacketsTakenOutAndPutInTwice) {
    CaptureBytes capture;
    capture.Add(RECORDED_SECOND, 0, Packet(Sent(1), 1))
        .Add(RECORDED_SECOND, 1, Packet(Sent(5), 5))
        .Add(RECORDED_SECOND, 2, Packet(Sent(5), 5))
        .Add(RECORDED_SECOND, 3, Packet(Sent(2), 2));
    const std::string text = InfoText(Scan(capture));
    EXPECT_THAT(text, HasSubstr("  taken out 3 messages are missing without a note: packets were "
                                "taken out of the file\n"));
    EXPECT_THAT(text, HasSubstr("  order     2 messages have a number that is not above the one "
                                "before: packets are there twice or in another order\n"));
    EXPECT_THAT(text, HasSubstr("  missing   0 messages that the board sent were never polled"));
}

TEST_F(Info, CutFilesAndThoseWithoutAMessage) {
    const std::string whole = Day().Bytes();
    PutFile("day.pcap", whole.substr(0, whole.size() - 1));
    CScan cut(10'000);
    ASSERT_TRUE(cut.Read("day.pcap"));
    EXPECT_EQ(cut.End(), Ending::Cut);
    EXPECT_THAT(InfoText(cut),
                HasSubstr("  file      659 bytes, 4 packets, NOT read to its end\n"
                          "  ends      cut: day.pcap: packet 5: truncated dump file; tried to read "
                          "164 captured bytes, only got 163\n"
                          "  messages  3, 328 bytes\n"));
    EXPECT_EQ(nlohmann::json::parse(ZceCaptureTool::InfoJson({cut}))["files"][0]["end"], "cut");
    EXPECT_EQ(InfoText(Scan(CaptureBytes())),
              "day.pcap\n"
              "  file      24 bytes, 0 packets, read to its end\n"
              "  messages  0, 0 bytes\n");
    EXPECT_EQ(InfoText(Scan(CaptureBytes().Add(RECORDED_SECOND, 0, Prefix(2, 3, 12)))),
              "day.pcap\n"
              "  file      56 bytes, 1 packets, read to its end\n"
              "  messages  0, 0 bytes\n"
              "  lost      12 messages by the recorder, as its notes say\n");
}

TEST_F(Info, ManyGapsTypesAndStreamsAreBounded) {
    CaptureBytes capture;
    for (uint64_t k = 1; k <= 100; ++k) {
        capture.Add(RECORDED_SECOND, k,
                    Prefix(1, 3, 2 * k) + OtherMessage(static_cast<uint32_t>(1000 + k), "x"));
    }
    const CScan scan = Scan(capture);
    EXPECT_EQ(scan.Gaps().size(), 20U);
    EXPECT_EQ(scan.GapCount(), 99U);
    const auto& stream = scan.Streams().begin()->second;
    EXPECT_EQ(stream.types.size(), 64U);
    EXPECT_EQ(stream.otherTypes.messages, 36U);
    EXPECT_THAT(InfoText(scan), HasSubstr("  gaps      79 more\n"));
    EXPECT_THAT(InfoText(scan), HasSubstr("            other types           36            468\n"));

    std::string bytes = CaptureBytes().Bytes();
    for (unsigned int k = 0; k <= 65536; ++k) {
        bytes += Little(RECORDED_SECOND, 4) + Little(k, 4) + Little(17, 4) + Little(17, 4) +
                 Prefix(1, k >> 16, 1, 0, k & 0xFFFF) + "x";
    }
    PutFile("many.pcap", bytes);
    CScan many(10'000);
    EXPECT_FALSE(many.Read("many.pcap"));
    EXPECT_EQ(
        many.Error(),
        "many.pcap: packet 65537: more than 65536 openings of streams: no recorder wrote this");
}

// A random file against a count of its own.
TEST_F(Info, CountsAreThoseOfTheMessages) {
    std::mt19937 random(11);
    CaptureBytes capture;
    using Id = std::tuple<unsigned int, unsigned int, unsigned int>;
    struct Told {
        uint64_t messages = 0, bytes = 0, number = 0, leftOut = 0, seq = 0, missing = 0;
        std::map<uint32_t, uint64_t> types;
    };
    std::map<Id, Told> told;
    uint64_t lost = 0;
    for (uint64_t k = 0; k < 5000; ++k) {
        const Id id{random() % 2, random() % 4, 1 + random() % 2};
        const auto& [bus, channel, opening] = id;
        Told& one = told[id];
        if (random() % 50 == 0 && one.messages != 0) {  // the recorder loses some
            const uint64_t some = 1 + random() % 5;
            capture.Add(RECORDED_SECOND, k, Prefix(2, channel, some, bus, opening));
            one.number += some;
            one.seq += some;
            one.leftOut += some;
            lost += some;
        } else if (random() % 40 == 0 && one.messages != 0) {  // the board drops some
            const uint64_t some = 1 + random() % 9;
            one.seq += some;
            one.missing += some;
        }
        BoardMessage message = Sent(++one.seq);
        message.channel = static_cast<uint16_t>(channel);
        message.type = 17 + random() % 2;
        const std::string bytes = message.Bytes();
        capture.Add(RECORDED_SECOND, k, Prefix(1, channel, ++one.number, bus, opening) + bytes);
        ++one.messages;
        one.bytes += bytes.size();
        ++one.types[message.type];
    }
    const CScan scan = Scan(capture);
    EXPECT_EQ(scan.LostTold(), lost);
    ASSERT_EQ(scan.Streams().size(), told.size());
    for (const auto& [id, stream] : scan.Streams()) {
        Told& one = told[{id.bus, id.channel, id.opening}];
        EXPECT_EQ(stream.all.messages, one.messages);
        EXPECT_EQ(stream.all.bytes, one.bytes);
        EXPECT_EQ(stream.lastNumber, one.number);
        EXPECT_EQ(stream.recorder.numbers, one.leftOut);
        EXPECT_EQ(stream.board.numbers, one.missing);
        for (const auto& [type, count] : stream.types) {
            EXPECT_EQ(count.messages, one.types[type]);
        }
    }
}

TEST_F(Info, TheStatusIsThatOfTheWorstFile) {
    Day().Write("whole.pcap");
    PutFile("cut.pcap", Day().Bytes().substr(0, 100));
    const auto run = [](const std::vector<std::string>& files, bool json = false) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const int status = ZceCaptureTool::RunInfo({files, 10, json});
        return std::make_tuple(status, testing::internal::GetCapturedStdout(),
                               testing::internal::GetCapturedStderr());
    };
    EXPECT_EQ(std::get<0>(run({"whole.pcap"})), 0);
    EXPECT_EQ(std::get<0>(run({"cut.pcap", "whole.pcap"})), 1);
    const auto [status, out, err] = run({"whole.pcap", "none.pcap", "cut.pcap"});
    EXPECT_EQ(status, 2);
    EXPECT_EQ(err, "zce-capture: none.pcap: No such file or directory\n");
    EXPECT_THAT(out, testing::StartsWith("whole.pcap\n"));
    EXPECT_THAT(out, HasSubstr("\n\ncut.pcap\n"));
    EXPECT_EQ(
        nlohmann::json::parse(std::get<1>(run({"cut.pcap", "whole.pcap"}, true)))["files"].size(),
        2U);
}

}  // namespace
}  // namespace velatest
