#include <gmock/gmock.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): SIGINT
#include <unistd.h>

#include <filesystem>
#include <set>

#include "market.h"

using testing::ContainsRegex;
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
    // The line of its comment that starts it with a master.
    static std::string SaidCommand(const std::string& name) {
        return "\n;     zce-board --scenario examples/scenarios/" + name +
               " -- zce-recv examples/config/master.ini\n";
    }
    // Plays it to its end as it says, with more options; what board and master printed.
    std::string PlayAsItSays(const std::string& name, const std::string& options) {
        const Process::Options where = Where("top");
        std::filesystem::create_directory_symlink(ZCE_EXAMPLES, Path("top/examples"));
        const std::string said = SaidCommand(name);
        EXPECT_THAT(ReadFile(Path("top/examples/scenarios/" + name)), HasSubstr(said));
        std::string line = said.substr(said.find("--scenario"));
        line.replace(line.find("zce-recv"), 8, std::string("'") + ZCE_RECV_PROGRAM + "'");
        m_board = std::make_unique<Process>(
            std::vector<std::string>{
                "sh", "-c",
                std::string("exec '") + ZCE_BOARD_PROGRAM + "' " + options + " " + line},
            where);
        EXPECT_EQ(m_board->WaitEnd(seconds(60)), 0) << m_board->Output();
        return m_board->Output();
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
    const std::string output = PlayAsItSays("bursts.ini", "--clock-speed 4");
    const std::string got = m_board->LastLine("zce-recv channel=0 ");
    ExpectSame(got, 0);
    // The bursts of half a minute, less what the rules leave out.
    EXPECT_GE(Field(got, "total"), 20 * 1000) << output;
    EXPECT_EQ(Field(got, "type19") + Field(got, "type20"), 0);
}

TEST_F(ExampleScenario, EachHasAClockAndSaysHowAMasterIsStarted) {
    std::set<std::string> names;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::string(ZCE_EXAMPLES) + "/scenarios")) {
        if (entry.path().extension() != ".ini") {
            continue;
        }
        const std::string name = entry.path().filename();
        names.insert(name);
        const std::string text = ReadFile(entry.path());
        EXPECT_THAT(text, HasSubstr(SaidCommand(name))) << name;
        EXPECT_THAT(text, ContainsRegex("\nfile +=[ ]zce-[a-z-]+.clock ")) << name;
    }
    // Those that a test of this file plays.
    EXPECT_EQ(names, (std::set<std::string>{"bursts.ini", "morning.ini", "night-faults.ini",
                                            "two-boards.ini"}));
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
    m_rules =
        "[channel0]\ninsts = all\noptions = recv\nips = recv\nspd = recv\n"
        "[channel3]\ninsts = SR\noptions = recv\n"
        "[channel15]\ninsts = TA209, CF209\noptions = norecv\nips = recv\nspd = recv\n";
    Play("two-boards.ini");
    FollowTheBoardsClock("zce-two-boards.clock");
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
    const std::string output = PlayAsItSays("night-faults.ini", "");
    const std::string got = m_board->LastLine("zce-recv channel=0 ");
    ExpectSame(got, 0);
    EXPECT_GT(Field(got, "type17"), 500);
    EXPECT_GT(Field(got, "type20"), 100);
    EXPECT_THAT(output, HasSubstr("[fpga]Fiber linkstatus 0x103:0x0.\n"));
    EXPECT_THAT(output, HasSubstr("[fpga]read int32 failed, addr[0x104], "
                                  "errmsg:Input/output error.\n"));
    EXPECT_EQ(Field(BoardLine(0), "other"), 20) << BoardLine(0);  // each 100th ms of two seconds
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
