#include "process/BoardOptions.h"

#include <grp.h>

#include <CLI/CLI.hpp>
#include <cmath>

#include "memory/AccessTime.h"
#include "memory/Values.h"

namespace ZceBoard {

namespace {

constexpr uint64_t MAX_RATE = 10'000'000;
constexpr double MIN_SPEED = 0.001;
constexpr double MAX_SPEED = 1000;

// What the command line holds as it is written.
struct Words {
    std::string feeds;
    std::string speed = "1";
    std::string group;
    uint32_t bus = 0;
    double auctionCycle = 4;
    double tradingCycle = 60;
};

struct Given {
    const CLI::Option* bus = nullptr;
    const CLI::Option* feeds = nullptr;
    const CLI::Option* group = nullptr;
};

void DescribeSources(CLI::App& app, Options& options) {
    auto* source = app.add_option_group("traffic", "what the board plays: one of");
    source->add_option("--instruments", options.instruments,
                       "An exchange with the instruments of a file, one name a line; # begins a "
                       "comment");
    source
        ->add_option("--products", options.products,
                     "all: an exchange with the full list of products")
        ->check(CLI::IsMember({"all"}));
    source->add_option("--scenario", options.scenario,
                       "A scenario, an INI file: instruments, the day, rates, faults, boards");
    source->add_option("--replay", options.replay,
                       "A recorded session: its messages go to the channels that they came from, "
                       "once all of them are open");
    source->require_option(1);
}

void DescribeExchange(CLI::App& app, Options& options, Words& words) {
    const auto noScenario = [&app](CLI::Option* option) {
        option->excludes(app.get_option("--scenario"))->excludes(app.get_option("--replay"));
    };
    noScenario(app.add_option("--seed", options.live.seed,
                              "Seed of the market: the same seed and list give the same ticks")
                   ->capture_default_str());
    noScenario(app.add_option("--rate", options.live.rate,
                              "Ticks a second of real time, over all instruments")
                   ->check(CLI::Range(uint64_t{0}, MAX_RATE))
                   ->capture_default_str());
    noScenario(
        app.add_option("--broadcast-cycle", words.auctionCycle,
                       "Seconds of board time for one round of the instrument broadcast in an "
                       "auction")
            ->check(CLI::Range(0.01, 3600.0))
            ->capture_default_str());
    noScenario(
        app.add_option("--broadcast-cycle-trading", words.tradingCycle, "The same in trading time")
            ->check(CLI::Range(0.01, 3600.0))
            ->capture_default_str());
}

Given Describe(CLI::App& app, Options& options, Words& words) {
    DescribeSources(app, options);
    DescribeExchange(app, options, words);
    Given given;
    given.bus = app.add_option("--bus", words.bus, "Bus index of the board")
                    ->check(CLI::Range(0U, MAX_BUSES - 1))
                    ->excludes(app.get_option("--scenario"))
                    ->capture_default_str();
    given.feeds =
        app.add_option("--feeds", words.feeds,
                       "An INI file with the addresses of the feeds L5 and L1, under the keys of "
                       "a host's section [config]: a feed arrives only while the host has "
                       "programmed the same. Without: both arrive, whatever is programmed")
            ->excludes(app.get_option("--scenario"))
            ->excludes(app.get_option("--replay"));
    app.add_option("--speed", words.speed,
                   "How fast a replay goes: a factor from 0.001 to 1000, or max")
        ->needs(app.get_option("--replay"))
        ->capture_default_str();
    app.add_option("--clock-file", options.clockFile,
                   "A file that tells the board's clock to programs under libfaketime")
        ->excludes(app.get_option("--scenario"));
    given.group = app.add_option("--group", words.group,
                                 "A group, name or number, whose members may use the board too");
    app.add_option("--access-ns", options.accessNs,
                   "What each read and write of a register takes at least, in nanoseconds of real "
                   "time: about 1000 is a board on a bus")
        ->check(CLI::Range(0U, MAX_ACCESS_NS))
        ->capture_default_str();
    app.add_flag("--list-instruments", options.bList,
                 "Print the instruments, one index,type,name a line, and end")
        ->excludes(app.get_option("--replay"));
    return given;
}

void TakeSpeed(const std::string& text, Options& options) {
    double speed = 0;
    if (text == "max") {
        options.speedMilli = 0;
    } else if (ParseDecimal(text, MIN_SPEED, MAX_SPEED, speed)) {
        options.speedMilli = std::lround(speed * 1000);
    } else {
        throw CLI::ValidationError("--speed", "\"" + text +
                                                  "\" is neither a number from 0.001 to "
                                                  "1000 nor max");
    }
}

gid_t GroupOf(const std::string& text) {
    constexpr double mostGid = 4294967294.0;  // the one above means none
    if (const auto* const entry = getgrnam(text.c_str()); entry != nullptr) {
        return entry->gr_gid;
    }
    double number = 0;
    if (text.find_first_not_of("0123456789") == std::string::npos &&
        ParseDecimal(text, 0, mostGid, number)) {
        return static_cast<gid_t>(number);
    }
    throw CLI::ValidationError("--group", "\"" + text + "\" is no group of this machine");
}

}  // namespace

bool ParseOptions(int argc, char** argv, Options& options, int& status) {
    CLI::App app{"A software board for CZCE market data, and the exchange that it hears.",
                 "zce-board"};
    Words words;
    const Given given = Describe(app, options, words);
    try {
        app.parse(argc, argv);
        TakeSpeed(words.speed, options);
        if (given.group->count() != 0) {
            options.group = GroupOf(words.group);
        }
    } catch (const CLI::ParseError& error) {
        status = app.exit(error);
        return false;
    }
    if (given.bus->count() != 0) {
        options.bus = words.bus;
    }
    if (given.feeds->count() != 0) {  // its file may be named ""
        options.feeds = words.feeds;
    }
    const auto seconds = [](double value) {
        return static_cast<int64_t>(value * static_cast<double>(NS_PER_SECOND));
    };
    options.live.pace = {seconds(words.auctionCycle), seconds(words.tradingCycle)};
    return true;
}

bool ReadInstruments(const Options& options, CInstrumentList& list, std::string& error) {
    if (!options.products.empty()) {
        list.AddAllProducts();
        return true;
    }
    return list.ReadFile(options.instruments, error);
}

}  // namespace ZceBoard
