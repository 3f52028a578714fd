// A line of the library's log, to its file and to standard output, beside spdlog with the same two
// sinks and a flush for each line: with spdlog's own header, which is its fastest, and with the
// header that the library's lines have. Standard output is /dev/null, the files lie beside each
// other. Before that both log into files, and what they have written is compared, line by line.

#include <fcntl.h>
#include <sched.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "benchFolder.h"
#include "benchMain.h"
#include "benchProcess.h"
#include "log/CRwLogger.h"
#include "log/elog.h"

namespace velabench {

namespace {

constexpr int stretchLines = 1500;  // of three kinds

std::shared_ptr<spdlog::logger> g_ownHeader;
std::shared_ptr<spdlog::logger> g_sameHeader;

// The same three lines of each: without an argument, with two, with four.
void LogByLibrary(unsigned int number) {
    LOG_INFO("Fpga start transmit inst map pkt.");
    LOG_INFO("Write to bin :index:%u,inst:%s,", number, "SR209C5000");
    LOG_INFO("[channel:%d] Record func:Meeting conditions count is:OneLeg:%u, Combine:%u, %s.", 3,
             number, 17U, "SPD-SR209&SR301");
}

void LogBySpdlog(spdlog::logger& logger, unsigned int number) {
    logger.info("Fpga start transmit inst map pkt.");
    logger.info("Write to bin :index:{},inst:{},", number, "SR209C5000");
    logger.info("[channel:{}] Record func:Meeting conditions count is:OneLeg:{}, Combine:{}, {}.",
                3, number, 17U, "SPD-SR209&SR301");
}

std::shared_ptr<spdlog::logger> MakeSpdlog(const std::string& name, const std::string& pattern) {
    auto logger = std::make_shared<spdlog::logger>(
        "fpga", spdlog::sinks_init_list{
                    std::make_shared<spdlog::sinks::stdout_sink_mt>(),
                    std::make_shared<spdlog::sinks::basic_file_sink_mt>(name + ".log")});
    logger->flush_on(spdlog::level::trace);
    if (!pattern.empty()) {
        logger->set_pattern(pattern);
    }
    return logger;
}

// Standard output goes into a file while one of these lives.
class CRedirect {
  public:
    explicit CRedirect(const char* path) : m_before(dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        const int file = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        if (m_before < 0 || file < 0 || dup2(file, STDOUT_FILENO) < 0) {
            Die("standard output cannot be redirected");
        }
        close(file);
    }
    ~CRedirect() {
        std::fflush(stdout);
        dup2(m_before, STDOUT_FILENO);
        close(m_before);
    }
    CRedirect(const CRedirect&) = delete;
    CRedirect& operator=(const CRedirect&) = delete;

  private:
    int m_before;
};

std::string WholeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// What stands behind the three brackets of each line.
std::vector<std::string> Texts(const std::string& whole) {
    std::vector<std::string> texts;
    std::istringstream lines(whole);
    for (std::string line; std::getline(lines, line);) {
        std::size_t at = 0;
        for (int bracket = 0; bracket < 3; ++bracket) {
            at = line.find(']', at) + 1;
        }
        texts.push_back(line.substr(line[at] == ' ' ? at + 1 : at));
    }
    return texts;
}

std::string LibraryFile() {
    for (const auto& entry : std::filesystem::directory_iterator("library")) {
        return entry.path().string();
    }
    Die("the library has no log file");
}

// The same lines from all three, to standard output and to the file.
void CheckLines() {
    constexpr unsigned int count = 20;
    const auto before = WholeFile(LibraryFile()).size();
    for (unsigned int number = 0; number < count; ++number) {
        {
            const CRedirect to("out-library");
            LogByLibrary(number);
        }
        {
            const CRedirect to("out-own");
            LogBySpdlog(*g_ownHeader, number);
        }
        const CRedirect to("out-same");
        LogBySpdlog(*g_sameHeader, number);
    }
    const std::string library = WholeFile(LibraryFile()).substr(before);
    const std::vector<std::string> expected = Texts(library);
    if (expected.size() != std::size_t{count} * 3 || WholeFile("out-library") != library ||
        WholeFile("own.log") != WholeFile("out-own") ||
        WholeFile("same.log") != WholeFile("out-same") || Texts(WholeFile("own.log")) != expected ||
        Texts(WholeFile("same.log")) != expected) {
        Die("the three have not logged the same");
    }
}

template <class Log>
double SecondsOf(Log log) {
    const int lines = IsSmokeRun() ? 30 : stretchLines;
    const std::int64_t begin = NowNs();
    for (int k = 0; k < lines / 3; ++k) {
        log(static_cast<unsigned int>(k));
    }
    return static_cast<double>(NowNs() - begin) * 1e-9 / lines;
}

void Compare(benchmark::State& state) {
    constexpr int rounds = 6;
    while (state.KeepRunning()) {
        const CRedirect to("/dev/null");
        double library = 0;
        double ownHeader = 0;
        double sameHeader = 0;
        for (int k = 0; k < rounds; ++k) {
            library += SecondsOf(LogByLibrary);
            ownHeader += SecondsOf([](unsigned int number) { LogBySpdlog(*g_ownHeader, number); });
            sameHeader +=
                SecondsOf([](unsigned int number) { LogBySpdlog(*g_sameHeader, number); });
        }
        state.SetIterationTime(library / rounds);
        state.counters["library"] = library / rounds * 1e9;
        state.counters["spdlog"] = ownHeader / rounds * 1e9;
        state.counters["spdlog-same-header"] = sameHeader / rounds * 1e9;
        state.counters["ratio"] = library / ownHeader;
        state.counters["ratio-same-header"] = library / sameHeader;
    }
}

}  // namespace

}  // namespace velabench

int main(int argc, char** argv) {
    using namespace velabench;
    ReadOptions(argc, argv);
    GoAhead();
    Pin(sched_getcpu());
    EnterOwnFolder();
    CRwLogger logger;
    {
        const CRedirect to("out-start");
        if (logger.Init(0, "library", "fpga") != 0) {
            Die("no log");
        }
    }
    // As a program has it that does not use the library: spdlog's line goes out by one write.
    std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
    g_ownHeader = MakeSpdlog("own", "");
    g_sameHeader = MakeSpdlog("same", "[%-7l][%Y%m%d-%H:%M:%S][%n]%v");
    CheckLines();
    Register("line", Compare);
    CMedians medians;
    RunAll(medians);
    std::printf(
        "a log line, ns: VelaZceMdApi %.0f, spdlog %.0f, spdlog with the same header %.0f\n",
        medians.Counter("line", "library"), medians.Counter("line", "spdlog"),
        medians.Counter("line", "spdlog-same-header"));
    PrintRatioAtMost("log-line-library/spdlog", medians.Counter("line", "ratio"), 1.0);
    PrintRatioAtMost("log-line-library/spdlog-same-header",
                     medians.Counter("line", "ratio-same-header"), 1.0);
    Finish();
    return 0;
}
