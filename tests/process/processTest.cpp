#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <thread>

#include "ZceBoardMsg.h"
#include "memory/HostClock.h"
#include "sanitizers.h"
#include "tests/vendor/libraryFixture.h"

namespace {

using std::chrono::milliseconds;

// A zce-board of this test's own, its output in a file.
class BoardProcess {
  public:
    BoardProcess(const std::string& output, const std::vector<std::string>& arguments,
                 const std::string& zone = "", const char* program = ZCE_BOARD_PROGRAM)
        : m_output(output) {
        unlink(output.c_str());
        m_pid = fork();
        if (m_pid == 0) {
            if (!zone.empty()) {
                setenv("TZ", zone.c_str(), 1);
            }
            const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
            dup2(file, STDOUT_FILENO);
            dup2(file, STDERR_FILENO);
            std::vector<char*> argv{const_cast<char*>(program)};
            for (const std::string& argument : arguments) {
                argv.push_back(const_cast<char*>(argument.c_str()));
            }
            argv.push_back(nullptr);
            execv(program, argv.data());
            _exit(127);
        }
    }
    ~BoardProcess() {
        if (m_pid > 0) {
            End(SIGTERM);
        }
    }
    BoardProcess(const BoardProcess&) = delete;
    BoardProcess& operator=(const BoardProcess&) = delete;

    std::string Output() const {
        std::ifstream file(m_output);
        std::stringstream text;
        text << file.rdbuf();
        return text.str();
    }
    bool WaitFor(const std::string& text) const {
        for (int k = 0; k < 2000; ++k) {
            if (Output().find(text) != std::string::npos) {
                return true;
            }
            std::this_thread::sleep_for(milliseconds(5));
        }
        return false;
    }
    pid_t Pid() const { return m_pid; }
    // Its exit status, or minus the signal that ended it; `signal` 0 waits for its own end.
    int End(int signal) {
        if (signal != 0) {
            kill(m_pid, signal);
        }
        int status = 0;
        waitpid(m_pid, &status, 0);
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

  private:
    std::string m_output;
    pid_t m_pid = -1;
};

// A TZ under which the local time of day is hhmmss now.
std::string ZoneOf(int hour, int minute, int second) {
    const long now = time(nullptr) % 86400;
    long ahead = hour * 3600L + minute * 60L + second - now;
    ahead = (ahead + 86400 + 43200) % 86400 - 43200;
    char zone[32];
    const long away = ahead < 0 ? -ahead : ahead;
    snprintf(zone, sizeof(zone), "VIRT%c%02ld:%02ld:%02ld", ahead < 0 ? '+' : '-', away / 3600,
             away / 60 % 60, away % 60);
    return zone;
}

class Process : public boardtest::LibraryFixture {
  protected:
    Process() {
        std::string pattern = testing::TempDir() + "/zceboard.XXXXXX";
        m_dir = mkdtemp(pattern.data());
        WriteList("SR209\nCF301\nSR209C5000\nSPD-SR209&SR301\n");
    }
    ~Process() override {
        unlink((m_dir + "/list").c_str());
        unlink((m_dir + "/out").c_str());
        unlink((m_dir + "/out2").c_str());
        rmdir(m_dir.c_str());
    }

