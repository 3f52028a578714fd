// How fast the master's worker learns the instruments from the exchange's broadcast: 8,190 names in
// full map packets, each into the instrument map and with a line of its own into the cache file.
// Beside it what cannot be left out: the same names into a std::map, and the lines, which lie
// ready, through fwrite and fflush into a file beside the other. Both files must be the same.
//
// The log is off in the figure with a bound: a learnt name has a log line, whose two writes
// (standard output and the log file) cost more than all the rest. The figure beside it has the log
// on, and the baseline makes these two writes as well, with bytes that lie ready.

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "DataType/ZceConfigFile.h"
#include "DataType/ZceFpgaServ.h"
#include "Utils/clockSeam.h"
#include "VelaZceBinFile.h"
#include "VelaZceUpdmaImpl.h"
#include "benchDrv.h"
#include "benchFolder.h"
#include "benchInstruments.h"
#include "benchMain.h"
#include "benchProcess.h"
#include "exchange/Broadcast.h"
#include "log/CRwLogger.h"
#include "log/elog.h"

// Puts a worker into the state that a start outside trading time leaves it in.
struct ZceDmaChanTestPeer {
    static void Serve(CZceDmaChanImpl& chan, Vela2_U50::CZceFpgaServ& fpga, CTernBinFile& bin) {
        chan.m_pFpgaServ = &fpga;
        chan.m_pBinFile = &bin;
    }
    static std::map<std::string, unsigned short>& Insts(CZceDmaChanImpl& chan) {
        return chan.m_mapInst;
    }
};

// The host's clock, moved to a time of day at which instruments are learnt: half past eight in UTC
// when the program begins.
namespace VORBA2::Clock {

std::time_t WallSeconds() {
    constexpr std::time_t day = 86400;
    constexpr std::time_t halfPastEight = 30600;
    static const std::time_t s_shift = halfPastEight - std::time(nullptr) % day;
    return std::time(nullptr) + s_shift;
}

bool LocalTime(std::time_t at, std::tm& result) {
    return gmtime_r(&at, &result) != nullptr;
}

std::uint64_t RealtimeNs() {
    return static_cast<std::uint64_t>(velabench::NowNs());
}

std::uint64_t MonotonicNs() {
    return static_cast<std::uint64_t>(velabench::NowNs());
}

void SleepSeconds(unsigned int /*seconds*/) {}

}  // namespace VORBA2::Clock

