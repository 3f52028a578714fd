// The receiver and the board's program as their user sees them: what they print and what they
// count.

#include <gmock/gmock.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): SIGSTOP
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "market.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace velatest {

namespace {

using Clock = std::chrono::steady_clock;

std::vector<std::string> LinesOf(const std::string& text, const std::string& start) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (line.starts_with(start)) {
            lines.push_back(line);
        }
    }
    return lines;
}

class Receiver : public Market {
  protected:
    Receiver() { LetReceiversRest(); }

    // A master that has subscribed, and a receiver on channel 3 that gets messages.
    void StartBoth(const std::vector<std::string>& more) {
        m_master = Receive(0, {"--names", "-"});
        ASSERT_TRUE(m_master->WaitFor("Fpga start transmit inst map pkt.")) << m_master->Output();
        m_receiver = Receive(3, more);
        ASSERT_TRUE(m_receiver->WaitFor("zce-recv type=")) << m_receiver->Output();
    }
    // A receiver whose output and names are lost; the shell tells its exit status.
    std::unique_ptr<Process> StartLost(unsigned int channel, const std::string& output) {
        const std::string name = "lost" + std::to_string(channel);
        const Process::Options where = Where(name);
        WriteFile(Path(name) + "/config.ini",
                  "[config]\ndevice = xilinx0:" + std::to_string(channel) + "\n");
        const std::string command =
            "{ '" ZCE_RECV_PROGRAM
            "' config.ini --names /dev/full --seconds 40; echo status=$? >&2; } ";
        return std::make_unique<Process>(std::vector<std::string>{"sh", "-c", command + output},
                                         where);
    }
    static void ExpectLost(Process& receiver, const std::string& reason) {
        EXPECT_EQ(receiver.WaitEnd(), 0);
        EXPECT_EQ(receiver.Output(),
                  "zce-recv: --names: cannot write /dev/full: No space left on device\n"
                  "zce-recv: standard output: " +
                      reason + "\nstatus=1\n");
    }
    // A line for each instrument of the master's channel, and then its last line.
    void ExpectMastersNames() {
        Finish(*m_master, 0);
        const std::string output = m_master->Output();
        std::smatch found;
        ASSERT_TRUE(std::regex_search(
            output, found,
            std::regex(
                "\n([0-9]+),SR301\n([0-9]+),SR305\n([0-9]+),SR301C5000\n([0-9]+),SR301P5000\n"
                "([0-9]+),SPD-SR301&SR305\n([0-9]+),SPD-CF301&CF305\nzce-recv channel=0 "
                "total=([0-9]+) ")))
            << output;
        long sum = 0;
        for (size_t k = 1; k <= 6; ++k) {
            sum += std::stol(found[k]);
        }
        EXPECT_EQ(sum, std::stol(found[7])) << output;
    }
    // How many messages the board has dropped on channel 3, by its last status line.
    long Dropped() const {
        const std::string line = m_board->LastLine("status ");
        std::smatch found;
        return std::regex_search(line, found,
                                 std::regex(" channel3=[a-z]+,sent=[0-9]+,dropped=(.+)"))
                   ? std::stol(found[1])
                   : -1;
    }

    std::unique_ptr<Process> m_master;
    std::unique_ptr<Process> m_receiver;
};

TEST_F(Receiver, PrintsAsManyMessagesAsAskedForAndARateOnceASecond) {
    m_rules +=
        "[channel4]\ninsts = all\noptions = norecv\nips = recv\n"
        "[channel5]\ninsts = all\noptions = norecv\nips = recv\n";
    StartClock(shortlyBeforeExpiry);
    StartSmallBoard();
    StartBoth({"--print", "3", "--seconds", "9"});
    const auto gone = StartLost(4, "| true");
    const auto full = StartLost(5, ">/dev/full");
    EXPECT_EQ(m_receiver->WaitEnd(), 0);
    // What is not printed or written is told, too.
    ExpectLost(*gone, "Broken pipe");
    ExpectLost(*full, "No space left on device");
    ExpectMastersNames();
    const std::string output = m_receiver->Output();
    const std::vector<std::string> messages = LinesOf(output, "zce-recv type=");
    EXPECT_EQ(messages.size(), 3U);
    const std::regex message(
        R"(zce-recv type=(17|18|19|20) [A-Z0-9&-]+ [0-9]{6} last -?[0-9]+\.[0-9]{2} )"
        R"(bid -?[0-9]+\.[0-9]{2} x [0-9]+ ask -?[0-9]+\.[0-9]{2} x [0-9]+ volume [0-9]+)");
    for (const std::string& line : messages) {
        EXPECT_TRUE(std::regex_match(line, message)) << line;
    }
    const std::vector<std::string> rates = LinesOf(output, "zce-recv rate=");
    EXPECT_GE(rates.size(), 2U);
    EXPECT_LE(rates.size(), 9U);
    for (const std::string& line : rates) {
        EXPECT_TRUE(
            std::regex_match(line, std::regex("zce-recv rate=[0-9]+/s total=[0-9]+ gaps=0")))
            << line;
    }
}