    void WriteList(const std::string& content) { std::ofstream(m_dir + "/list") << content; }
    std::unique_ptr<BoardProcess> Start(std::vector<std::string> more, const std::string& zone = "",
                                        const std::string& output = "out") {
        more.insert(more.begin(), {"--instruments", m_dir + "/list"});
        return std::make_unique<BoardProcess>(m_dir + "/" + output, more, zone);
    }
    // Starts one that is expected to refuse: its exit status and what it said.
    int Refused(const std::vector<std::string>& arguments, std::string& text) {
        BoardProcess board(m_dir + "/out2", arguments, "", m_program);
        const int status = board.End(0);
        text = board.Output();
        return status;
    }
    enyx_hw_core* Core(enyx_hw_accelerator* accelerator) {
        enyx_hw_core* core = nullptr;
        enyx_hw_core_enumerate(
            enyx_hw_core_tree_get_root(enyx_hw_enumerate_cores(Mmio(accelerator))), 474, &core, 1);
        return core;
    }
    static uint32_t Read(enyx_hw_core* core, uint32_t index) {
        const enyx_hw_register_description description{uint64_t{4} * index, 0, 32};
        uint64_t value = 0;
        EXPECT_EQ(enyx_hw_read(core, &description, &value), 0);
        return static_cast<uint32_t>(value);
    }
    static void Write(enyx_hw_core* core, uint32_t index, uint32_t value) {
        const enyx_hw_register_description description{uint64_t{4} * index, 0, 32};
        EXPECT_EQ(enyx_hw_write(core, &description, value), 0);
    }
    static void Subscribe(enyx_hw_core* core, uint32_t window, uint32_t entry, uint32_t mask) {
        Write(core, window + 1, mask);
        Write(core, window, entry * 64);
    }
    bool NameExists(uint32_t bus = 0) const { return access(ShmPath(bus).c_str(), F_OK) == 0; }

    std::string m_dir;
    const char* m_program = ZCE_BOARD_PROGRAM;  // that Refused starts
};

TEST_F(Process, MakesTheBoardAndRemovesItAtEachOfTheSignals) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        auto board = Start({"--seed", "9", "--rate", "100"});
        ASSERT_TRUE(board->WaitFor("zce-board bus=0 ready instruments=3+1 seed=9 rate=100\n"))
            << board->Output();
        EXPECT_NE(Accelerator(), nullptr);
        EXPECT_EQ(board->End(signal), 0);
        EXPECT_NE(board->Output().find("\nzce-board stopped bus=0 parsed=0 "), std::string::npos);
        EXPECT_FALSE(NameExists());
        EXPECT_EQ(Accelerator(), nullptr);
    }
}

TEST_F(Process, AKilledBoardIsGoneAndItsMemoryIsRemovedByTheNext) {
    auto board = Start({});
    ASSERT_TRUE(board->WaitFor("ready"));
    enyx_hw_core* core = Core(Accelerator());
    Write(core, 0x106, 77);
    board->End(SIGKILL);
    EXPECT_TRUE(NameExists());
    EXPECT_EQ(Accelerator(), nullptr);
    board = Start({});
    ASSERT_TRUE(board->WaitFor("ready"));
    EXPECT_EQ(Read(Core(Accelerator()), 0x106), 0U);
    EXPECT_EQ(Read(core, 0x106), 77U);
    EXPECT_EQ(board->End(SIGTERM), 0);
    EXPECT_FALSE(NameExists());
}

TEST_F(Process, ASecondBoardOnTheBusIsRefusedAndOneOnAnotherBusIsNot) {
    auto board = Start({});
    ASSERT_TRUE(board->WaitFor("ready"));
    auto second = Start({}, "", "out2");
    EXPECT_EQ(second->End(0), 2);
    EXPECT_EQ(second->Output(), "zce-board: bus 0: another zce-board is running on it (process " +
                                    std::to_string(board->Pid()) + ")\n");
    second = Start({"--bus", "1"}, "", "out2");
    ASSERT_TRUE(second->WaitFor("ready"));
    enyx_hw_core* zero = Core(Accelerator(0));
    enyx_hw_core* one = Core(Accelerator(1));
    Write(zero, 0x106, 5);
    EXPECT_EQ(Read(one, 0x106), 0U);
    EXPECT_EQ(second->End(SIGINT), 0);
    EXPECT_NE(Accelerator(0), nullptr);
    EXPECT_FALSE(NameExists(1));
}

