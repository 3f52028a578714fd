// How evenly a polling thread runs, and single messages come: histograms of the time between two
// polls through VelaRecv, of the same loop without the poll, and of messages' one way from a board
// process to the callback, with what the tail is made of as far as the kernel tells.
//
// jitter_bench [--seconds N] [--smoke]: for N seconds, 60 if nothing is said.

#include <sys/resource.h>

#include <array>
#include <bit>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "benchKernel.h"
#include "benchLive.h"
#include "benchMain.h"

namespace velabench {

namespace {

constexpr double meanPauseNs = 10'000;
constexpr double emptyLoopNs = 1'000'000;  // of a turn
constexpr double longNs = 5'000;           // what counts as tail
// Both sides rest in each turn: a real-time process that never does gets stopped by the kernel.
constexpr auto rest = std::chrono::milliseconds(1);

Cpus g_cpus{};
CStampSink g_sink;
CBenchBoard* g_board = nullptr;

// Times in bins, eight in each octave.
class CHistogram {
  public:
    void Add(std::uint64_t ticks) {
        ++m_bins[BinOf(ticks)];
        ++m_ulCount;
        m_ulLongest = std::max(m_ulLongest, ticks);
        m_ulAll += ticks;
        if (ticks > m_ulLimit) [[unlikely]] {
            ++m_ulLongCount;
            m_ulLongTicks += ticks;
        }
    }
    // In ns: where the bin begins in which this part (0 to 1) of all is reached.
    double Quantile(double part) const {
        const auto wanted = static_cast<std::uint64_t>(part * static_cast<double>(m_ulCount));
        std::uint64_t seen = 0;
        for (std::size_t bin = 0; bin < m_bins.size(); ++bin) {
            seen += m_bins[bin];
            if (seen > wanted) {
                return BeginNs(bin);
            }
        }
        return LongestNs();
    }
    double LongestNs() const { return static_cast<double>(m_ulLongest) * NsOfTick(); }
    double Seconds() const { return static_cast<double>(m_ulAll) * NsOfTick() * 1e-9; }
    std::uint64_t Count() const { return m_ulCount; }
    std::uint64_t LongCount() const { return m_ulLongCount; }
    double LongMs() const { return static_cast<double>(m_ulLongTicks) * NsOfTick() * 1e-6; }
    // A dot for each bin that has something, divided by `per`.
    void PrintPoints(const std::string& plot, const std::string& series, double per) const {
        for (std::size_t bin = 0; bin < m_bins.size(); ++bin) {
            if (m_bins[bin] != 0) {
                PrintPoint(plot, series, BeginNs(bin), static_cast<double>(m_bins[bin]) / per);
            }
        }
    }

  private:
    static constexpr unsigned int binBits = 3;

    static std::size_t BinOf(std::uint64_t ticks) {
        if (ticks >> binBits == 0) {
            return ticks;
        }
        const auto shift = static_cast<unsigned int>(std::bit_width(ticks)) - binBits - 1;
        return ((std::size_t{shift} + 1) << binBits) + (ticks >> shift) - (1U << binBits);
    }
    static double BeginNs(std::size_t bin) {
        constexpr std::size_t inOctave = 1U << binBits;
        if (bin < inOctave) {
            return static_cast<double>(bin) * NsOfTick();
        }
        const std::size_t shift = (bin >> binBits) - 1;
        return static_cast<double>((inOctave + bin % inOctave) << shift) * NsOfTick();
    }

    std::array<std::uint64_t, std::size_t{64} << binBits> m_bins{};
    std::uint64_t m_ulCount = 0;
    std::uint64_t m_ulLongest = 0;
    std::uint64_t m_ulAll = 0;
    std::uint64_t m_ulLimit = static_cast<std::uint64_t>(longNs / NsOfTick());
    std::uint64_t m_ulLongCount = 0;
    std::uint64_t m_ulLongTicks = 0;
};

struct Switches {
    long voluntary = 0;
    long involuntary = 0;
    long pageFaults = 0;
};

Switches SwitchesOfThread() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return {usage.ru_nvcsw, usage.ru_nivcsw, usage.ru_minflt + usage.ru_majflt};
}

Switches operator-(const Switches& a, const Switches& b) {
    return {a.voluntary - b.voluntary, a.involuntary - b.involuntary, a.pageFaults - b.pageFaults};
}

// All that is found out.
struct Findings {
    CHistogram gaps;       // between two polls
    CHistogram emptyLoop;  // the same loop without the poll
    CHistogram oneWay;
    std::uint64_t late = 0;          // messages whose way was long
    std::uint64_t receiverGone = 0;  // of these: the polling thread was away
};

// One turn: a stretch of messages, then the empty loop.
class CTurn {
  public:
    explicit CTurn(Findings& findings) : m_findings(findings) {
        m_ways.reserve(liveMessagesOfAStretch);
    }

