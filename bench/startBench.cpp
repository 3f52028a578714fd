// What a start of the master costs beside the vendor's calls that it makes: the library's start on
// the software board, and the same calls in the same order in a plain loop. The fixed waits take no
// time in either. And the same for reading the names in both instrument tables.
//
// Each start is a process of its own: a second one in a process would find what the first one left.
// That the calls are the same is looked at first, in runs with a recorder in front of the vendor's
// library; that the board is the same afterwards, after each start.

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>

#include "benchMain.h"
#include "benchProcess.h"
#include "startBoard.h"
#include "startFetch.h"
#include "vendorCalls.h"

namespace velabench {

namespace {

using Calls = std::vector<std::uint64_t>;

constexpr const char* runVariable = "VELABENCH_RUN";
constexpr const char* callsToRepeat = "VELABENCH_REPEAT";  // descriptor of a recording
constexpr std::uint32_t microsecond = 1000;                // ns
constexpr unsigned int allNames = 2 * tableEntries;

CStartBoard* g_board = nullptr;

// ---- Recorded runs: this program once more, with the recorder in front of the vendor's library

Calls CallsOf(int fd) {
    const off_t size = lseek(fd, 0, SEEK_END);
    Calls calls(static_cast<std::size_t>(size) / sizeof(std::uint64_t));
    std::size_t done = 0;
    while (done < static_cast<std::size_t>(size)) {
        const ssize_t got = pread(fd, reinterpret_cast<char*>(calls.data()) + done,
                                  static_cast<std::size_t>(size) - done, static_cast<off_t>(done));
        if (got <= 0) {
            Die("a recording cannot be read");
        }
        done += static_cast<std::size_t>(got);
    }
    return calls;
}

// What the log says is not part of the table.
void BeQuiet() {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
}

int RecordedRun(const std::string& run) {
    AtEnd([] {});  // an exit in the middle is a failure
    BeQuiet();
    bool bGood = false;
    if (run == "start-library") {
        bGood = StartByLibrary();
    } else if (run == "start-calls") {
        bGood = StartByCalls(RunsOf(CallsOf(std::atoi(std::getenv(callsToRepeat)))));
    } else {
        CNameReader reader;
        Names names;
        if (run == "fetch-library") {
            reader.ReadByLibrary(names);
            bGood = true;
        } else {
            bGood = reader.ReadByCalls(names);
        }
    }
    Finish();
    return bGood ? 0 : 1;
}

// The descriptor of the run's calls, in a file without a name.
int Record(const char* run, int repeat = -1) {
    const int fd = memfd_create("calls", 0);
    if (fd < 0) {
        Die("no memory for a recording");
    }
    CChild child([&] {
        setenv(runVariable, run, 1);
        setenv(callsVariable, std::to_string(fd).c_str(), 1);
        setenv(callsToRepeat, std::to_string(repeat).c_str(), 1);
        setenv("LD_PRELOAD", VENDOR_RECORDER_FILE, 1);
        execl("/proc/self/exe", "start_bench", nullptr);
        return false;
    });
    child.Join();
    return fd;
}

void ExpectSame(const Calls& library, const Calls& plain, const std::string& what) {
    const auto [one, other] =
        std::mismatch(library.begin(), library.end(), plain.begin(), plain.end());
    if (library.empty() || one != library.end() || other != plain.end()) {
        Die(what + ": the plain loop makes other calls, from call " +
            std::to_string(one - library.begin()) + " of " + std::to_string(library.size()) +
            " on");
    }
}

// ---- Time

// A stretch of this thread's time, without that in which it could have run and others had its
// processor: a start with an access time takes seconds, and the kernel gives other processes their
// part of each.
class CStopwatch {
  public:
    CStopwatch() : m_others(OthersNs()), m_begin(NowNs()) {}
    double Seconds() const {
        const std::int64_t elapsed = NowNs() - m_begin;
        return static_cast<double>(elapsed - (OthersNs() - m_others)) * 1e-9;
    }

  private:
    // 0 where the kernel does not count it.
    static std::int64_t OthersNs() {
        std::int64_t ran = 0;
        std::int64_t waited = 0;
        std::ifstream("/proc/thread-self/schedstat") >> ran >> waited;
        return waited;
    }