TEST_F(Process, AUsageErrorSaysWhichAndExits2) {
    std::string text;
    EXPECT_EQ(Refused({}, text), 2);
    EXPECT_NE(text.find("--instruments"), std::string::npos) << text;
    // The misspelt one is told, and not what is missing without it.
    EXPECT_EQ(Refused({"--prodcuts", "all"}, text), 2);
    EXPECT_EQ(text, "zce-board: The following arguments were not expected: --prodcuts all\n");
    EXPECT_EQ(Refused({"--products", "all", "--bus", "10"}, text), 2);
    EXPECT_NE(text.find("--bus"), std::string::npos) << text;
    EXPECT_EQ(Refused({"--products", "some"}, text), 2);
    EXPECT_NE(text.find("some"), std::string::npos) << text;
    EXPECT_EQ(Refused({"--products", "all", "--rate", "-1"}, text), 2);
    EXPECT_NE(text.find("--rate"), std::string::npos) << text;
    EXPECT_EQ(Refused({"--products", "all", "--seed", "x"}, text), 2);
    EXPECT_NE(text.find("--seed"), std::string::npos) << text;
    for (const char* bad : {"-1", "1000001", "4294967297", "1e3", "1us", ""}) {
        EXPECT_EQ(Refused({"--products", "all", "--access-ns", bad}, text), 2) << bad;
        EXPECT_NE(text.find("--access-ns"), std::string::npos) << text;
    }
    EXPECT_EQ(Refused({"--products", "all", "--access-ns", "1000001"}, text), 2);
    EXPECT_NE(text.find("Value 1000001 not in range 0 to 1000000"), std::string::npos) << text;
    EXPECT_EQ(Refused({"--products", "all", "--what"}, text), 2);
    EXPECT_NE(text.find("--what"), std::string::npos) << text;
    EXPECT_EQ(Refused({"--products", "all", "--instruments", m_dir + "/list"}, text), 2);
    EXPECT_EQ(Refused({"--help"}, text), 0);
    for (const char* option :
         {"--bus", "--instruments", "--products", "--seed", "--rate", "--access-ns"}) {
        EXPECT_NE(text.find(option), std::string::npos) << option;
    }
    EXPECT_FALSE(NameExists());
}

TEST_F(Process, TellsItsVersionAndWhereTheRestIsTold) {
    std::string text;
    EXPECT_EQ(Refused({"--version"}, text), 0);
    EXPECT_EQ(text, "zce-board " ZCE_VERSION "\n");
    EXPECT_EQ(Refused({"ctl", "--version"}, text), 0);
    EXPECT_EQ(text, "zce-board ctl " ZCE_VERSION "\n");
    EXPECT_EQ(Refused({"--help"}, text), 0);
    EXPECT_NE(text.find("zce-board ctl --help. Manual pages: zce-board(1), zce-board-ctl(1).\n"),
              std::string::npos)
        << text;
    EXPECT_EQ(Refused({"--products", "all", "--clock-file", "/nowhere/clock"}, text), 2);
    EXPECT_EQ(text, "zce-board: --clock-file /nowhere/clock: No such file or directory\n");
    WriteList("[exchange]\nproducts = all\n[clock]\nstart = 09:00:00\nfile = /nowhere/x\n");
    EXPECT_EQ(Refused({"--scenario", m_dir + "/list"}, text), 2);
    EXPECT_EQ(text, "zce-board: " + m_dir +
                        "/list:5: [clock] file = /nowhere/x: No such file or directory\n");
    EXPECT_FALSE(NameExists());
}

TEST_F(Process, AnOutputThatCannotBeWrittenIsAnErrorInOneLine) {
    std::string text;
    const auto shell = [this, &text](const std::string& line) {
        m_program = "/bin/bash";
        return Refused({"-c", "board='" ZCE_BOARD_PROGRAM "'; " + line}, text);
    };
    for (const std::string arguments :
         {"--help", "--version", "--products all --list-instruments", "ctl --help", "ctl --version",
          "ctl fault kinds", "ctl fault kinds --json"}) {
        const std::string name = arguments[0] == 'c' ? "zce-board ctl" : "zce-board";
        EXPECT_EQ(shell("$board " + arguments + " >/dev/full"), 2) << arguments;
        EXPECT_EQ(text, name + ": standard output: No space left on device\n") << arguments;
        // Nobody reads: the reader has ended before anything is written.
        EXPECT_EQ(shell("exec 3> >(:); wait $!; $board " + arguments + " >&3"), 2) << arguments;
        EXPECT_EQ(text, name + ": standard output: Broken pipe\n") << arguments;
    }
}

