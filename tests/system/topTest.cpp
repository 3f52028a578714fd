#include <gmock/gmock.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): SIGTERM
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <sstream>

#include "pausedBoard.h"
#include "tmux.h"
#include "watch/WatchPage.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using velatest::Process;
using velatest::Tmux;

std::vector<std::string> LinesOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

class Top : public velatest::PausedBoard {
  protected:
    // zce-top with its output in a file.
    std::unique_ptr<Process> Run(const std::vector<std::string>& arguments) {
        std::vector<std::string> command{ZCE_TOP_PROGRAM};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return std::make_unique<Process>(command, Where("top"));
    }
    std::string Gone(pid_t pid) const {
        return "zce-top: bus 0: the board (process " + std::to_string(pid) + ") is gone\n";
    }
};

// The page of a process that ended, with `channels` channels: 0, 1, 2, ...
void PutPage(const std::string& path, size_t channels) {
    const auto page = std::make_unique<ZceWatch::Page>();
    page->magic = ZceWatch::PAGE_MAGIC;
    page->version = ZceWatch::PAGE_VERSION;
    page->size = sizeof(ZceWatch::Page);
    page->entrySize = sizeof(ZceWatch::Entry);
    page->entryCapacity = ZceWatch::PAGE_ENTRIES;
    page->pid = 4711;
    page->ticksPerSecond = 1;
    page->program = {'a', 'p', 'p'};
    page->state = static_cast<uint64_t>(ZceWatch::PageState::Ended);
    for (size_t k = 0; k < channels; ++k) {
        page->entries[k].channel = k;
    }
    page->entriesUsed = channels;
    velatest::WriteFile(path + ".new",
                        {reinterpret_cast<const char*>(page.get()), sizeof(ZceWatch::Page)});
    ASSERT_EQ(rename((path + ".new").c_str(), path.c_str()), 0);
}

// On a terminal. A shell starts it, notes its process number, and tells its exit status and whether
// it left the terminal as it was.
class TopScreen : public Top {
  protected:
    TopScreen() {
        Start();
        Where("terminal");
        m_tmux = std::make_unique<Tmux>(Path("terminal"));
    }

    void RunOnTerminal(const std::string& arguments) {
        velatest::WriteFile(Path("terminal") + "/run",
                            "settings() { stty -a | sed 's/rows [0-9]*; columns [0-9]*;//'; }\n"
                            "settings >before\n"
                            "sh -c 'echo $$ >pid; exec \"" ZCE_TOP_PROGRAM "\" " +
                                arguments +
                                "'\n"
                                "echo \"status=$?\"\n"
                                "settings >after\n"
                                "cmp before after && echo same terminal\n");
        m_tmux->Type("clear; . ./run");
    }
    pid_t TopPid() const { return std::stoi(velatest::ReadFile(Path("terminal") + "/pid")); }

    // The screen with its hint at the right end of the first line, however long the number of the
    // board's process is.
    std::string FixedScreen(const std::string& hint) const {
        std::string screen = m_tmux->Screen();
        EXPECT_EQ(screen.find('\n'), 80U);
        screen = Fixed(screen);
        const size_t place = screen.find(hint + "\n");
        if (place == std::string::npos) {
            ADD_FAILURE() << screen;
            return screen;
        }
        const size_t width = place + hint.size();
        return width < 80 ? screen.insert(place, 80 - width, ' ')
                          : screen.erase(place - (width - 80), width - 80);
    }

    // The screen belongs to the shell again.
    void ExpectEnded() const {
        EXPECT_TRUE(m_tmux->WaitFor("same terminal")) << m_tmux->Screen();
        EXPECT_THAT(m_tmux->Screen(), HasSubstr("status=0\n"));
        EXPECT_THAT(m_tmux->Screen(), Not(HasSubstr("q quits")));
        EXPECT_THAT(m_tmux->Screen(), EndsWith("\nready>\n"));
    }

    std::unique_ptr<Tmux> m_tmux;
};

TEST_F(TopScreen, TheScreenIsThatOfTheDocs) {
    Trade();
    RunOnTerminal("--interval 0.1");
    // From the second look on there are rates, and with the board paused nothing changes.
    ASSERT_TRUE(m_tmux->WaitFor("  0/s  ")) << m_tmux->Screen();
    velatest::ExpectDocsShow("zce-top", FixedScreen("q quits"));
    m_tmux->Press("q");
    ExpectEnded();
}

