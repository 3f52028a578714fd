// The examples that hand messages to another thread and that run a process for each channel, as
// their user sees them.

#include <gmock/gmock.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): SIGINT, SIGTERM
#include <unistd.h>

#include <chrono>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "market.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace velatest {

namespace {

class Examples : public Market {
  protected:
    Examples() { LetReceiversRest(); }

    std::unique_ptr<Process> Run(const std::string& name, const std::string& program,
                                 const std::vector<std::string>& arguments) {
        std::vector<std::string> command{program};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return std::make_unique<Process>(command, Where(name));
    }
    // The INI file of a channel, in the directory `name`.
    void Configure(const std::string& name, unsigned int channel) {
        Where(name);
        const std::string number = std::to_string(channel);
        WriteFile(Path(name) + "/channel" + number + ".ini",
                  "[config]\ndevice = xilinx0:" + number + "\n" + m_rules);
    }
    // What the launcher prints, without the processes' numbers.
    static std::string WithoutPids(const std::string& text) {
        return std::regex_replace(text, std::regex("process [0-9]+"), "process N");
    }
    // How many messages the board has sent to a channel, by its last status line.
    long Sent(unsigned int channel) const {
        const std::string line = m_board->LastLine("status ");
        std::smatch found;
        return std::regex_search(
                   line, found,
                   std::regex(" channel" + std::to_string(channel) + "=[a-z]+,sent=([0-9]+)"))
                   ? std::stol(found[1])
                   : 0;
    }
};

TEST_F(Examples, EachChannelHasItsProcessAndTheStrategyGetsWhatFitsInItsRing) {
    m_rules =
        "[channel0]\ninsts = SR\noptions = recv\nspd = recv\n"
        "[channel3]\ninsts = all\noptions = norecv\nips = recv\n"
        "[channel4]\nips = recv\nspd = recv\n"
        "[channel5]\ninsts = all\noptions = recv\nips = recv\nspd = recv\n";
    StartClock(shortlyBeforeExpiry);
    StartSmallBoard();
    Configure("launched", 0);
    Configure("launched", 3);
    Configure("fast", 4);
    Configure("slow", 5);
    const auto launcher =
        Run("launched", CHANNELS_PROGRAM, {"channel0.ini", "channel3.ini", "--", ZCE_RECV_PROGRAM});
    ASSERT_TRUE(launcher->WaitFor("Fpga start transmit inst map pkt.")) << launcher->Output();
    const auto fast = Run("fast", STRATEGY_RING_PROGRAM, {"channel4.ini"});
    const auto slow = Run("slow", STRATEGY_RING_PROGRAM, {"channel5.ini", "100000"});
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (Sent(5) < 2500 && std::chrono::steady_clock::now() < patience) {
        usleep(10'000);
    }
    StopBoard();
    usleep(200'000);  // what the board sent last is in the ring: time for the poll to take it out
    for (const auto& process : {launcher.get(), fast.get(), slow.get()}) {
        process->Signal(SIGTERM);
        EXPECT_EQ(process->WaitEnd(), 0) << process->Output();
    }

    const std::string fastLine = fast->LastLine("strategy-ring ");
    EXPECT_GT(Field(fastLine, "received"), 0) << fastLine;
    EXPECT_EQ(Field(fastLine, "received"), Field(BoardLine(4), "total")) << BoardLine(4);
    EXPECT_EQ(Field(fastLine, "handled"), Field(fastLine, "received")) << fastLine;
    EXPECT_EQ(Field(fastLine, "dropped"), 0) << fastLine;
    EXPECT_EQ(Field(fastLine, "instruments"), 3) << fastLine;

    const std::string slowLine = slow->LastLine("strategy-ring ");
    EXPECT_EQ(Field(slowLine, "received"), Field(BoardLine(5), "total")) << BoardLine(5);
    EXPECT_GE(Field(slowLine, "handled"), 1024) << slowLine;
    EXPECT_GT(Field(slowLine, "dropped"), 0) << slowLine;
    EXPECT_EQ(Field(slowLine, "handled") + Field(slowLine, "dropped"), Field(slowLine, "received"))
        << slowLine;
    EXPECT_EQ(Field(slowLine, "instruments"), 12) << slowLine;

    const std::string launched = WithoutPids(launcher->Output());
    EXPECT_THAT(launched, StartsWith("channels: channel0.ini: process N: started\n"));
    EXPECT_THAT(launched, HasSubstr("channels: channel3.ini: process N: started\n"));
    EXPECT_THAT(launched, EndsWith("\nchannels: channel0.ini: process N: exit status 0\n"));
    EXPECT_LT(launched.find("channels: channel3.ini: process N: exit status 0\n"),
              launched.find("zce-recv channel=0 total="));
    for (const unsigned int channel : {0U, 3U}) {
        ExpectSame(launcher->LastLine("zce-recv channel=" + std::to_string(channel) + " "),
                   channel);
    }
}

TEST_F(Examples, TheLauncherEndsTheLastOneFirstAndRestartsNothing) {
    const std::string script =
        "case $1 in b) exit 3;; c) trap 'kill -PIPE $$' INT;; *) trap \"echo end $1; exit\" INT;; "
        "esac\n"
        "[ $(ps -o pgid= -p $$) -eq $$ ] && echo \"ready $1\"; while :; do sleep 0.02; done";
    const auto launcher =
        Run("launched", CHANNELS_PROGRAM, {"a", "b", "c", "d", "--", "sh", "-c", script, "sh"});
    for (const char* text : {"ready a", "ready c", "ready d", ": exit status 3"}) {
        ASSERT_TRUE(launcher->WaitFor(text)) << launcher->Output();
    }
    launcher->Signal(SIGINT);
    EXPECT_EQ(launcher->WaitEnd(), 1);
    const std::string output = WithoutPids(launcher->Output());
    EXPECT_THAT(output, HasSubstr("channels: b: process N: exit status 3\n"));
    EXPECT_THAT(output, EndsWith("end d\n"
                                 "channels: d: process N: exit status 0\n"
                                 "channels: c: process N: ended by signal 13\n"
                                 "end a\n"
                                 "channels: a: process N: exit status 0\n"));
    EXPECT_EQ(output.find("ready b"), std::string::npos);
}

TEST_F(Examples, NothingIsLeftOfALauncherThatIsKilled) {
    const auto launcher =
        Run("launched", CHANNELS_PROGRAM, {"60", "--", "sh", "-c", "echo up; exec sleep 60", "sh"});
    for (const char* text : {"up\n", ": process "}) {  // in whatever order they come
        ASSERT_TRUE(launcher->WaitFor(text)) << launcher->Output();
    }
    std::smatch found;
    const std::string output = launcher->Output();
    ASSERT_TRUE(std::regex_search(output, found, std::regex("process ([0-9]+)"))) << output;
    launcher->Signal(SIGKILL);
    EXPECT_EQ(launcher->WaitEnd(), 128 + SIGKILL);
    // Nobody but the system's first process may see to it that its entry goes: it is dead then,
    // too.
    const std::string status = "/proc/" + std::string(found[1]) + "/status";
    const auto bAlive = [&status] {
        const std::string text = ReadFile(status);
        return !text.empty() && text.find("State:\tZ") == std::string::npos;
    };
    for (int k = 0; k < 500 && bAlive(); ++k) {
        usleep(10'000);
    }
    EXPECT_FALSE(bAlive());
}

TEST_F(Examples, WhatCannotBeRunIsSaid) {
    struct Case {
        const char* command;
        int status;
        const char* output;
    };
    const Case cases[] = {
        {CHANNELS_PROGRAM, 2,
         "channels: CONFIG is missing; usage: channels CONFIG... -- PROGRAM [ARGUMENT...]\n"},
        {CHANNELS_PROGRAM " a b", 2,
         "channels: -- PROGRAM is missing; usage: channels CONFIG... -- PROGRAM [ARGUMENT...]\n"},
        {CHANNELS_PROGRAM " a -- ./none 2>&1 | grep -v started", 0,
         "channels: ./none: No such file or directory\n"
         "channels: a: process N: exit status 2\n"},
        {CHANNELS_PROGRAM " a -- true >/dev/full", 1, ""},
        {STRATEGY_RING_PROGRAM, 2, "usage: strategy-ring CONFIG [WORK]\n"},
        {STRATEGY_RING_PROGRAM " a 1x", 2, "usage: strategy-ring CONFIG [WORK]\n"},
    };
    for (const Case& one : cases) {
        const auto process = Run("run", "sh", {"-c", one.command});
        EXPECT_EQ(process->WaitEnd(), one.status) << one.command;
        EXPECT_EQ(WithoutPids(process->Output()), one.output) << one.command;
    }
}

}  // namespace

}  // namespace velatest