TEST_F(Process, StandardInputIsReadInPlaceOfAFile) {
    std::string text;
    const auto fed = [this, &text](const std::string& input, const std::string& arguments) {
        m_program = "/bin/bash";
        WriteList(input);
        return Refused({"-c", "cat '" + m_dir + "/list' | '" ZCE_BOARD_PROGRAM "' " + arguments},
                       text);
    };
    EXPECT_EQ(fed("SR209\nCF301\n", "--instruments - --list-instruments"), 0);
    EXPECT_EQ(text, "0,0,SR209\n1,0,CF301\n");
    EXPECT_EQ(fed("SR209\nSR209\n", "--instruments - --list-instruments"), 2);
    EXPECT_EQ(text, "zce-board: standard input:2: \"SR209\" is there twice\n");
    EXPECT_EQ(fed("[exchange]\nproducts = all\n[clock]\nstart = 9\n", "--scenario -"), 2);
    EXPECT_EQ(text,
              "zce-board: standard input:4: [clock] start = 9: a time of day hh:mm:ss is needed\n");
    EXPECT_EQ(fed("[exchange]\ninstruments = list\n[clock]\nstart = 09:00:00\n",
                  "--scenario - --list-instruments <<<''"),
              2);
    EXPECT_EQ(text,
              "zce-board: standard input: [exchange]: one of products and instruments is "
              "needed\n");
    EXPECT_EQ(fed("[config]\nL1_DSTIP = 239.1.1\n", "--products all --feeds -"), 2);
    EXPECT_EQ(text,
              "zce-board: standard input:2: [config] l1_dstip = 239.1.1: an IP address is four "
              "numbers from 0 to 255, like 239.1.1.5\n");
    EXPECT_EQ(fed("[x]\n", "--products all --feeds -"), 2);
    EXPECT_EQ(text, "zce-board: standard input: there is no section [config]\n");
    EXPECT_EQ(fed("", "--instruments - --feeds -"), 2);
    EXPECT_EQ(text, "zce-board: --feeds: standard input is that of --instruments already\n");
    EXPECT_EQ(fed("", "--scenario - </dev/zero"), 2);
    EXPECT_EQ(text, "zce-board: standard input: more than 16 MiB are no INI file\n");
    EXPECT_EQ(fed("", "--scenario - <&-"), 2);
    EXPECT_EQ(text, "zce-board: standard input: Bad file descriptor\n");
}

TEST_F(Process, ABadInstrumentFileIsNamedWithFileAndLine) {
    std::string text;
    WriteList("SR209\n\nSR209\n");
    EXPECT_EQ(Refused({"--instruments", m_dir + "/list"}, text), 2);
    EXPECT_EQ(text, "zce-board: " + m_dir + "/list:3: \"SR209\" is there twice\n");
    EXPECT_EQ(Refused({"--instruments", m_dir + "/absent"}, text), 2);
    EXPECT_EQ(text, "zce-board: " + m_dir + "/absent: No such file or directory\n");
    EXPECT_FALSE(NameExists());
}

TEST_F(Process, ABadFeedFileIsNamedAndNothingIsLeftBehind) {
    std::string text;
    std::ofstream(m_dir + "/list") << "[config]\nL1_DSTIP = 239.1.1\n";
    EXPECT_EQ(Refused({"--products", "all", "--feeds", m_dir + "/list"}, text), 2);
    EXPECT_EQ(text,
              "zce-board: " + m_dir +
                  "/list:2: [config] l1_dstip = 239.1.1: an IP address is four numbers from 0 "
                  "to 255, like 239.1.1.5\n");
    EXPECT_EQ(Refused({"--products", "all", "--feeds", ""}, text), 2);
    EXPECT_EQ(text, "zce-board: : No such file or directory\n");
    EXPECT_EQ(Refused({"--products", "all", "--feeds"}, text), 2);
    EXPECT_NE(text.find("--feeds"), std::string::npos) << text;
    EXPECT_FALSE(NameExists());
}

