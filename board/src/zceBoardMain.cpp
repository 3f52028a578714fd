#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <string>
#include <vector>

#include "Board.h"
#include "BoardLoop.h"
#include "BoardMemory.h"
#include "Feeds.h"
#include "Instruments.h"
#include "LiveTraffic.h"

// zce-board: one software board and the exchange behind it. Exit status: 0 after SIGINT, SIGTERM or
// SIGHUP, and for --help and --list-instruments; 2 for a usage error and for a board that cannot
// start, with the reason on standard error.

namespace {

constexpr int EXIT_NOT_STARTED = 2;
constexpr uint32_t MAX_BUS = 9;
constexpr uint64_t MAX_RATE = 10'000'000;
constexpr double NS = 1e9;  // of a second

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

struct Arguments {
    uint32_t bus = 0;
    ZceBoard::LiveOptions options;
    std::string instruments;
    std::string products;
    std::string feeds;
    const CLI::Option* pFeeds = nullptr;  // whether --feeds was given: its file may be named ""
    double auctionCycle = 4;
    double tradingCycle = 60;
    bool bList = false;
};

void Describe(CLI::App& app, Arguments& arguments) {
    auto* source = app.add_option_group("instruments", "which instruments the exchange lists");
    source->add_option("--instruments", arguments.instruments,
                       "A file with one instrument's name a line; # begins a comment");
    source
        ->add_option("--products", arguments.products,
                     "all: the full list of the exchange's products")
        ->check(CLI::IsMember({"all"}));
    source->require_option(1);
    app.add_option("--bus", arguments.bus, "Bus index of the board")
        ->check(CLI::Range(0U, MAX_BUS))
        ->capture_default_str();
    app.add_option("--seed", arguments.options.seed,
                   "Seed of the market: the same seed and list give the same ticks")
        ->capture_default_str();
    app.add_option("--rate", arguments.options.rate,
                   "Ticks a second of real time, over all instruments")
        ->check(CLI::Range(uint64_t{0}, MAX_RATE))
        ->capture_default_str();
    app.add_option("--broadcast-cycle", arguments.auctionCycle,
                   "Seconds of board time for one round of the instrument broadcast in an auction")
        ->check(CLI::Range(0.01, 3600.0))
        ->capture_default_str();
    app.add_option("--broadcast-cycle-trading", arguments.tradingCycle, "The same in trading time")
        ->check(CLI::Range(0.01, 3600.0))
        ->capture_default_str();
    arguments.pFeeds = app.add_option(
        "--feeds", arguments.feeds,
        "An INI file with the addresses of the feeds L5 and L1, under the keys of a host's "
        "section [config]: a feed arrives only while the host has programmed the same. "
        "Without: both arrive, whatever is programmed");
    app.add_flag("--list-instruments", arguments.bList,
                 "Print the instruments, one index,type,name a line, and end");
}

void PrintInstruments(const ZceBoard::CInstrumentList& list) {
    for (const ZceBoard::Instrument& instrument : list.All()) {
        printf("%u,%u,%s\n", static_cast<unsigned>(instrument.index), instrument.table,
               instrument.name.c_str());
    }
}

bool LoadInstruments(const Arguments& arguments, ZceBoard::CInstrumentList& list) {
    if (!arguments.products.empty()) {
        list.AddAllProducts();
        return true;
    }
    std::string error;
    if (!list.ReadFile(arguments.instruments, error)) {
        fprintf(stderr, "zce-board: %s\n", error.c_str());
        return false;
    }
    return true;
}

bool LoadFeeds(const Arguments& arguments, ZceBoard::CFeeds& feeds) {
    std::string error;
    if (arguments.pFeeds->count() == 0 || feeds.ReadFile(arguments.feeds, error)) {
        return true;
    }
    fprintf(stderr, "zce-board: %s\n", error.c_str());
    return false;
}

bool MakeBoard(ZceBoard::CBoardMemory& memory, uint32_t bus) {
    int32_t pid = 0;
    const int err = memory.Create(bus, pid);
    if (err == EBUSY) {
        fprintf(stderr, "zce-board: bus %u: another zce-board is running on it (process %d)\n", bus,
                pid);
    } else if (err == EINVAL) {
        fprintf(stderr,
                "zce-board: ZCE_BOARD_SHM_PREFIX cannot be part of a name in shared memory\n");
    } else if (err != 0) {
        fprintf(stderr, "zce-board: bus %u: cannot make the shared memory %s: %s\n", bus,
                ZceBoard::ShmName(bus).c_str(), strerror(err));
    }
    return err == 0;
}

int Main(int argc, char** argv) {
    Arguments arguments;
    CLI::App app{"A software board for CZCE market data, and the exchange that it hears.",
                 "zce-board"};
    Describe(app, arguments);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : EXIT_NOT_STARTED;
    }
    ZceBoard::CInstrumentList list;
    ZceBoard::CFeeds feeds;
    if (!LoadInstruments(arguments, list) || !LoadFeeds(arguments, feeds)) {
        return EXIT_NOT_STARTED;
    }
    if (arguments.bList) {
        PrintInstruments(list);
        return 0;
    }
    arguments.options.pace.auctionCycleNs = static_cast<int64_t>(arguments.auctionCycle * NS);
    arguments.options.pace.tradingCycleNs = static_cast<int64_t>(arguments.tradingCycle * NS);
    tzset();
    InstallSignals();
    ZceBoard::CBoardMemory memory;
    if (!MakeBoard(memory, arguments.bus)) {
        return EXIT_NOT_STARTED;
    }
    ZceBoard::CBoard board(memory, feeds);
    ZceBoard::CLiveTraffic traffic(list, arguments.options);
    std::vector<ZceBoard::CBoardLoop> loops;
    loops.emplace_back(board, traffic, arguments.bus);
    ZceBoard::RunBoards(loops, g_stop);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Main(argc, argv);
    } catch (const std::exception& error) {  // out of memory
        fprintf(stderr, "zce-board: %s\n", error.what());
        return EXIT_NOT_STARTED;
    }
}
