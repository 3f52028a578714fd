#include "run.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string_view>

#include "IVelaZceMdApi.h"
#include "log/elog.h"
#include "quickBoard.h"
#include "quickClock.h"

namespace anomaly {

namespace {

constexpr const char* cacheText =
    "7,SR209\n8,CF209\n9,SR209C5000\n20,SPD-SR209&SR301\n"
    "contract's_corresponding_time=20261120085510\nbin_file_over_tag";

constexpr const char* iniText =
    "[config]\ndevice=xilinx0:%d\nczce_level1=enabled\n"
    "L5_DSTMAC=01:00:5e:00:00:01\nL5_DSTIP=239.1.1.1\nL5_DSTPORT=30001\n"
    "L5_SRCMAC=01:00:5e:00:00:02\nL5_SRCIP=10.1.1.1\nL5_SRCPORT=30002\n"
    "[channel0]\ninsts=SR209,CF\noptions=recv\nips=recv\nspd=recv\n"
    "[channel3]\ninsts=all\noptions=norecv\n";

constexpr std::uint64_t subscribedMasks = 9 * 8 + 9 * 9 + 1 * 10 + 2 * 21;

class CountingSpi : public IVelaZceMdSpi {
  public:
    void OnDmaType17Msg(const unsigned char* /*body*/) override { ++TheReport().callbacks; }
    void OnDmaType18Msg(const unsigned char* /*body*/) override { ++TheReport().callbacks; }
    void OnDmaType19Msg(const unsigned char* /*body*/) override { ++TheReport().callbacks; }
    void OnDmaType20Msg(const unsigned char* /*body*/) override { ++TheReport().callbacks; }
};

CountingSpi s_spi;
constexpr int descriptorMax = 256;
std::array<bool, descriptorMax> s_openBefore;

bool IsOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

// Whatever ended the process.
void EnterEnd() {
    Disarm();
    QuickBoard::EnterEnd();
    Report& report = TheReport();
    for (int descriptor = 0; descriptor < descriptorMax; ++descriptor) {
        if (!IsOpen(descriptor) || s_openBefore.at(static_cast<std::size_t>(descriptor))) {
            continue;
        }
        std::array<char, 32> link{};
        std::array<char, 512> target{};
        std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", descriptor);
        const ssize_t length = readlink(link.data(), target.data(), target.size() - 1);
        const bool cache =
            length > 0 &&
            std::string_view(target.data(), static_cast<std::size_t>(length)).ends_with("/bin");
        ++(cache ? report.cacheFiles : report.openFiles);
    }
    report.ended = true;
}

// A map packet with these records; returns its size.
unsigned int MakeMapPacket(unsigned char* packet) {
    struct Inst {
        unsigned char index;
        std::string_view name;
    };
    constexpr std::array<Inst, 4> insts = {
        {{7, "SR209"}, {8, "CF209"}, {9, "SR209C5000"}, {20, "SPD-SR209&SR301"}}};
    std::memset(packet, 0, 14);
    packet[0] = 2;
    unsigned int at = 14;
    for (const Inst& inst : insts) {
        const unsigned int head = at == 14 ? 9 : 5;
        std::memset(packet + at, 0, head);
        packet[at + 1] = static_cast<unsigned char>(head + inst.name.size());
        packet[at + head - 1] = inst.index;
        std::memcpy(packet + at + head, inst.name.data(), inst.name.size());
        at += head + static_cast<unsigned int>(inst.name.size());
    }
    packet[13] = static_cast<unsigned char>(at - 14);
    return at;
}

// Polls until all that waits is received, also if one poll fails.
void Poll(IVelaZceMdApi& api, int packets) {
    for (int poll = 0; poll <= packets; ++poll) {
        api.VelaRecv();
    }
}

// Every packet comes several times, as the exchange repeats its broadcast.
void Learn(IVelaZceMdApi& api) {
    constexpr int repeats = 3;
    std::array<unsigned char, 512> packet{};
    const unsigned int size = MakeMapPacket(packet.data());
    for (const unsigned int time : {85000U, 85510U, 85511U}) {
        SetClock(time);
        for (int repeat = 0; repeat < repeats; ++repeat) {
            QuickBoard::Queue(packet.data(), size);
        }
        Poll(api, repeats);
    }
}

void Receive(IVelaZceMdApi& api) {
    std::array<unsigned char, 16> message{};
    for (message[0] = 17; message[0] <= 20; ++message[0]) {
        QuickBoard::Queue(message.data(), message.size());
    }
    Poll(api, 4);
}

void RunScenario(const Scenario& scenario) {
    Report& report = TheReport();
    IVelaZceMdApi* const api = IVelaZceMdApi::CreateVelaZceMdApi();
    report.created = api != nullptr;
    if (api == nullptr) {
        return;
    }
    report.startResult = api->VelaStart(s_spi, "test.ini");
    report.started = report.startResult == 0;
    if (report.started) {
        if (scenario.learns) {
            Learn(*api);
        }
        Receive(*api);
    }
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);
    report.destroyed = true;
}

void PrepareBoard(const Scenario& scenario) {
    QuickBoard::Clear();
    QuickBoard::SetTradeDate(scenario.boardDate);
    SetClock(scenario.time);
    if (!scenario.learns) {
        QuickBoard::SetDecode(3);
        QuickBoard::SetName(0, 7, "SR209");
        QuickBoard::SetName(0, 8, "CF209");
        QuickBoard::SetName(0, 9, "SR209C5000");
        QuickBoard::SetName(1, 20, "SPD-SR209&SR301");
    }
}

// "LEVEL text" of a log line, "OUT text" of any other.
std::string Strip(const std::string& line) {
    constexpr std::size_t labelBytes = 9;
    constexpr std::size_t headBytes = labelBytes + 19 + 6;  // label, time, tag
    if (line.size() < headBytes || line[0] != '[' || line.find("][fpga]") != headBytes - 7) {
        return "OUT " + line;
    }
    return line.substr(1, line.find_first_of(" ]") - 1) + " " + line.substr(headBytes);
}

struct Figures : testing::Environment {
    std::array<std::uint32_t, kindNum> points{};