TEST_F(Process, AnImpossiblePrefixIsAStartError) {
    setenv("ZCE_BOARD_SHM_PREFIX", "no/such", 1);
    std::string text;
    EXPECT_EQ(Refused({"--products", "all"}, text), 2);
    EXPECT_EQ(text, "zce-board: ZCE_BOARD_SHM_PREFIX cannot be part of a name in shared memory\n");
}

TEST_F(Process, ListsItsInstruments) {
    std::string text;
    EXPECT_EQ(Refused({"--instruments", m_dir + "/list", "--list-instruments"}, text), 0);
    EXPECT_EQ(text, "0,0,SR209\n1,0,CF301\n2,0,SR209C5000\n0,1,SPD-SR209&SR301\n");
}

TEST_F(Process, ItsClockIsTheLocalTimeUnderItsTZ) {
    auto board = Start({}, ZoneOf(8, 54, 40));
    ASSERT_TRUE(board->WaitFor("ready"));
    std::this_thread::sleep_for(milliseconds(20));
    enyx_hw_core* core = Core(Accelerator());
    const uint32_t first = Read(core, 0x104);
    EXPECT_GE(first, 85440U);
    EXPECT_LE(first, 85455U);
    std::this_thread::sleep_for(milliseconds(1050));
    EXPECT_GT(Read(core, 0x104), first);
    EXPECT_GE(Read(core, 0x105), Read(core, 0x104) - 1);
    EXPECT_TRUE(board->WaitFor("status bus=0 time=08:54:")) << "one line a second";
    EXPECT_TRUE(board->WaitFor(" phase=auction learnt=")) << board->Output();
}

TEST_F(Process, AccessesToItsRegistersTakeAsLongAsItsOptionSays) {
    constexpr int64_t nearly = 199'900;  // two clocks
    auto board = Start({"--access-ns", "200000"});
    ASSERT_TRUE(board->WaitFor("ready"));
    enyx_hw_core* core = Core(Accelerator());
    for (int k = 0; k < 5; ++k) {
        int64_t begin = ZceBoard::RealNs();
        Write(core, 0x106, 20261120);
        EXPECT_GE(ZceBoard::RealNs() - begin, nearly);
        begin = ZceBoard::RealNs();
        EXPECT_EQ(Read(core, 0x106), 20261120U);
        EXPECT_GE(ZceBoard::RealNs() - begin, nearly);
    }
}

