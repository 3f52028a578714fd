#include "benchMain.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace velabench {

namespace {

pid_t g_program = 0;
bool g_bFinished = false;
bool g_bSmoke = false;
void (*g_remove)() = nullptr;

void OnExit() {
    if (getpid() != g_program) {
        return;
    }
    if (g_remove != nullptr) {
        g_remove();
    }
    if (!g_bFinished) {
        std::fputs("The benchmark ended in the middle.\n", stderr);
        std::fflush(nullptr);
        std::_Exit(1);
    }
}

void PrintValue(const std::string& name, double value, const char* relation, double bound) {
    std::printf("ratio %s %.3f %s %.2f\n", name.c_str(), value, relation, bound);
}

}  // namespace

void Die(const std::string& what) {
    std::fprintf(stderr, "benchmark: %s\n", what.c_str());
    std::exit(1);
}

void AtEnd(void (*remove)()) {
    g_remove = remove;
    g_program = getpid();
    if (std::atexit(OnExit) != 0) {
        Die("no room for a function at the program's end");
    }
}

void Finish() {
    g_bFinished = true;
}

bool IsSmokeRun() {
    return g_bSmoke;
}

CMedians::CMedians() : ConsoleReporter(OO_Tabular), m_single(IsSmokeRun()) {}

void CMedians::ReportRuns(const std::vector<Run>& runs) {
    for (const Run& run : runs) {
        if (run.error_occurred) {
            Die(run.benchmark_name() + ": " + run.error_message);
        }
        // A single repetition has no median: it is its own.
        if (run.aggregate_name == "median" || (m_single && run.run_type == Run::RT_Iteration)) {
            auto& medians = m_medians[run.run_name.function_name];
            for (const auto& [name, counter] : run.counters) {
                medians[name] = counter.value;
            }
        }
    }
    ConsoleReporter::ReportRuns(runs);
}

double CMedians::Counter(const std::string& name, const std::string& counter) const {
    const auto found = m_medians.find(name);
    if (found == m_medians.end() || found->second.count(counter) == 0) {
        Die("no result of " + name + " " + counter + ": the ratios need all benchmarks");
    }
    return found->second.at(counter);
}

void ReadOptions(int argc, char** argv, int repetitions) {
    std::vector<std::string> arguments;
    for (int i = 0; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--smoke") {
            g_bSmoke = true;
        } else {
            arguments.push_back(argument);
        }
    }
    // The first ones: options given by hand come later, and win.
    if (!g_bSmoke) {
        arguments.insert(arguments.begin() + 1,
                         {"--benchmark_repetitions=" + std::to_string(repetitions),
                          "--benchmark_report_aggregates_only=true",
                          "--benchmark_enable_random_interleaving=true"});
    }
    // Kept for the whole run: Google Benchmark holds on to the program's name.
    static std::vector<std::string> kept;
    static std::vector<char*> pointers;
    kept = arguments;
    pointers.reserve(kept.size());
    for (std::string& argument : kept) {
        pointers.push_back(argument.data());
    }
    int count = static_cast<int>(pointers.size());
    benchmark::Initialize(&count, pointers.data());
    if (benchmark::ReportUnrecognizedArguments(count, pointers.data())) {
        std::exit(2);
    }
}

void RunAll(CMedians& medians) {
    if (benchmark::RunSpecifiedBenchmarks(&medians) == 0) {
        Die("there is no such benchmark");
    }
}

void PrintRatio(const std::string& name, double value) {
    std::printf("ratio %s %.3f\n", name.c_str(), value);
}

void PrintRatioAtLeast(const std::string& name, double value, double bound) {
    PrintValue(name, value, "at-least", bound);
}

void PrintRatioAtMost(const std::string& name, double value, double bound) {
    PrintValue(name, value, "at-most", bound);
}

void PrintPoint(const std::string& plot, const std::string& series, double x, double y) {
    std::printf("point %s %s %.9g %.9g\n", plot.c_str(), series.c_str(), x, y);
}

}  // namespace velabench