namespace velabench {

namespace {

constexpr const char* libraryFile = "bin";
constexpr const char* baselineFile = "baseline";

using InstMap = std::map<std::string, unsigned short>;

struct Name {
    std::string name;
    unsigned short index;
    std::string line;     // of the cache file
    std::string logLine;  // as long as the log's
};

std::vector<Name> g_names;
std::vector<ZceBoard::MapPacket> g_packets;

std::string WholeFile(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void MakeNames() {
    const std::vector<ZceBoard::Instrument> list = FullInstrumentList();
    g_packets = ZceBoard::CBroadcast(list, {1'000'000'000, 1'000'000'000}).Packets();
    for (const ZceBoard::Instrument& instrument : list) {
        const std::string index = std::to_string(instrument.index);
        g_names.push_back({instrument.name, instrument.index, index + "," + instrument.name + "\n",
                           "[INFO   ][20261120-08:30:00][fpga]Write to bin :index:" + index +
                               ",inst:" + instrument.name + ",\n"});
    }
}

// Seconds.
double LearnByLibrary(InstMap& learnt) {
    CFreeDrv drv;
    Vela2_U50::CZceConfigFile cfg("", &drv, nullptr);
    CZceDmaChanImpl chan(&drv, nullptr, &cfg);
    InstMap& insts = ZceDmaChanTestPeer::Insts(chan);
    Vela2_U50::CZceFpgaServ fpga(insts, 0);
    fpga.Init(&drv);
    CTernBinFile bin(insts, 0);
    bin.Normal_FileInit();
    ZceDmaChanTestPeer::Serve(chan, fpga, bin);
    const std::int64_t begin = NowNs();
    for (const ZceBoard::MapPacket& packet : g_packets) {
        CZceDmaChanImpl::DmaEntrance(packet.bytes.data(),
                                     static_cast<unsigned int>(packet.bytes.size()), &chan);
    }
    const std::int64_t end = NowNs();
    learnt.swap(insts);
    return static_cast<double>(end - begin) * 1e-9;
}

// What the log does with a line beside making it: the two writes.
class CWrites {
  public:
    CWrites() : m_file(open("log", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {}
    ~CWrites() { close(m_file); }
    CWrites(const CWrites&) = delete;
    CWrites& operator=(const CWrites&) = delete;
    void Write(const std::string& line) const {
        const auto size = static_cast<ssize_t>(line.size());
        if (write(STDOUT_FILENO, line.data(), line.size()) != size ||
            write(m_file, line.data(), line.size()) != size) {
            Die("a line was not written");
        }
    }

  private:
    int m_file;
};

double LearnByHand(InstMap& learnt, bool bLog) {
    const CWrites log;
    std::FILE* const file = std::fopen(baselineFile, "w");
    if (file == nullptr) {
        Die("no file for the baseline");
    }
    const std::int64_t begin = NowNs();
    for (const Name& name : g_names) {
        if (learnt.emplace(name.name, name.index).second) {
            std::fwrite(name.line.data(), 1, name.line.size(), file);
            if (bLog) {
                log.Write(name.logLine);
            }
            std::fflush(file);
        }
    }
    const std::int64_t end = NowNs();
    std::fclose(file);
    return static_cast<double>(end - begin) * 1e-9;
}

// Standard output goes nowhere while one of these lives.
class CQuiet {
  public:
    CQuiet() : m_before(dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (m_before < 0 || nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0) {
            Die("standard output cannot be turned off");
        }
        close(nowhere);
    }
    ~CQuiet() {
        std::fflush(stdout);
        dup2(m_before, STDOUT_FILENO);
        close(m_before);
    }
    CQuiet(const CQuiet&) = delete;
    CQuiet& operator=(const CQuiet&) = delete;

  private:
    int m_before;
};

void Compare(benchmark::State& state, bool bLog) {
    const int pairs = IsSmokeRun() ? 1 : 3;
    while (state.KeepRunning()) {
        const CQuiet quiet;
        elog_set_enabled(bLog);
        double library = 0;
        double hand = 0;
        for (int k = 0; k < pairs; ++k) {
            InstMap byHand;
            InstMap byLibrary;
            hand += LearnByHand(byHand, bLog);
            library += LearnByLibrary(byLibrary);
            if (byHand.size() != allInstruments || byHand != byLibrary) {
                Die("the two maps differ");
            }
            if (WholeFile(libraryFile) != WholeFile(baselineFile)) {
                Die("the two files differ");
            }
        }
        const double names = static_cast<double>(allInstruments) * pairs;
        state.SetIterationTime(library / pairs);
        state.counters["library"] = names / library;
        state.counters["hand"] = names / hand;
        state.counters["ratio"] = hand / library;  // of the rates
    }
}

void Print(const CMedians& medians, const std::string& name, const char* what) {
    std::printf("%s, instruments a second: VelaZceMdApi %.0f, map and file alone %.0f\n", what,
                medians.Counter(name, "library"), medians.Counter(name, "hand"));
}

}  // namespace

}  // namespace velabench

int main(int argc, char** argv) {
    using namespace velabench;
    ReadOptions(argc, argv);
    GoAhead();
    Pin(sched_getcpu());
    EnterOwnFolder();
    MakeNames();
    CRwLogger logger;
    if (logger.Init(0, ".", "fpga") != 0) {
        Die("no log");
    }
    Register("learn", [](benchmark::State& state) { Compare(state, false); });
    Register("learn-logged", [](benchmark::State& state) { Compare(state, true); });
    CMedians medians;
    RunAll(medians);
    Print(medians, "learn", "without the log");
    Print(medians, "learn-logged", "with the log");
    PrintRatioAtLeast("learn-rate-library/alone", medians.Counter("learn", "ratio"), 0.8);
    PrintRatio("learn-rate-logged-library/alone", medians.Counter("learn-logged", "ratio"));
    Finish();
    return 0;
}