    std::int64_t m_others;
    std::int64_t m_begin;
};

// ---- Starts

struct Kind {
    const char* name;
    bool bReset;
    CallRuns runs;
    double accesses = 0;
    std::uint64_t state = 0;  // of the board afterwards
};
Kind g_reset{"reset", true, {}};
Kind g_noReset{"no-reset", false, {}};

void RecordStart(Kind& kind) {
    g_board->Prepare(kind.bReset);
    const int library = Record("start-library");
    kind.state = g_board->State();
    g_board->Prepare(kind.bReset);
    const int plain = Record("start-calls", library);
    const Calls calls = CallsOf(library);
    ExpectSame(calls, CallsOf(plain), std::string("a start, ") + kind.name);
    close(library);
    close(plain);
    kind.runs = RunsOf(calls);
    kind.accesses =
        static_cast<double>(std::count_if(calls.begin(), calls.end(), [](std::uint64_t call) {
            return CallOf(call) == VendorCall::Read || CallOf(call) == VendorCall::Write;
        }));
    std::printf("a start, %s: %zu calls of the vendor's library, %.0f accesses to registers\n",
                kind.name, calls.size(), kind.accesses);
}

struct Outcome {
    double seconds = 0;
    bool bDone = false;
};

// Seconds of a start in a process of its own.
template <class Start>
double TimeStart(const Kind& kind, Start start) {
    g_board->Prepare(kind.bReset);
    CShared<Outcome> outcome;
    CChild child([&] {
        BeQuiet();
        const CStopwatch stopwatch;
        const bool bGood = start();
        outcome->seconds = stopwatch.Seconds();
        outcome->bDone = bGood;
        return bGood;
    });
    child.Join();
    if (!outcome->bDone || g_board->State() != kind.state) {
        Die(std::string("a start, ") + kind.name + ", left the board in another state");
    }
    return outcome->seconds;
}

void CompareStarts(benchmark::State& state, const Kind& kind, std::uint32_t accessNs) {
    while (state.KeepRunning()) {
        g_board->SetAccessNs(accessNs);
        const auto timePlain = [&] {
            return TimeStart(kind, [&] { return StartByCalls(kind.runs); });
        };
        static bool s_bPlainFirst = false;  // whoever is first finds the caches as it may
        s_bPlainFirst = !s_bPlainFirst;
        double plain = s_bPlainFirst ? timePlain() : 0;
        const double library = TimeStart(kind, StartByLibrary);
        plain = s_bPlainFirst ? plain : timePlain();
        g_board->SetAccessNs(0);
        state.SetIterationTime(library);
        state.counters["library_ms"] = library * 1e3;
        state.counters["calls_ms"] = plain * 1e3;
        state.counters["ratio"] = library / plain;
        state.counters["own_ms"] = (library - plain) * 1e3;
        state.counters["to_accesses"] = library / (kind.accesses * accessNs * 1e-9);
    }
}

// ---- The names in the tables

void CheckFetch(unsigned int names) {
    g_board->Prepare(false, names);
    const int library = Record("fetch-library");
    const int plain = Record("fetch-calls");
    ExpectSame(CallsOf(library), CallsOf(plain),
               "reading " + std::to_string(names) + " instruments");
    close(library);
    close(plain);
}

struct FetchTimes {
    double library = 0;
    double plain = 0;
    double callsAlone = 0;
    bool bDone = false;
};

template <class Read>
double TimeRead(Read read) {
    const CStopwatch stopwatch;
    if (!read()) {
        Die("names are missing");
    }
    return stopwatch.Seconds();
}

bool ReadInTurns(unsigned int count, FetchTimes& times) {
    BeQuiet();
    const Names prepared = PreparedNames(count);
    CNameReader reader;
    const int turns = IsSmokeRun() ? 1 : 3;
    for (int k = 0; k < turns; ++k) {
        Names byCalls;
        Names byLibrary;
        times.plain += TimeRead([&] { return reader.ReadByCalls(byCalls); });
        times.library += TimeRead([&] {
            reader.ReadByLibrary(byLibrary);
            return true;
        });
        times.callsAlone +=
            TimeRead([&] { return reader.CountByCalls() == static_cast<int>(prepared.size()); });
        if (byCalls != prepared || byLibrary != prepared) {
            return false;
        }
    }
    times.bDone = true;
    return true;
}

template <unsigned int count>
void CompareFetches(benchmark::State& state) {
    while (state.KeepRunning()) {
        g_board->Prepare(false, count);
        CShared<FetchTimes> times;
        CChild child([&] { return ReadInTurns(count, *times); });
        child.Join();
        if (!times->bDone) {
            Die("other names than those in the tables");
        }
        const double turns = IsSmokeRun() ? 1 : 3;
        state.SetIterationTime(times->library / turns);
        state.counters["library_ms"] = times->library / turns * 1e3;
        state.counters["calls_ms"] = times->plain / turns * 1e3;
        state.counters["ratio"] = times->library / times->plain;
        state.counters["calls_alone"] = times->library / times->callsAlone;
    }
}

// ---- What is run, and what is printed

void RegisterFew(const std::string& name, void (*bench)(benchmark::State&), int repetitions) {
    auto* registered =
        benchmark::RegisterBenchmark(name.c_str(), bench)->UseManualTime()->Iterations(1);
    if (!IsSmokeRun()) {
        registered->Repetitions(repetitions);
    }
}

template <unsigned int... counts>
void RegisterFetches() {
    (RegisterFew("fetch-" + std::to_string(counts), CompareFetches<counts>, 9), ...);
}

template <unsigned int... counts>
void PrintFetches(const CMedians& medians) {
    const auto print = [&](unsigned int count) {
        const std::string name = "fetch-" + std::to_string(count);
        PrintPoint("fetch", "library", count, medians.Counter(name, "library_ms"));
        PrintPoint("fetch", "calls", count, medians.Counter(name, "calls_ms"));
    };
    (print(counts), ...);
}

void RegisterAll() {
    RegisterFew(
        "start-reset", [](benchmark::State& state) { CompareStarts(state, g_reset, 0); }, 11);
    RegisterFew(
        "start-no-reset", [](benchmark::State& state) { CompareStarts(state, g_noReset, 0); }, 25);
    RegisterFew(
        "start-no-reset-1us",
        [](benchmark::State& state) { CompareStarts(state, g_noReset, microsecond); }, 5);
    if (!IsSmokeRun()) {  // it takes seconds
        RegisterFew(
            "start-reset-1us",
            [](benchmark::State& state) { CompareStarts(state, g_reset, microsecond); }, 3);
    }
    RegisterFetches<100, 1000, 2000, 4000, 6000, allNames>();
}

void PrintStart(const CMedians& medians, const Kind& kind) {
    constexpr double bound = 1.15;
    const std::string name = std::string("start-") + kind.name;
    std::printf("%s: the library %.2f ms, the vendor's calls in a plain loop %.2f ms\n",
                name.c_str(), medians.Counter(name, "library_ms"),
                medians.Counter(name, "calls_ms"));
    PrintRatioAtMost(name, medians.Counter(name, "ratio"), bound);
}

void PrintSlowStart(const CMedians& medians, const Kind& kind) {
    constexpr double bound = 1.05;
    const std::string name = std::string("start-") + kind.name + "-1us";
    const double accesses = kind.accesses * 1e-3;
    const double calls = medians.Counter(name, "calls_ms");
    std::printf(
        "%s: the library %.1f ms; %.0f accesses of 1 us, %.1f ms; with the vendor's calls "
        "and locks around them, in a plain loop, %.1f ms more; the library's own %.1f ms\n",
        name.c_str(), medians.Counter(name, "library_ms"), kind.accesses, accesses,
        calls - accesses, medians.Counter(name, "own_ms"));
    PrintRatioAtMost(name, medians.Counter(name, "ratio"), bound);
    PrintRatio(name + "/accesses", medians.Counter(name, "to_accesses"));
    PrintPoint("start-1us", "accesses", kind.bReset ? 1 : 0, accesses);
    PrintPoint("start-1us", "library", kind.bReset ? 1 : 0, medians.Counter(name, "library_ms"));
    PrintPoint("start-1us", "calls", kind.bReset ? 1 : 0, calls);
}

void PrintAll(const CMedians& medians) {
    constexpr double bound = 1.15;
    const std::string full = "fetch-" + std::to_string(allNames);
    PrintStart(medians, g_reset);
    PrintStart(medians, g_noReset);
    PrintSlowStart(medians, g_noReset);
    if (!IsSmokeRun()) {
        PrintSlowStart(medians, g_reset);
    }
    std::printf("%u names: the library %.2f ms, the vendor's calls in a plain loop %.2f ms\n",
                allNames, medians.Counter(full, "library_ms"), medians.Counter(full, "calls_ms"));
    PrintRatioAtMost("fetch-full", medians.Counter(full, "ratio"), bound);
    PrintRatio("fetch-full/calls-alone", medians.Counter(full, "calls_alone"));
    PrintFetches<100, 1000, 2000, 4000, 6000, allNames>(medians);
}

}  // namespace

}  // namespace velabench

int main(int argc, char** argv) {
    using namespace velabench;
    if (const char* const run = std::getenv(runVariable); run != nullptr) {
        return RecordedRun(run);
    }
    ReadOptions(argc, argv);
    GoAhead();
    Pin(sched_getcpu());
    CStartBoard board;
    g_board = &board;
    RecordStart(g_reset);
    RecordStart(g_noReset);
    CheckFetch(allNames);
    CheckFetch(100);
    RegisterAll();
    CMedians medians;
    RunAll(medians);
    PrintAll(medians);
    Finish();
    return 0;
}
