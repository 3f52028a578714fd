#include <gmock/gmock.h>
#include <pty.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): SIGTERM
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "market.h"

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace velatest {

namespace {

using std::chrono::seconds;

// Tells each signal that it gets, waits for another, and ends with 9 after the second.
constexpr const char* TELLS_SIGNALS =
    "trap 'echo got TERM; n=$((n + 1))' TERM; trap 'echo got INT; n=$((n + 1))' INT; "
    "trap 'echo got HUP; n=$((n + 1))' HUP; n=0; echo waiting; "
    "while [ $n -lt 2 ]; do sleep 0.02; done; exit 9";

// A board with a command, on a machine whose zone is far from the exchange's.
class Command : public Market {
  protected:
    Command() {
        m_environment.emplace_back("TZ=FAR+07:31");
        m_environment.emplace_back("TMPDIR=" + Path("tmp"));
        std::filesystem::create_directory(Path("tmp"));
        WriteFile(Path("list"), "SR301\nSR305\nSPD-SR301&SR305\n");
    }

    std::unique_ptr<Process> Start(std::vector<std::string> arguments,
                                   const std::vector<std::string>& command) {
        arguments.insert(arguments.begin(), ZCE_BOARD_PROGRAM);
        arguments.emplace_back("--");
        arguments.insert(arguments.end(), command.begin(), command.end());
        return std::make_unique<Process>(arguments, Where("together"));
    }
    // With the short list; the exit status, and what both said.
    int Run(std::vector<std::string> arguments, const std::vector<std::string>& command) {
        arguments.insert(arguments.end(), {"--instruments", Path("list")});
        const auto process = Start(arguments, command);
        const int status = process->WaitEnd();
        m_said = process->Output();
        return status;
    }
    int RunShell(const std::vector<std::string>& arguments, const std::string& script) {
        return Run(arguments, {"sh", "-c", script});
    }
    // Nothing of a board or its clock is left.
    void ExpectNothingLeft() const {
        EXPECT_TRUE(std::filesystem::is_empty(Path("tmp")));
        const std::string prefix = "test" + std::to_string(getpid()) + "-zce";
        for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
            EXPECT_THAT(entry.path().filename().string(), Not(StartsWith(prefix)));
        }
    }

    std::string m_said;
};

TEST_F(Command, SeesTheListLearntAndMarketDataAtAnyHour) {
    LetReceiversRest();
    WriteFile(Path("config.ini"), "[config]\ndevice = xilinx0:0\n" + m_rules);
    EXPECT_EQ(Run({"--at", "08:55:02", "--clock-speed", "4", "--rate", "1000", "--broadcast-cycle",
                   "0.5"},
                  {ZCE_RECV_PROGRAM, Path("config.ini"), "--print", "1", "--seconds", "4"}),
              0);
    EXPECT_THAT(m_said, HasSubstr("Call auction time has expired, totally parse "));
    EXPECT_THAT(m_said, HasSubstr("All channel subs over."));
    EXPECT_THAT(m_said, HasSubstr("\nzce-recv type="));
    const std::string all = "\n" + m_said;
    const auto line = [&all](const std::string& start) {
        const size_t at = all.rfind("\n" + start);
        return at == std::string::npos ? "" : all.substr(at + 1, all.find('\n', at + 1) - at - 1);
    };
    const std::string got = line("zce-recv channel=0 ");
    EXPECT_GT(Field(got, "total"), 100) << m_said;
    EXPECT_EQ(Field(got, "gaps"), 0) << got;
    // What lay in the ring when the receiver ended was sent, and not received.
    EXPECT_GE(Field(line("opening channel=0 number=1 "), "total"), Field(got, "total"));
    ExpectNothingLeft();
}

TEST_F(Command, HasTheBoardsClockWhichIsTheExchangesWhateverTheZone) {
    EXPECT_EQ(RunShell({"--at", "2026-11-20 23:59:50"}, "date '+%F %T %z' >clock; exit 7"), 7);
    EXPECT_THAT(ReadFile(Path("together/clock")), StartsWith("2026-11-20 23:59:5"));
    EXPECT_THAT(ReadFile(Path("together/clock")), HasSubstr(" +0800\n"));
    // It jumps with the board's, and goes at its speed.
    const std::string ctl = std::string("'") + ZCE_BOARD_PROGRAM + "' ctl --bus 3 ";
    EXPECT_EQ(RunShell({"--at", "08:54:50", "--bus", "3", "--clock-speed", "100"},
                       ctl + "status >status; date +%T >clock; " + ctl +
                           "advance 12:00:00 >status2; date +%T >>clock; sleep 0.5; date +%T "
                           ">>clock"),
              0);
    EXPECT_THAT(ReadFile(Path("together/status")), HasSubstr(" 08:5"));
    EXPECT_THAT(ReadFile(Path("together/status")), HasSubstr(", speed 100\n"));
    const std::string times = ReadFile(Path("together/clock"));
    EXPECT_THAT(times, StartsWith("08:5"));
    EXPECT_THAT(times.substr(9), StartsWith("12:00:"));
    const long later = std::strtol(times.substr(18 + 3, 2).c_str(), nullptr, 10) * 60 +
                       std::strtol(times.substr(18 + 6, 2).c_str(), nullptr, 10);
    EXPECT_GE(later, 45) << times;
    ExpectNothingLeft();
}

TEST_F(Command, HasStandardOutputToItselfAndFindsTheBoardsLibrary) {
    const std::string board = std::string("'") + ZCE_BOARD_PROGRAM + "' --at 08:54:50 " +
                              "--instruments '" + Path("list") + "' -- ";
    m_environment.emplace_back("FAKETIME=+7d");
    m_environment.emplace_back("LD_LIBRARY_PATH=/somewhere");
    const auto output = [this](const std::string& line) {
        Process process({"sh", "-c", line + " 2>errors"}, Where("together"));
        EXPECT_EQ(process.WaitEnd(), 0);
        return process.Output();
    };
    const std::string libraries = std::filesystem::path(ENYX_LIBRARY).parent_path().string();
    EXPECT_EQ(output(board + "sh -c 'echo \"$LD_LIBRARY_PATH $FAKETIME\"'"),
              libraries + ":/somewhere \n");
    EXPECT_EQ(output("LD_PRELOAD=/nowhere/libfaketimeMT.so.1:" LIBFAKETIME " " + board +
                     "sh -c 'echo \"$LD_PRELOAD\"'"),
              LIBFAKETIME "\n");
    // An installed one, with its library beside it.
    std::filesystem::create_directories(Path("usr/bin"));
    std::filesystem::create_directories(Path("usr/lib/zce-board"));
    std::filesystem::copy_file(ZCE_BOARD_PROGRAM, Path("usr/bin/zce-board"));
    std::filesystem::copy_file(ENYX_LIBRARY, Path("usr/lib/zce-board/libenyx-hw-c.so.5"));
    EXPECT_EQ(output("'" + Path("usr/bin/zce-board") + "' --at 08:54:50 --instruments '" +
                     Path("list") + "' -- sh -c 'echo \"$LD_LIBRARY_PATH\"'"),
              std::filesystem::canonical(Path("usr/lib/zce-board")).string() + ":/somewhere\n");
}

TEST_F(Command, HasTheSignalsAndTheFilesThatItHasWithoutABoard) {
    const std::string look =
        "sh -c 'ls -l /proc/$$/fd | grep -c zce-board; grep -e SigIgn -e SigBlk /proc/$$/status; "
        "cat'";
    const auto output = [this](const std::string& command) {
        Process process({"sh", "-c", "echo input | " + command + " 2>errors"}, Where("together"));
        EXPECT_EQ(process.WaitEnd(), 0);
        return process.Output();
    };
    const std::string alone = output(look);
    EXPECT_THAT(alone, StartsWith("0\nSigBlk:"));
    EXPECT_THAT(alone, HasSubstr("\ninput\n"));
    EXPECT_EQ(output(std::string("'") + ZCE_BOARD_PROGRAM + "' --products all -- " + look), alone);
    // A command that becomes another program leaves no memory of libfaketime.
    const std::string left =
        output("'" + std::string(ZCE_BOARD_PROGRAM) +
               "' --products all -- sh -c 'ls /dev/shm/*faketime_s*_$$; exec true'");
    EXPECT_THAT(left, HasSubstr("/dev/shm/faketime_shm_"));
    EXPECT_THAT(left, HasSubstr("/dev/shm/sem.faketime_sem_"));
    std::istringstream names(left);
    for (std::string name; std::getline(names, name);) {
        EXPECT_FALSE(std::filesystem::exists(name)) << name;
    }
    // What the starter ignores, nohup for one, the command ignores as well.
    EXPECT_EQ(output("(trap '' HUP CHLD; '" + std::string(ZCE_BOARD_PROGRAM) +
                     "' --products all -- sh -c 'kill -HUP $$; echo here')"),
              "here\n");
}

TEST_F(Command, ItsEndIsTheEndOfAll) {
    EXPECT_EQ(RunShell({}, "kill -KILL $$"), 137);
    EXPECT_THAT(m_said, HasSubstr("zce-board bus=0 ready "));
    EXPECT_THAT(m_said, HasSubstr("\nzce-board stopped bus=0 "));
    EXPECT_EQ(Run({}, {"/nowhere/app"}), 127);
    EXPECT_THAT(m_said, HasSubstr("\nzce-board: /nowhere/app: No such file or directory\n"));
    EXPECT_EQ(Run({}, {Path("list")}), 126);
    EXPECT_THAT(m_said, HasSubstr("\nzce-board: " + Path("list") + ": Permission denied\n"));
    ExpectNothingLeft();
}

TEST_F(Command, WhatCannotBeGivenToItIsSaidBeforeThereIsABoard) {
    for (const char* at : {"9", "08:54", "24:00:00", "2026-02-30 08:00:00", "2026-11-20",
                           "2026/11/20 08:00:00", "2026-11-20 ", ""}) {
        EXPECT_EQ(RunShell({"--at", at}, "touch started"), 2) << at;
        EXPECT_EQ(m_said, "zce-board: --at: \"" + std::string(at) +
                              "\" is no time of day: HH:MM:SS is needed, or YYYY-MM-DD HH:MM:SS\n");
    }
    EXPECT_EQ(RunShell({"--clock-speed", "0"}, "touch started"), 2);
    EXPECT_EQ(m_said, "zce-board: --clock-speed: \"0\" is no number from 0.001 to 1000\n");
    EXPECT_EQ(Start({"--replay", "day.pcap", "--at", "08:00:00"}, {"true"})->WaitEnd(), 2);
    EXPECT_EQ(ReadFile(Path("together/output")), "zce-board: --at excludes --replay\n");
    EXPECT_EQ(Run({}, {}), 2);  // "--" is in front of the list then
    m_environment.emplace_back("ZCE_BOARD_LIBFAKETIME=/nowhere/libfaketime.so.1");
    EXPECT_EQ(RunShell({"--at", "08:54:50"}, "touch started"), 2);
    EXPECT_EQ(m_said,
              "zce-board: libfaketime is not there, with which a command has the board's clock: "
              "install the package faketime, or say in ZCE_BOARD_LIBFAKETIME where it is\n");
    m_environment.back() = "TMPDIR=/nowhere";
    EXPECT_EQ(RunShell({"--at", "08:54:50"}, "touch started"), 2);
    EXPECT_EQ(m_said,
              "zce-board: cannot make a directory for the clock file in /nowhere: No such file or "
              "directory\n");
    EXPECT_FALSE(std::filesystem::exists(Path("together/started")));
    ExpectNothingLeft();
}

TEST_F(Command, GetsTheSignalsThatTheBoardIsSentAndIsWaitedFor) {
    const auto process = Start({"--instruments", Path("list")}, {"sh", "-c", TELLS_SIGNALS});
    ASSERT_TRUE(process->WaitFor("waiting\n")) << process->Output();
    process->Signal(SIGTERM);
    ASSERT_TRUE(process->WaitFor("got TERM\n")) << process->Output();
    EXPECT_TRUE(process->Running());
    EXPECT_THAT(process->Output(), Not(HasSubstr("stopped")));
    process->Signal(SIGINT);
    EXPECT_EQ(process->WaitEnd(), 9) << process->Output();
    EXPECT_THAT(process->Output(), HasSubstr("\ngot INT\nzce-board stopped "));
    ExpectNothingLeft();
}

TEST_F(Command, IsToldToEndIfTheBoardIsKilled) {
    const auto process =
        Start({"--instruments", Path("list")},
              {"sh", "-c",
               "trap 'echo over >over; exit' TERM; echo waiting; while :; do sleep 0.02; done"});
    ASSERT_TRUE(process->WaitFor("waiting\n")) << process->Output();
    process->Signal(SIGKILL);
    EXPECT_NE(process->WaitEnd(), 0);
    for (int tries = 0; tries < 500 && ReadFile(Path("together/over")) != "over\n"; ++tries) {
        usleep(20'000);
    }
    EXPECT_EQ(ReadFile(Path("together/over")), "over\n");
}

TEST_F(Command, GetsAKeyOfTheTerminalOnce) {
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        EnterEnvironment(Where("together"));
        execl(ZCE_BOARD_PROGRAM, ZCE_BOARD_PROGRAM, "--instruments", Path("list").c_str(), "--",
              "sh", "-c", TELLS_SIGNALS, nullptr);
        _exit(99);
    }
    std::string said;
    const auto readUntil = [terminal, &said](const std::string& text) {
        std::array<char, 512> bytes{};
        ssize_t got = 0;
        while (said.find(text) == std::string::npos &&
               (got = read(terminal, bytes.data(), bytes.size())) > 0) {
            said.append(bytes.data(), static_cast<size_t>(got));
        }
        return said.find(text) != std::string::npos;
    };
    ASSERT_TRUE(readUntil("waiting"));
    ASSERT_EQ(write(terminal, "\x03", 1), 1);
    EXPECT_TRUE(readUntil("got INT"));
    usleep(100'000);  // a second one would have come by now
    kill(child, SIGTERM);
    EXPECT_TRUE(readUntil("stopped"));
    int status = 0;
    waitpid(child, &status, 0);
    close(terminal);
    EXPECT_EQ(WEXITSTATUS(status), 9) << said;
    EXPECT_EQ(said.find("got INT"), said.rfind("got INT")) << said;
    EXPECT_THAT(said, HasSubstr("got TERM"));
}

TEST_F(Command, IsToldToEndASecondAfterAScenariosEndAndItsStartCanBeMoved) {
    WriteFile(Path("day.ini"),
              "[exchange]\ninstruments = list\n"
              "[clock]\nstart = 20:00:00\nend = 09:00:10\nspeed = 1\n");
    const auto process =
        Start({"--scenario", Path("day.ini"), "--at", "09:00:00", "--clock-speed", "50"},
              {"sh", "-c", "trap 'exit 4' TERM; date +%T; while :; do sleep 0.02; done"});
    EXPECT_EQ(process->WaitEnd(), 4) << process->Output();
    EXPECT_THAT(process->Output(), HasSubstr("\n09:00:0"));
    ExpectNothingLeft();
}

}  // namespace

}  // namespace velatest