TEST_F(Receiver, CountsEveryMessageThatItWasTooSlowFor) {
    StartClock(shortlyBeforeExpiry);
    WriteFile(Path("instruments"), "SR301\nSR305\nCF301\nSPD-SR301&SR305\n");
    StartBoard(
        {"--instruments", Path("instruments"), "--rate", "20000", "--broadcast-cycle", "0.2"});
    StartBoth({});
    m_receiver->Signal(SIGSTOP);
    const auto patience = Clock::now() + std::chrono::seconds(20);
    while (Dropped() <= 0 && Clock::now() < patience) {
        usleep(10'000);
    }
    m_receiver->Signal(SIGCONT);
    ASSERT_GT(Dropped(), 0);
    // Two seconds without a loss: messages have come after the last one.
    long before = -1;
    while (before != Dropped() && Clock::now() < patience) {
        before = Dropped();
        usleep(2'100'000);
    }
    StopBoard();
    const std::string line = Finish(*m_receiver, 3);
    EXPECT_GT(Field(line, "gaps"), 0) << line;
    EXPECT_EQ(Field(line, "gaps"), Field(BoardLine(3), "dropped")) << line << BoardLine(3);
    EXPECT_EQ(Field(line, "total"), Field(BoardLine(3), "total")) << line << BoardLine(3);
    EXPECT_THAT(m_receiver->Output(), HasSubstr("Back pressure happens! may loss some data !"));
}

// A board that is killed, and one that comes after it.
TEST_F(Receiver, TellsThatItsBoardHasGoneAndThatANewOneRuns) {
    StartClock(shortlyBeforeExpiry);
    StartSmallBoard();
    StartBoth({"--end-with-board"});
    m_board->Signal(SIGKILL);
    ASSERT_EQ(m_board->WaitEnd(), 128 + SIGKILL);
    EXPECT_EQ(m_receiver->WaitEnd(std::chrono::seconds(10)), 1) << m_receiver->Output();
    EXPECT_EQ(LinesOf(m_receiver->Output(), "zce-recv board=").size(), 1U);
    EXPECT_GT(Field(m_receiver->LastLine("zce-recv channel=3 "), "total"), 0)
        << m_receiver->Output();

    ASSERT_TRUE(m_master->WaitFor("zce-recv rate=0/s total=")) << m_master->Output();
    StartSmallBoard();
    ASSERT_TRUE(m_master->WaitFor("zce-recv board=new")) << m_master->Output();
    const std::size_t told = LinesOf(m_master->Output(), "zce-recv rate=0/s total=").size();
    usleep(2'200'000);
    EXPECT_GE(LinesOf(m_master->Output(), "zce-recv rate=0/s total=").size(), told + 2);
    EXPECT_GT(Field(Finish(*m_master, 0), "total"), 0);
    EXPECT_THAT(LinesOf(m_master->Output(), "zce-recv board="),
                ElementsAre("zce-recv board=gone: nothing more comes from it",
                            "zce-recv board=new: it has ended and another one runs: start zce-recv "
                            "anew"));
}

TEST_F(Receiver, EndsWithItsBoardBeforeTheFirstMessageToo) {
    StartClock(40000);
    StartSmallBoard();
    const auto started = Receive(5, {"--end-with-board"});
    const auto looping = Receive(6, {"--end-with-board", "--own-loop"});
    ASSERT_TRUE(started->WaitFor("Init dma channel :CUSTOM_CHAN5_DATA success."));
    ASSERT_TRUE(looping->WaitFor("Init dma channel :CUSTOM_CHAN6_DATA success."));
    StopBoard();
    EXPECT_EQ(started->WaitEnd(std::chrono::seconds(10)), 1) << started->Output();
    EXPECT_EQ(looping->WaitEnd(std::chrono::seconds(10)), 1) << looping->Output();
    for (const Process* receiver : {started.get(), looping.get()}) {
        EXPECT_THAT(LinesOf(receiver->Output(), "zce-recv board="),
                    ElementsAre("zce-recv board=gone: nothing more comes from it"));
        EXPECT_THAT(LinesOf(receiver->Output(), "zce-recv rate="), ElementsAre());
        EXPECT_EQ(Field(receiver->LastLine("zce-recv channel="), "total"), 0);
    }
}

// What an application's author can copy: the installed header and the bodies of the board.
TEST_F(Receiver, KnowsTheLibraryByItsHeaderAndTheBoardByItsBodiesAlone) {
    std::set<std::string> foreign;
    for (const auto& file : std::filesystem::directory_iterator(ZCE_RECV_SOURCES)) {
        for (const std::string& line : LinesOf(ReadFile(file.path().string()), "#include \"")) {
            const std::string header = line.substr(10, line.size() - 11);
            if (!std::filesystem::exists(std::filesystem::path(ZCE_RECV_SOURCES) / header)) {
                foreign.insert(header);
            }
        }
    }
    EXPECT_THAT(foreign, ElementsAre("IVelaZceMdApi.h", "VelaZceUtils.h", "ZceBoardMsg.h",
                                     "ZceBoardState.h"));
}

TEST_F(Receiver, AWrongArgumentIsNamed) {
    const std::vector<std::pair<std::vector<std::string>, const char*>> cases = {
        {{"--bogus"}, "zce-recv: --bogus: no such option\n"},
        {{"-x"}, "zce-recv: -x: no such option\n"},
        {{"--own-loop=3"}, "zce-recv: --own-loop=3: this option takes no value\n"},
        {{"config.ini", "--seconds"}, "zce-recv: --seconds: the value is missing\n"},
        {{"config.ini", "--print", "3x"},
         "zce-recv: --print: '3x' is not a number from 0 to 2147483647\n"},
        {{"config.ini", "--print", "-3"},
         "zce-recv: --print: '-3' is not a number from 0 to 2147483647\n"},
        {{"config.ini", "--nap", "3"}, "zce-recv: --nap: needs --own-loop\n"},
        {{}, "zce-recv: CONFIG is missing\n"},
        {{"one.ini", "two.ini"}, "zce-recv: two.ini: one CONFIG only\n"},
    };
    for (const auto& [arguments, error] : cases) {
        std::vector<std::string> command{ZCE_RECV_PROGRAM};
        command.insert(command.end(), arguments.begin(), arguments.end());
        Process receiver(command, Where("wrong"));
        EXPECT_EQ(receiver.WaitEnd(), 2);
        EXPECT_EQ(receiver.Output(), error);
    }
}

TEST_F(Receiver, HelpAndVersionAreAnswers) {
    Process help({ZCE_RECV_PROGRAM, "--help"}, Where("help"));
    EXPECT_EQ(help.WaitEnd(), 0);
    EXPECT_THAT(help.Output(), StartsWith("usage: zce-recv CONFIG [--seconds N] [--print N] "));
    Process version({ZCE_RECV_PROGRAM, "--version"}, Where("version"));
    EXPECT_EQ(version.WaitEnd(), 0);
    EXPECT_EQ(version.Output(), "zce-recv 3.10.0\n");
    Process lost({"sh", "-c", "exec '" ZCE_RECV_PROGRAM "' --version >/dev/full"}, Where("lost"));
    EXPECT_EQ(lost.WaitEnd(), 1);
    EXPECT_EQ(lost.Output(), "zce-recv: standard output: No space left on device\n");
}

class BoardProgram : public Market {};

TEST_F(BoardProgram, PrintsAStatusLineOnceASecond) {
    StartClock(93000);
    const auto begin = Clock::now();
    StartSmallBoard();
    ASSERT_TRUE(m_board->WaitFor("status bus=0 "));
    usleep(2'200'000);
    StopBoard();
    const std::chrono::duration<double> seconds = Clock::now() - begin;
    const std::size_t lines = LinesOf(m_board->Output(), "status ").size();
    EXPECT_GE(lines, 2U);
    EXPECT_LE(static_cast<double>(lines), seconds.count());
}

}  // namespace

}  // namespace velatest