    static std::string Number(std::uint32_t number) {
        std::string text = std::to_string(number);
        for (std::size_t at = text.size(); at > 3; at -= 3) {
            text.insert(at - 3, ",");
        }
        return text;
    }
    void TearDown() override {
        std::uint32_t total = 0;
        std::string list;
        for (std::size_t kind = 0; kind < kindNum; ++kind) {
            if (points.at(kind) != 0) {
                total += points.at(kind);
                list += std::string(", ") + NameOf(static_cast<Kind>(kind)) + " " +
                        Number(points.at(kind));
            }
        }
        std::printf("anomaly: %s points failed%s\n", Number(total).c_str(), list.c_str());
    }
};

Figures& TheFigures() {
    // GoogleTest destroys it.
    static auto* const figures = new Figures;
    static const testing::Environment* const registered =
        testing::AddGlobalTestEnvironment(figures);
    EXPECT_EQ(registered, figures);
    return *figures;
}
[[maybe_unused]] const Figures& s_figures = TheFigures();

}  // namespace

const Scenario outside = {
    "outside trading time", "CUSTOM_CHAN0_DATA", 0, 83000, clockDate, nullptr, true,
    subscribedMasks};
const Scenario newDay = {"a new day", "CUSTOM_CHAN0_DATA", 0, 83000, clockDate - 1, nullptr,
                         true,        subscribedMasks};
const Scenario fromCache = {
    "inside, cache file", "CUSTOM_CHAN0_DATA", 0, 91000, clockDate, cacheText, false,
    subscribedMasks};
const Scenario fromTables = {
    "inside, tables", "CUSTOM_CHAN0_DATA", 0, 91000, clockDate, nullptr, false, subscribedMasks};
const Scenario channel3 = {
    "channel 3", "CUSTOM_CHAN3_DATA", 255, 91000, clockDate, nullptr, false, 0};

void CountPoint(Kind kind) {
    ++TheFigures().points.at(static_cast<std::size_t>(kind));
}

Lines_t Outcome::Of(const std::string& level) const {
    Lines_t texts;
    for (const std::string& line : lines) {
        if (line.starts_with(level + " ")) {
            texts.push_back(line.substr(level.size() + 1));
        }
    }
    return texts;
}

std::uint32_t Outcome::Count(Kind kind) const {
    return report.counts.at(static_cast<std::size_t>(kind));
}

Runner::Runner(const Scenario& what)
    : scenario(what), m_output(open("output", O_CREAT | O_RDWR | O_APPEND | O_CLOEXEC, 0600)) {
    MakeReport();
    std::array<char, 1024> ini{};
    std::snprintf(ini.data(), ini.size(), iniText, what.channel == 0 ? 0 : 3);
    std::ofstream("test.ini") << ini.data();
    // The file part alone: a start finds the file open, and makes the process's logger itself.
    EXPECT_EQ(elog_log_file_init("log", "fpga"), 0);
}

Outcome Runner::RunOther(const Failure& failure, const std::function<void()>& body) {
    constexpr unsigned int seconds = 60;
    std::memset(&TheReport(), 0, sizeof(Report));
    EXPECT_EQ(ftruncate(m_output, 0), 0);
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        alarm(seconds);
        dup2(m_output, STDOUT_FILENO);
        dup2(m_output, STDERR_FILENO);
        for (int descriptor = 0; descriptor < descriptorMax; ++descriptor) {
            s_openBefore.at(static_cast<std::size_t>(descriptor)) = IsOpen(descriptor);
        }
        std::atexit(EnterEnd);
        Arm(failure);
        body();
        Disarm();
        std::exit(0);
    }
    Outcome outcome;
    EXPECT_EQ(waitpid(child, &outcome.status, 0), child);
    outcome.report = TheReport();
    std::ifstream file("output", std::ios::binary);
    for (std::string line; std::getline(file, line);) {
        outcome.lines.push_back(Strip(line));
    }
    return outcome;
}

Outcome Runner::Run(const Failure& failure) {
    if (scenario.cacheFile != nullptr) {
        std::ofstream("bin") << scenario.cacheFile;
    } else {
        unlink("bin");
    }
    // The child's own board: what the parent wrote would be copied, page by page.
    return RunOther(failure, [this] {
        PrepareBoard(scenario);
        RunScenario(scenario);
    });
}

void CheckEnd(const Outcome& outcome, int allowA2c, int allowC2a) {
    EXPECT_TRUE(WIFEXITED(outcome.status)) << "signal " << WTERMSIG(outcome.status);
    EXPECT_EQ(WEXITSTATUS(outcome.status), 0);
    const Report& report = outcome.report;
    EXPECT_TRUE(report.ended);
    EXPECT_STREQ(report.misuse.data(), "");
    EXPECT_EQ(report.locksHeld, 0);
    EXPECT_EQ(report.filters, 0);
    EXPECT_EQ(report.descriptors, 0);
    EXPECT_EQ(report.a2cStreams, allowA2c);
    EXPECT_EQ(report.c2aStreams, allowC2a);
    EXPECT_EQ(report.openFiles, 0);
    EXPECT_LE(report.cacheFiles, 1);
}

}  // namespace anomaly