    void Messages(Live& live, int stretch) {
        m_ways.clear();
        std::size_t taken = 0;
        std::uint64_t last = 0;
        ReceiveLive(live, g_sink, stretch, m_ways, [&] {
            const std::uint64_t now = Ticks();
            const std::uint64_t gap = last == 0 ? 0 : now - last;
            if (last != 0) {
                m_findings.gaps.Add(gap);
            }
            last = now;
            const int got = g_board->Recv();
            if (got == 1) {
                // Away before this poll began, or in it.
                m_away[taken] = std::max(gap, g_sink.At()[taken] - now);
                ++taken;
            }
            return got;
        });
        const double limit = longNs / NsOfTick();
        for (std::size_t n = 0; n < m_ways.size(); ++n) {
            m_findings.oneWay.Add(m_ways[n]);
            if (static_cast<double>(m_ways[n]) > limit) {
                ++m_findings.late;
                m_findings.receiverGone += m_away[n] > m_ways[n] / 2 ? 1 : 0;
            }
        }
    }

    void EmptyLoop() {
        const auto all = static_cast<std::uint64_t>(emptyLoopNs / NsOfTick());
        const std::uint64_t begin = Ticks();
        std::uint64_t last = begin;
        while (last - begin < all) {
            const std::uint64_t now = Ticks();
            m_findings.emptyLoop.Add(now - last);
            last = now;
        }
    }

  private:
    Findings& m_findings;
    std::vector<std::uint64_t> m_ways;
    Stamps m_away{};
};

void PrintTimes(const char* what, const CHistogram& times) {
    std::printf(
        "%s, ns: median %.0f, 99 %% %.0f, 99.9 %% %.0f, 99.99 %% %.0f, 99.999 %% %.0f, longest "
        "%.0f; of %llu, %llu were longer than %.0f us, together %.2f ms\n",
        what, times.Quantile(0.5), times.Quantile(0.99), times.Quantile(0.999),
        times.Quantile(0.9999), times.Quantile(0.99999), times.LongestNs(),
        static_cast<unsigned long long>(times.Count()),
        static_cast<unsigned long long>(times.LongCount()), longNs / 1000, times.LongMs());
}

void PrintSwitches(const char* who, const Switches& switches) {
    std::printf("%s: %ld voluntary switches (its own rests), %ld involuntary, %ld page faults\n",
                who, switches.voluntary, switches.involuntary, switches.pageFaults);
}

void Print(const Findings& findings) {
    PrintTimes("between two polls", findings.gaps);
    PrintTimes("between two rounds of the same loop without the poll", findings.emptyLoop);
    PrintTimes("one way of a message", findings.oneWay);
    std::printf(
        "%llu messages took longer than %.0f us: in %llu of these the polling thread was "
        "away, else the sender was, or the memory between them\n",
        static_cast<unsigned long long>(findings.late), longNs / 1000,
        static_cast<unsigned long long>(findings.receiverGone));
    findings.gaps.PrintPoints("jitter-gaps", "polls", findings.gaps.Seconds());
    findings.emptyLoop.PrintPoints("jitter-gaps", "empty-loop", findings.emptyLoop.Seconds());
    findings.oneWay.PrintPoints("jitter-latency", "board-to-callback", 1);
}

// Takes "--seconds N" out of the arguments.
double TakeSeconds(std::vector<char*>& arguments) {
    double seconds = 60;
    for (std::size_t k = 1; k + 1 < arguments.size(); ++k) {
        if (std::string(arguments[k]) == "--seconds") {
            char* end = nullptr;
            seconds = std::strtod(arguments[k + 1], &end);
            if (*end != '\0' || !(seconds > 0)) {
                Die("--seconds takes a number above 0");
            }
            const auto at = arguments.begin() + static_cast<std::ptrdiff_t>(k);
            arguments.erase(at, at + 2);
            break;
        }
    }
    return seconds;
}

void Run(double seconds) {
    CShared<Live> live;
    CShared<Switches> boardSwitches;
    Pin(g_cpus.application);
    NsOfTick();
    CChild board([&] {
        const bool bGood = SendLive(*live, g_cpus.board, *g_board, l1, meanPauseNs);
        *boardSwitches = SwitchesOfThread();
        return bGood;
    });
    live->start.Meet();
    Findings warmUp;
    CTurn(warmUp).Messages(*live, 1);
    Findings findings;
    CTurn turn(findings);
    const CKernelCounts before;
    const Switches switchesBefore = SwitchesOfThread();
    const std::int64_t begin = NowNs();
    for (int stretch = 2; static_cast<double>(NowNs() - begin) * 1e-9 < seconds; ++stretch) {
        turn.Messages(*live, stretch);
        turn.EmptyLoop();
        std::this_thread::sleep_for(rest);
    }
    const Switches switches = SwitchesOfThread() - switchesBefore;
    const CKernelCounts after;
    live->wanted.store(-1);
    board.Join();
    Print(findings);
    PrintSwitches("the polling thread", switches);
    PrintSwitches("the board's process", *boardSwitches);
    after.PrintSince(before, "the application's CPU", g_cpus.application);
    after.PrintSince(before, "the board's CPU", g_cpus.board);
}

}  // namespace

}  // namespace velabench

int main(int argc, char** argv) {
    using namespace velabench;
    std::vector<char*> arguments(argv, argv + argc);
    double seconds = TakeSeconds(arguments);
    ReadOptions(static_cast<int>(arguments.size()), arguments.data());
    if (IsSmokeRun()) {
        constexpr double shortRun = 0.1;
        seconds = shortRun;
    }
    GoAhead();
    g_cpus = PickCpus();
    CBenchBoard board(g_sink);
    g_board = &board;
    Run(seconds);
    Finish();
    return 0;
}
