#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <memory>
#include <string>

#include "ctl/CtlMain.h"
#include "process/BoardOptions.h"
#include "process/BoardSet.h"
#include "traffic/FeedFile.h"
#include "traffic/LiveTraffic.h"
#include "traffic/ReplayTraffic.h"
#include "traffic/ScenarioTraffic.h"

// zce-board: a software board, or several, and the exchange behind them; or, as `zce-board ctl`, a
// look at one that is running (CtlMain.h). Exit status: 0 after
// SIGINT, SIGTERM or SIGHUP, at the end of a scenario or a replay, and for --help and
// --list-instruments; 2 for a usage error and for a board that cannot start, with the reason on
// standard error.

namespace {

using ZceBoard::CBoardSet;
using ZceBoard::Options;

constexpr int EXIT_NOT_STARTED = 2;

volatile std::sig_atomic_t g_stop = 0;

void OnSignal(int /*signal*/) {
    g_stop = 1;
}

void InstallSignals() {
    struct sigaction action {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    for (const int sig : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(sig, &action, nullptr);
    }
    action.sa_handler = SIG_IGN;  // NOLINT(cppcoreguidelines-pro-type-cstyle-cast)
    sigaction(SIGPIPE, &action, nullptr);
}

int NotStarted(const std::string& error) {
    fprintf(stderr, "zce-board: %s\n", error.c_str());
    return EXIT_NOT_STARTED;
}

void PrintInstruments(const ZceBoard::CInstrumentList& list) {
    for (const ZceBoard::Instrument& instrument : list.All()) {
        printf("%u,%u,%s\n", static_cast<unsigned>(instrument.index), instrument.table,
               instrument.name.c_str());
    }
}

int PlayLive(const Options& options) {
    ZceBoard::CInstrumentList list;
    ZceBoard::CFeeds feeds;
    std::string error;
    if (!ReadInstruments(options, list, error) ||
        (options.feeds && !ReadFeedFile(*options.feeds, feeds, error))) {
        return NotStarted(error);
    }
    if (options.bList) {
        PrintInstruments(list);
        return 0;
    }
    CBoardSet boards(options.group, options.accessNs);
    if (!boards.Add(options.bus.value_or(0), feeds,
                    std::make_unique<ZceBoard::CLiveTraffic>(list, options.live), options.clockFile,
                    error)) {
        return NotStarted(error);
    }
    boards.Run(g_stop);
    return 0;
}

int PlayScenario(const Options& options) {
    ZceBoard::Scenario scenario;
    std::string error;
    if (!ReadScenario(options.scenario, scenario, error)) {
        return NotStarted(error);
    }
    if (options.bList) {
        PrintInstruments(scenario.instruments);
        return 0;
    }
    CBoardSet boards(options.group, options.accessNs);
    const uint32_t today = ZceBoard::BoardTimeAt(ZceBoard::ReadHostTime().wallNs).date;
    std::string clockFile = scenario.clockFile;
    for (const uint32_t bus : scenario.buses) {
        if (!boards.Add(bus, scenario.feeds,
                        std::make_unique<ZceBoard::CScenarioTraffic>(scenario, today), clockFile,
                        error)) {
            return NotStarted(error);
        }
        clockFile.clear();  // all boards have the same clock: the first one tells it
    }
    boards.Run(g_stop);
    return 0;
}

int PlayCapture(const Options& options) {
    ZceBoard::CaptureSummary summary;
    std::string error;
    if (!ReadThrough(options.replay, summary, error)) {
        return NotStarted(error);
    }
    if (options.bus && summary.buses.size() != 1) {
        return NotStarted(options.replay +
                          ": it holds messages of several buses: --bus cannot rename them");
    }
    CBoardSet boards(options.group, options.accessNs);
    std::string clockFile = options.clockFile;
    for (const auto& [bus, content] : summary.buses) {
        auto traffic = std::make_unique<ZceBoard::CReplayTraffic>(options.replay, summary, bus,
                                                                  options.speedMilli);
        if (!traffic->Open(error) ||
            !boards.Add(options.bus.value_or(bus), {}, std::move(traffic), clockFile, error)) {
            return NotStarted(error);
        }
        clockFile.clear();
    }
    boards.Run(g_stop);
    return 0;
}

int Main(int argc, char** argv) {
    Options options;
    int status = 0;
    if (!ParseOptions(argc, argv, options, status)) {
        return status == 0 ? 0 : EXIT_NOT_STARTED;
    }
    tzset();
    InstallSignals();
    if (!options.scenario.empty()) {
        return PlayScenario(options);
    }
    return options.replay.empty() ? PlayLive(options) : PlayCapture(options);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc > 1 && strcmp(argv[1], "ctl") == 0) {
            return ZceBoard::CtlMain(argc - 1, argv + 1);
        }
        return Main(argc, argv);
    } catch (const std::exception& error) {  // out of memory
        return NotStarted(error.what());
    }
}