TEST_F(TopScreen, WhatHappensIsSeenInPlace) {
    RunOnTerminal("--interval 0.1");
    ASSERT_TRUE(m_tmux->WaitFor("no channel was ever open")) << m_tmux->Screen();
    Trade();
    ASSERT_TRUE(m_tmux->WaitFor("parsed 600 ")) << m_tmux->Screen();
    EXPECT_THAT(m_tmux->Screen(), Not(HasSubstr("no channel")));
    EXPECT_THAT(m_tmux->Screen(), HasSubstr("\n 3 open  "));
    Ctl({"resume"});
    EXPECT_TRUE(m_tmux->WaitFor("running")) << m_tmux->Screen();
    m_tmux->Press("q");
    ExpectEnded();
}

TEST_F(TopScreen, ItFollowsTheTerminalsSizeByCutting) {
    Trade();
    RunOnTerminal("--interval 600");
    ASSERT_TRUE(m_tmux->WaitFor(" 3 open ")) << m_tmux->Screen();
    m_tmux->Resize(40, 6);
    ASSERT_TRUE(m_tmux->WaitFor("... 5 more lines")) << m_tmux->Screen();
    const auto lines = LinesOf(m_tmux->Screen());
    ASSERT_EQ(lines.size(), 6U) << m_tmux->Screen();
    EXPECT_THAT(lines[0], StartsWith("zce-board bus 0, process "));
    EXPECT_THAT(lines[1], EndsWith("  trading  PAUSE>"));
    EXPECT_EQ(lines[1].size(), 40U);
    EXPECT_EQ(lines[2], "instruments  exchange 9+3  learnt 9+3  >");
    m_tmux->Resize(100, 30);
    EXPECT_TRUE(m_tmux->WaitFor(" 3 open ")) << m_tmux->Screen();
    EXPECT_THAT(LinesOf(m_tmux->Screen())[0], EndsWith(" q quits"));
    EXPECT_EQ(LinesOf(m_tmux->Screen())[0].size(), 100U);
    m_tmux->Press("q");
    ExpectEnded();
}

TEST_F(TopScreen, TheTerminalIsGivenBackAtEachOfTheSignals) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        RunOnTerminal("--interval 600");
        ASSERT_TRUE(m_tmux->WaitFor("q quits")) << m_tmux->Screen();
        kill(TopPid(), signal);
        ExpectEnded();
        if (HasFailure()) {
            return;
        }
    }
    RunOnTerminal("--interval 600");
    ASSERT_TRUE(m_tmux->WaitFor("q quits")) << m_tmux->Screen();
    m_tmux->Press("C-c");
    ExpectEnded();
}

TEST_F(TopScreen, ItEndsWithTheBoardAndSaysSoOnTheShellsScreen) {
    RunOnTerminal("--interval 0.1");
    ASSERT_TRUE(m_tmux->WaitFor("q quits")) << m_tmux->Screen();
    const std::string gone = Gone(m_board->Pid());
    StopBoard();
    ExpectEnded();
    EXPECT_THAT(m_tmux->Screen(), HasSubstr(gone));
}

TEST_F(TopScreen, WhileItWaitsForABoardQEndsIt) {
    RunOnTerminal("--bus 7 --wait");
    ASSERT_TRUE(m_tmux->WaitFor("zce-top: bus 7: waiting for a board")) << m_tmux->Screen();
    m_tmux->Press("a q");
    ExpectEnded();
}

TEST_F(TopScreen, WhatIsPipedInIsNoKeyAlsoWhenTheSizeChanges) {
    Trade();
    velatest::WriteFile(Path("terminal") + "/keys", "q");
    RunOnTerminal("--interval 600 <keys");
    ASSERT_TRUE(m_tmux->WaitFor(" 3 open ")) << m_tmux->Screen();
    m_tmux->Resize(40, 6);
    ASSERT_TRUE(m_tmux->WaitFor("... 5 more lines")) << m_tmux->Screen();
    m_tmux->Resize(100, 30);
    ASSERT_TRUE(m_tmux->WaitFor(" 3 open ")) << m_tmux->Screen();
    kill(TopPid(), SIGTERM);
    ExpectEnded();
}