TEST_F(Process, AllBoardsOfAScenarioHaveTheAccessTime) {
    std::ofstream(m_dir + "/list") << "[board]\nbus = 2,5\n[exchange]\nproducts = all\n"
                                      "[clock]\nstart = 08:55:00\n";
    const BoardProcess boards(m_dir + "/out",
                              {"--scenario", m_dir + "/list", "--access-ns", "1000000"});
    ASSERT_TRUE(boards.WaitFor("bus=5")) << boards.Output();
    for (const uint32_t bus : {2U, 5U}) {
        enyx_hw_core* core = Core(Accelerator(bus));
        const int64_t begin = ZceBoard::RealNs();
        Read(core, 0x106);
        EXPECT_GE(ZceBoard::RealNs() - begin, 999'900);
    }
}

TEST_F(Process, WhatItSaysItSentIsWhatTheReaderGot) {
    auto board = Start({"--rate", "20000", "--broadcast-cycle", "0.05"}, ZoneOf(8, 50, 0));
    ASSERT_TRUE(board->WaitFor("ready"));
    enyx_hw_accelerator* accelerator = Accelerator();
    enyx_hw_core* core = Core(accelerator);
    enyx_hw_a2c_stream* master = OpenA2c(accelerator, "CUSTOM_CHAN0_DATA");
    enyx_hw_a2c_stream* other = OpenA2c(accelerator, "CUSTOM_CHAN3_DATA");
    ASSERT_NE(master, nullptr);
    ASSERT_NE(other, nullptr);
    Subscribe(core, 0x11000, 0, 0x9);
    Subscribe(core, 0x11000, 2, 0x1);
    Subscribe(core, 0x12000, 0, 0x8);
    Write(core, 0x12, 1);
    Write(core, 0x11, 3);
    std::map<uint32_t, uint64_t> counts[2];
    uint64_t gaps = 0;
    const auto drain = [&] {
        int channel = 0;
        for (enyx_hw_a2c_stream* stream : {master, other}) {
            uint64_t& last = counts[channel][0];
            for (const auto& message : Drain(stream)) {
                uint32_t type = 0;
                memcpy(&type, message.data(), sizeof(type));
                ++counts[channel][type];
                if (type != 2) {
                    ZceBoardQuote_t quote;
                    ZceBoardReadQuote(message.data() + 12, &quote);
                    gaps += quote.ulSeq != last + 1 ? 1 : 0;
                    last = quote.ulSeq;
                }
            }
            ++channel;
        }
    };
    for (int k = 0; k < 60; ++k) {
        std::this_thread::sleep_for(milliseconds(5));
        drain();
    }
    EXPECT_EQ(board->End(SIGINT), 0);
    drain();
    EXPECT_EQ(gaps, 0U);
    for (const int channel : {0, 1}) {
        auto& count = counts[channel];
        std::stringstream line;
        line << "zce-board channel=" << channel * 3 << " type2=" << count[2]
             << " type17=" << count[17] << " type18=" << count[18] << " type19=" << count[19]
             << " type20=" << count[20]
             << " total=" << count[17] + count[18] + count[19] + count[20]
             << " dropped=0 openings=1 bus=0\n";
        EXPECT_NE(board->Output().find(line.str()), std::string::npos)
            << line.str() << board->Output();
        EXPECT_GT(count[17], 0U);
        EXPECT_GT(count[19], 0U);
    }
    EXPECT_GT(counts[0][2], 0U);
    EXPECT_EQ(counts[1][2], 0U);
    EXPECT_EQ(counts[0][18], 0U);
    EXPECT_GT(counts[1][18], 0U);
    uint32_t delivered = 0;
    EXPECT_EQ(enyx_hw_a2c_stream_stats_get_packet_count(other, &delivered), 0);
    EXPECT_EQ(delivered, counts[1][17] + counts[1][18] + counts[1][19] + counts[1][20]);
    enyx_hw_a2c_stream_destroy(master);
    enyx_hw_a2c_stream_destroy(other);
}

TEST_F(Process, TheFullListStaysUnder64MiBResident) {
    BoardProcess board(m_dir + "/out",
                       {"--products", "all", "--rate", "200000", "--broadcast-cycle", "0.05"},
                       ZoneOf(8, 50, 0));
    ASSERT_TRUE(board.WaitFor("ready"));
    enyx_hw_accelerator* accelerator = Accelerator();
    enyx_hw_core* core = Core(accelerator);
    std::vector<enyx_hw_a2c_stream*> streams;
    streams.reserve(16);
    for (int channel = 0; channel < 16; ++channel) {
        streams.push_back(OpenA2c(accelerator, "CUSTOM_CHAN" + std::to_string(channel) + "_DATA"));
    }
    for (uint32_t entry = 0; entry < 4095; ++entry) {
        Subscribe(core, 0x11000, entry, 0xFFFF);
    }
    Write(core, 0x11, 3);
    // Nobody reads: all the rings fill up, which is all the memory that there is.
    bool full = false;
    for (int k = 0; k < 400 && !full; ++k) {
        std::this_thread::sleep_for(milliseconds(10));
        uint32_t pressed = 0;
        enyx_hw_a2c_stream_stats_get_backpressure(streams[15], &pressed);
        full = pressed != 0;
    }
    EXPECT_TRUE(full);
    std::ifstream status("/proc/" + std::to_string(board.Pid()) + "/status");
    std::string line;
    long resident = 0;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            resident = std::stol(line.substr(6));
        }
    }
    EXPECT_GT(resident, 32 * 1024);
    if (!velatest::underSanitizer) {  // whose own memory comes on top
        EXPECT_LT(resident, 64 * 1024);
    }
    for (enyx_hw_a2c_stream* stream : streams) {
        enyx_hw_a2c_stream_destroy(stream);
    }
}

}  // namespace
