#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>

#include "capture/CaptureReader.h"
#include "captureBytes.h"
#include "market.h"

using testing::HasSubstr;

namespace velatest {

namespace {

using std::chrono::seconds;
using ZceCapture::CCaptureReader;

// The messages of a capture, by channel and in their order.
using Messages = std::array<std::vector<std::string>, 16>;

Messages ReadMessages(const std::string& path) {
    Messages messages;
    CCaptureReader reader;
    std::string error;
    EXPECT_TRUE(reader.Open(path, error)) << error;
    ZceCapture::CaptureMessage message;
    while (reader.Read(message) == CCaptureReader::Next::Message) {
        messages[message.channel].emplace_back(message.bytes.begin(), message.bytes.end());
    }
    EXPECT_EQ(reader.Lost(), 0U);
    return messages;
}

class Replay : public Market {
  protected:
    Replay() { LetReceiversRest(); }
    // Receivers that are started from here on record what they poll to a file, each in its own
    // directory, or no longer do.
    void Record(bool on, const std::string& file = "day.pcap") {
        if (on) {
            m_environment.insert(
                m_environment.end(),
                {Resting(ZCE_RECORD_LIBRARY), "ZCE_RECORD=" + file, "ZCE_RECORD_FREE_MIB=0"});
        } else {
            m_environment.resize(m_environment.size() - 3);
        }
    }
    static bool Run(const std::string& command) {
        // NOLINTNEXTLINE(cert-env33-c,bugprone-command-processor): a tool of the tests' packages
        return std::system(command.c_str()) == 0;
    }
    static void ExpectSameCounts(const std::string& first, const std::string& again) {
        for (const char* field : {"total", "type17", "type18", "type19", "type20", "gaps"}) {
            EXPECT_EQ(Field(again, field), Field(first, field)) << first << "\n" << again;
        }
        EXPECT_GT(Field(first, "total"), 100) << first;
    }
    // How a capture is refused; nothing may be left of the board.
    std::string Refusal(const std::string& path) {
        Process process({ZCE_BOARD_PROGRAM, "--replay", path}, Where("refused"));
        EXPECT_EQ(process.WaitEnd(), 2);
        EXPECT_FALSE(
            std::filesystem::exists("/dev/shm/test" + std::to_string(getpid()) + "-zce-board.0"));
        return process.Output();
    }
};

TEST_F(Replay, ARecordedSessionGivesAFreshReceiverTheSameAndRecordsToTheSameBytes) {
    StartClock(85504);
    StartSmallBoard();
    Record(true);
    auto master = Receive(0);
    auto second = Receive(3);
    ASSERT_TRUE(master->WaitFor("zce-recv type=")) << master->Output();
    ASSERT_TRUE(second->WaitFor("zce-recv type=")) << second->Output();
    usleep(500'000);
    StopBoard();
    const std::string masterLine = Finish(*master, 0);
    const std::string secondLine = Finish(*second, 3);
    ExpectSame(masterLine, 0);
    // Merged, and replayed compressed.
    ASSERT_TRUE(Run("mergecap -F nsecpcap -w " + Path("all.pcap") + " " +
                    Path("receiver0/day.pcap") + " " + Path("receiver1/day.pcap") + " && zstd -q " +
                    Path("all.pcap")));
    const Messages recorded = ReadMessages(Path("all.pcap"));
    EXPECT_GT(recorded[0].size(), 100U);
    EXPECT_GT(recorded[3].size(), 100U);

    Record(false);
    m_board =
        std::make_unique<Process>(std::vector<std::string>{ZCE_BOARD_PROGRAM, "--replay",
                                                           Path("all.pcap.zst"), "--speed", "max"},
                                  Where("replay"));
    ASSERT_TRUE(m_board->WaitFor("ready")) << m_board->Output();
    Record(true, "day.pcap.zst");
    auto freshMaster = Receive(0);
    auto freshSecond = Receive(3);
    ASSERT_EQ(m_board->WaitEnd(), 0) << m_board->Output();
    // The master subscribes on the way, which takes its time.
    ASSERT_TRUE(freshMaster->WaitFor("zce-recv type=")) << freshMaster->Output();
    ExpectSameCounts(masterLine, Finish(*freshMaster, 0));
    ExpectSameCounts(secondLine, Finish(*freshSecond, 3));
    EXPECT_THAT(
        m_board->Output(),
        HasSubstr("replay bus=0 sent=" + std::to_string(recorded[0].size() + recorded[3].size()) +
                  " of=" + std::to_string(recorded[0].size() + recorded[3].size()) +
                  " unheard=0 recorder-lost=0\n"));
    const Messages ofMaster = ReadMessages(Path("receiver2/day.pcap.zst"));
    const Messages ofSecond = ReadMessages(Path("receiver3/day.pcap.zst"));
    EXPECT_TRUE(ofMaster[0] == recorded[0]);
    EXPECT_TRUE(ofSecond[3] == recorded[3]);
}

TEST_F(Replay, AForeignLinkTypeIsRefused) {
    const std::string path = CaptureBytes(CaptureBytes::NANO, 1).Write(Path("ethernet.pcap"));
    const std::string text = Refusal(path);
    EXPECT_THAT(text, HasSubstr("zce-board: " + path + ": "));
    EXPECT_THAT(text, HasSubstr("link type EN10MB (1), expected "));
    EXPECT_THAT(text, HasSubstr("147"));
}

TEST_F(Replay, APacketThatCannotBeAMessageIsNamedByItsNumber) {
    const std::string message = Little(17, 4) + std::string(144, 'x');
    CaptureBytes capture;
    capture.Add(1, 0, Prefix(1, 0, 1) + message).Add(1, 1, Prefix(1, 16, 2) + message);
    const std::string path = capture.Write(Path("channel.pcap"));
    EXPECT_THAT(Refusal(path), HasSubstr("zce-board: " + path + ": packet 2: "));
    EXPECT_THAT(Refusal(Path("none.pcap")), HasSubstr(Path("none.pcap")));
    EXPECT_EQ(Refusal(CaptureBytes().Write(Path("empty.pcap"))),
              "zce-board: " + Path("empty.pcap") + ": there is no message in it\n");
}

TEST_F(Replay, ACaptureOfSeveralBusesCannotBeGivenAnother) {
    const std::string message = Little(17, 4) + std::string(144, 'x');
    CaptureBytes capture;
    capture.Add(1, 0, Prefix(1, 0, 1, 0) + message).Add(1, 1, Prefix(1, 0, 1, 1) + message);
    const std::string path = capture.Write(Path("two.pcap"));
    Process process({ZCE_BOARD_PROGRAM, "--replay", path, "--bus", "3"}, Where("two"));
    EXPECT_EQ(process.WaitEnd(), 2);
    EXPECT_EQ(process.Output(), "zce-board: " + path +
                                    ": it holds messages of several buses: --bus cannot rename "
                                    "them\n");
}

}  // namespace

}  // namespace velatest