TEST_F(TopScreen, KeysLeadToTheInstrumentsOfAChannelAndBack) {
    Trade();
    RunOnTerminal("--interval 0.1");
    ASSERT_TRUE(m_tmux->WaitFor("\n 3 open ")) << m_tmux->Screen();
    m_tmux->Press("Down Down");
    ASSERT_TRUE(m_tmux->WaitFor(" 3 <\n")) << m_tmux->Screen();
    EXPECT_THAT(m_tmux->ColouredScreen(), HasSubstr("\033[7m 3\033[0m"));
    m_tmux->Press("Enter");
    ASSERT_TRUE(m_tmux->WaitFor("q goes back")) << m_tmux->Screen();  // the board has a "0/s" too
    ASSERT_TRUE(m_tmux->WaitFor("  0/s  ")) << m_tmux->Screen();
    ASSERT_TRUE(m_tmux->WaitUntilGone("     -\n")) << m_tmux->Screen();
    velatest::ExpectDocsShow("zce-top instruments", FixedScreen("q goes back"));
    // What the page tells of each is what the channel has got.
    Ctl({"step", "100"});
    ASSERT_TRUE(m_tmux->WaitUntilGone(" messages 149 ")) << m_tmux->Screen();
    uint64_t messages = 0;
    for (const auto& [type, count] : Drain(3)) {
        messages += count;
    }
    ASSERT_TRUE(m_tmux->WaitFor("  subscribed 3  messages " + std::to_string(messages) + "  "));
    m_tmux->Press("Down");
    ASSERT_TRUE(m_tmux->WaitFor("msg/s\nSR301            single          0       65      0\n"))
        << m_tmux->Screen();
    m_tmux->Press("0");
    ASSERT_TRUE(m_tmux->WaitFor("channel 0  open  subscribed 4")) << m_tmux->Screen();
    m_tmux->Press("Escape");
    ASSERT_TRUE(m_tmux->WaitFor(" 4 <\n")) << m_tmux->Screen();
    m_tmux->Press("Enter");
    ASSERT_TRUE(m_tmux->WaitFor("channel 0  open")) << m_tmux->Screen();
    m_tmux->Press("q q");
    ExpectEnded();
}

TEST_F(TopScreen, RowsOfWatchedProcessesAreScrolledButTheLastStaysInSight) {
    Where("watched");
    const std::string page = Path("watched") + "/app-4711.watch";
    PutPage(page, 3);
    RunOnTerminal("--interval 0.1 --watch " + Path("watched"));
    ASSERT_TRUE(m_tmux->WaitFor("app             4711   0  0 ended")) << m_tmux->Screen();
    m_tmux->Press("Down Down Down");
    ASSERT_TRUE(m_tmux->WaitFor("b>\napp             4711   0  2 ended")) << m_tmux->Screen();
    PutPage(page, 1);
    EXPECT_TRUE(m_tmux->WaitFor("app             4711   0  0 ended")) << m_tmux->Screen();
    m_tmux->Press("q");
    ExpectEnded();
}

TEST_F(TopScreen, ColourIsForWhatStandsOutUnlessNobodyWantsIt) {
    constexpr const char* ALARM = "\033[31mlink-down value=6";
    Ctl({"fault", "on", "link-down", "value=6"});
    for (const char* setting : {"NO_COLOR=", "NO_COLOR=1", "TERM=vt100"}) {
        m_tmux->Type(std::string("export ") + setting);
        RunOnTerminal("--interval 600");
        ASSERT_TRUE(m_tmux->WaitFor("q quits")) << m_tmux->Screen();
        EXPECT_THAT(m_tmux->Screen(), HasSubstr("\nfaults  link-down value=6"));
        const bool bColour = std::string(setting) == "NO_COLOR=";
        EXPECT_EQ(m_tmux->ColouredScreen().find(ALARM) != std::string::npos, bColour) << setting;
        EXPECT_EQ(m_tmux->ColouredScreen().find("\033[3") != std::string::npos, bColour) << setting;
        m_tmux->Press("q");
        ExpectEnded();
        m_tmux->Type("unset NO_COLOR");
    }
}

TEST_F(TopScreen, ATerminalThatCannotBeDrawnOnGetsPlainLines) {
    for (const char* setting : {"TERM=no-such", "TERM=dumb", "-u TERM"}) {
        m_tmux->Type("clear; env " + std::string(setting) +
                     " '" ZCE_TOP_PROGRAM "' --interval 0.1; echo status=$?");
        ASSERT_TRUE(m_tmux->WaitFor("  0/s  ")) << m_tmux->Screen();
        ASSERT_TRUE(
            m_tmux->WaitFor("\nfaults  none\n\nno channel was ever open\n\nzce-board bus 0, "))
            << m_tmux->Screen();
        EXPECT_THAT(m_tmux->Screen(), Not(HasSubstr("q quits")));
        m_tmux->Press("C-c");
        EXPECT_TRUE(m_tmux->WaitFor("status=0\n")) << m_tmux->Screen();
    }
}

TEST_F(Top, IntoAPipeItPrintsPlainLinesAReportAnInterval) {
    Start();
    Trade();
    const auto top = Run({"--interval", "0.1"});
    ASSERT_TRUE(top->WaitFor("  0/s  ")) << top->Output();
    top->Signal(SIGTERM);
    EXPECT_EQ(top->WaitEnd(), 0);
    const std::string output = top->Output();
    EXPECT_TRUE(std::all_of(output.begin(), output.end(), [](char c) {
        return c == '\n' || (c >= ' ' && c < 127);
    })) << output;
    // The first report knows no rates; the second one ends like the first, and with an empty line.
    const size_t second = output.find("\n\nzce-board bus 0, ") + 2;
    ASSERT_NE(second, std::string::npos + 2);
    EXPECT_THAT(output.substr(0, second), HasSubstr("parsed 600  -/s  requests 0"));
    EXPECT_THAT(output.substr(0, second), StartsWith("zce-board bus 0, process "));
    EXPECT_THAT(output.substr(second), HasSubstr("parsed 600  0/s  requests 0"));
    EXPECT_THAT(output, EndsWith("\n\n"));
}

