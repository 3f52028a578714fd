#include <gmock/gmock.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): SIGINT
#include <unistd.h>

#include <filesystem>

#include "market.h"

using testing::HasSubstr;

namespace velatest {

namespace {

using std::chrono::seconds;

// A board that plays one of the example scenarios, and receivers that have its clock.
class ExampleScenario : public Market {
  protected:
    ExampleScenario() { LetReceiversRest(); }

    // The board's clock is in `clock`, which the scenario writes into its working directory.
    void Play(const std::string& name) {
        const std::string path = std::string(ZCE_EXAMPLES) + "/scenarios/" + name;
        ASSERT_TRUE(std::filesystem::exists(path));
        m_board = std::make_unique<Process>(
            std::vector<std::string>{ZCE_BOARD_PROGRAM, "--scenario", path}, Where("board"));
        ASSERT_TRUE(m_board->WaitFor("ready")) << m_board->Output();
    }
    void FollowTheBoardsClock(const std::string& file) {
        m_environment.insert(
            m_environment.end(),
            {Resting(LIBFAKETIME), "FAKETIME_NO_CACHE=1", "DONT_FAKE_MONOTONIC=1",
             "FAKETIME_DONT_FAKE_MONOTONIC=1", "FAKETIME_TIMESTAMP_FILE=" + Path("board/" + file)});
    }
    void ExpectCounts(const std::string& line, long type17, long type18, long type19, long type20) {
        EXPECT_EQ(Field(line, "type17"), type17) << line;
        EXPECT_EQ(Field(line, "type18"), type18) << line;
        EXPECT_EQ(Field(line, "type19"), type19) << line;
        EXPECT_EQ(Field(line, "type20"), type20) << line;
    }
};

TEST_F(ExampleScenario, MorningGivesTheSameOpeningEachTime) {
    m_rules =
        "[channel0]\ninsts = all\noptions = recv\nips = recv\nspd = recv\n"
        "[channel3]\ninsts = SR, CF\noptions = norecv\nspd = recv\n";
    Play("morning.ini");
    FollowTheBoardsClock("zce-morning.clock");
    auto master = Receive(0);
    auto second = Receive(3);
    ASSERT_TRUE(master->WaitFor("All channel subs over.")) << master->Output();
    EXPECT_EQ(m_board->WaitEnd(seconds(60)), 0) << m_board->Output();  // at its own end
    const std::string got = Finish(*master, 0);
    ExpectSame(got, 0);
    ExpectSame(Finish(*second, 3), 3);
    ExpectCounts(got, 25489, 4511, 12753, 2247);
    ExpectCounts(BoardLine(3), 1471, 4353, 704, 2172);
}

TEST_F(ExampleScenario, BurstsReachAFastReceiverWhole) {
    StartClock(85458);
    m_rules = "[channel0]\ninsts = all\noptions = recv\nips = recv\nspd = recv\n";
    Play("bursts.ini");
    auto master = Receive(0);
    ASSERT_TRUE(master->WaitFor("zce-recv type=")) << master->Output();
    usleep(2'500'000);  // two bursts and what lies between them
    StopBoard();
    const std::string got = Finish(*master, 0);
    ExpectSame(got, 0);
    EXPECT_GE(Field(got, "total"), 2 * 2000);
    EXPECT_EQ(Field(got, "type19") + Field(got, "type20"), 0);
}

// The last line of a board for a channel on a bus.
std::string LineOf(const Process& board, unsigned int bus, unsigned int channel) {
    const std::string output = board.Output();
    const std::string start = "\nzce-board channel=" + std::to_string(channel) + " ";
    const std::string end = " bus=" + std::to_string(bus);
    for (size_t at = output.find(start); at != std::string::npos; at = output.find(start, at + 1)) {
        std::string line = output.substr(at + 1, output.find('\n', at + 1) - at - 1);
        if (line.size() > end.size() && line.substr(line.size() - end.size()) == end) {
            return line;
        }
    }
    return "";
}

TEST_F(ExampleScenario, TwoBoardsWithThreeReceiversEachLoseNothing) {
    StartClock(85458);
    m_rules =
        "[channel0]\ninsts = all\noptions = recv\nips = recv\nspd = recv\n"
        "[channel3]\ninsts = SR\noptions = recv\n"
        "[channel15]\ninsts = TA209, CF209\noptions = norecv\nips = recv\nspd = recv\n";
    Play("two-boards.ini");
    std::vector<std::unique_ptr<Process>> receivers;
    for (const unsigned int bus : {0U, 1U}) {
        for (const unsigned int channel : {0U, 3U, 15U}) {
            receivers.push_back(Receive(channel, {}, bus));
        }
    }
    for (const auto& receiver : receivers) {
        ASSERT_TRUE(receiver->WaitFor("zce-recv type=", seconds(60))) << receiver->Output();
    }
    usleep(1'000'000);
    StopBoard();
    size_t k = 0;
    for (const unsigned int bus : {0U, 1U}) {
        for (const unsigned int channel : {0U, 3U, 15U}) {
            const std::string got = Finish(*receivers[k++], channel);
            const std::string sent = LineOf(*m_board, bus, channel);
            for (const char* field : {"type17", "type18", "type19", "type20", "total"}) {
                EXPECT_EQ(Field(got, field), Field(sent, field))
                    << "bus " << bus << " channel " << channel << " " << field;
            }
            EXPECT_GT(Field(got, "total"), 100) << got;
            EXPECT_EQ(Field(got, "gaps"), 0) << got;
            EXPECT_EQ(Field(sent, "dropped"), 0) << sent;
        }
    }
}

TEST_F(ExampleScenario, NightFaultsComeAndGoAndTheDataGoOn) {
    StartClock(205458);
    m_rules =
        "L5_DSTMAC = 01:00:5e:01:01:05\nL5_DSTIP = 239.1.1.5\nL5_DSTPORT = 30005\n"
        "L5_SRCMAC = 00:1b:21:aa:bb:05\nL5_SRCIP = 192.168.5.10\nL5_SRCPORT = 31005\n"
        "L1_DSTMAC = 01:00:5e:01:01:01\nL1_DSTIP = 239.1.1.1\nL1_DSTPORT = 30001\n"
        "L1_SRCMAC = 00:1b:21:aa:bb:01\nL1_SRCIP = 192.168.1.10\nL1_SRCPORT = 31001\n"
        "[channel0]\ninsts = all\noptions = recv\nips = recv\nspd = recv\n";
    Play("night-faults.ini");
    auto master = Receive(0);
    ASSERT_TRUE(master->WaitFor("All channel subs over.")) << master->Output();
    EXPECT_EQ(m_board->WaitEnd(seconds(60)), 0) << m_board->Output();
    const std::string got = Finish(*master, 0);
    ExpectSame(got, 0);
    EXPECT_GT(Field(got, "type17"), 500);
    EXPECT_GT(Field(got, "type20"), 100);
    const std::string output = master->Output();
    EXPECT_THAT(output, HasSubstr("[fpga]Fiber linkstatus 0x103:0x0.\n"));
    EXPECT_THAT(output, HasSubstr("[fpga]read int32 failed, addr[0x104], "
                                  "errmsg:Input/output error.\n"));
    EXPECT_EQ(Field(BoardLine(0), "other"), 20) << BoardLine(0);  // each 100th ms of two seconds
    const std::string board = m_board->Output();
    EXPECT_THAT(board, HasSubstr(" L5=ok L1=ok"));
    EXPECT_THAT(board, HasSubstr(" faults=counters-stuck, garbage every=100 strikes="));
}

class BadScenario : public Market {
  protected:
    int Refused(const std::vector<std::string>& arguments, std::string& text) {
        std::vector<std::string> command{ZCE_BOARD_PROGRAM};
        command.insert(command.end(), arguments.begin(), arguments.end());
        Process process(command, Where("bad"));
        const int status = process.WaitEnd();
        text = process.Output();
        return status;
    }
};

TEST_F(BadScenario, IsNamedWithItsLineAndLeavesNothingBehind) {
    WriteFile(Path("s.ini"), "[exchange]\nproducts = all\n[clock]\nstart = 9\n");
    std::string text;
    EXPECT_EQ(Refused({"--scenario", Path("s.ini")}, text), 2);
    EXPECT_EQ(text, "zce-board: " + Path("s.ini") +
                        ":4: [clock] start = 9: a time of day hh:mm:ss is needed\n");
    EXPECT_EQ(Refused({"--scenario", Path("none.ini")}, text), 2);
    EXPECT_EQ(text, "zce-board: " + Path("none.ini") + ": No such file or directory\n");
    EXPECT_EQ(Refused({"--scenario", Path("s.ini"), "--rate", "5"}, text), 2);
    EXPECT_THAT(text, HasSubstr("--rate excludes --scenario"));
    const std::string prefix = "test" + std::to_string(getpid()) + "-";
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
        EXPECT_NE(entry.path().filename().string().substr(0, prefix.size()), prefix);
    }
}

TEST_F(BadScenario, ASecondBoardOnOneOfItsBusesIsRefusedAndTheFirstOnesMemoryGoes) {
    WriteFile(Path("one.ini"),
              "[board]\nbus = 1\n[exchange]\nproducts = all\n[clock]\nstart = 09:00:00\n");
    m_board = std::make_unique<Process>(
        std::vector<std::string>{ZCE_BOARD_PROGRAM, "--scenario", Path("one.ini")}, Where("board"));
    ASSERT_TRUE(m_board->WaitFor("ready")) << m_board->Output();
    WriteFile(Path("two.ini"),
              "[board]\nbus = 0, 1\n[exchange]\nproducts = all\n[clock]\nstart = 09:00:00\n");
    std::string text;
    EXPECT_EQ(Refused({"--scenario", Path("two.ini")}, text), 2);
    EXPECT_EQ(text, "zce-board: bus 1: another zce-board is running on it (process " +
                        std::to_string(m_board->Pid()) + ")\n");
    EXPECT_FALSE(
        std::filesystem::exists("/dev/shm/test" + std::to_string(getpid()) + "-zce-board.0"));
    StopBoard();
}

}  // namespace

}  // namespace velatest