TEST_F(Top, OnceIsOneReport) {
    Start();
    const auto top = Run({"--once"});
    EXPECT_EQ(top->WaitEnd(), 0);
    EXPECT_THAT(top->Output(), StartsWith("zce-board bus 0, process "));
    EXPECT_EQ(LinesOf(top->Output()).size(), 9U);
}

TEST_F(Top, WatchedProcessesAreToldOnceAndADirectoryThatIsMissingIsAnError) {
    Where("watched");
    const std::string directory = Path("watched");
    PutPage(directory + "/app-4711.watch", 2);
    auto top = Run({"--once", "--watch", directory});
    EXPECT_EQ(top->WaitEnd(), 0);
    const std::vector<std::string> lines = LinesOf(top->Output());
    ASSERT_EQ(lines.size(), 6U) << top->Output();
    EXPECT_EQ(lines[0], "watch " + directory + "  0 running  1 ended  0 died");
    EXPECT_THAT(lines[4], StartsWith("app             4711   0  1 ended"));
    top = Run({"--once", "--watch", directory + "/none"});
    EXPECT_EQ(top->WaitEnd(), 2);
    EXPECT_EQ(top->Output(), "zce-top: " + directory +
                                 "/none: No such file or directory: name the directory that the "
                                 "applications have in ZCE_WATCH\n");
}

TEST_F(Top, OutputThatIsLostIsAnError) {
    Start();
    for (const char* choice : {"--once", "--interval=600"}) {
        Process top(
            {"sh", "-c", std::string("exec '" ZCE_TOP_PROGRAM "' ") + choice + " >/dev/full"},
            Where("top"));
        EXPECT_EQ(top.WaitEnd(), 2) << choice;
        EXPECT_EQ(top.Output(), "zce-top: standard output: No space left on device\n") << choice;
    }
}

TEST_F(Top, AReaderThatGoesIsAnError) {
    Start();
    Process top(
        {"sh", "-c", "{ '" ZCE_TOP_PROGRAM "' --interval 0.1; echo status=$? >&2; } | true"},
        Where("top"));
    EXPECT_EQ(top.WaitEnd(), 0);
    EXPECT_EQ(top.Output(), "zce-top: standard output: Broken pipe\nstatus=2\n");
}

TEST_F(Top, WithoutABoardItSaysSo) {
    const auto top = Run({"--bus", "5"});
    EXPECT_EQ(top->WaitEnd(), 2);
    EXPECT_EQ(top->Output(), "zce-top: bus 5: no zce-board is running on it\n");
}

TEST_F(Top, ItWaitsForABoardAndForTheNextOne) {
    const std::string waiting = "zce-top: bus 0: waiting for a board\n\n";
    const auto top = Run({"--wait", "--interval", "0.1"});
    ASSERT_TRUE(top->WaitFor(waiting)) << top->Output();
    StartSmallBoard();
    const pid_t first = m_board->Pid();
    ASSERT_TRUE(top->WaitFor("bus 0, process " + std::to_string(first))) << top->Output();
    StopBoard();
    for (int k = 0; k < 500 && top->Output().rfind(waiting) == 0; ++k) {
        usleep(10'000);
    }
    ASSERT_NE(top->Output().rfind(waiting), 0U) << top->Output();
    StartSmallBoard();
    ASSERT_TRUE(top->WaitFor("bus 0, process " + std::to_string(m_board->Pid()))) << top->Output();
    top->Signal(SIGINT);
    EXPECT_EQ(top->WaitEnd(), 0);
}

TEST_F(Top, AUsageErrorSaysWhichAndExits2) {
    const std::vector<std::pair<std::vector<std::string>, const char*>> cases = {
        {{"--bus", "10"}, "zce-top: --bus: Value 10 not in range 0 to 9\n"},
        {{"--interval", "0"},
         "zce-top: --interval: Value 0 not in range 0.100000 to 3600.000000\n"},
        {{"now"}, "zce-top: The following argument was not expected: now\n"},
    };
    const auto version = Run({"--version"});
    EXPECT_EQ(version->WaitEnd(), 0);
    EXPECT_EQ(version->Output(), "zce-top 3.10.0\n");
    for (const auto& [arguments, error] : cases) {
        const auto top = Run(arguments);
        EXPECT_EQ(top->WaitEnd(), 2);
        EXPECT_EQ(top->Output(), error);
    }
}

}  // namespace
