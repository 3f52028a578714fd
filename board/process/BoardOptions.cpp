#include "process/BoardOptions.h"

#include <grp.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "memory/AccessTime.h"
#include "memory/Values.h"
#include "program/Program.h"

namespace ZceBoard {

namespace {

constexpr uint64_t MAX_RATE = 10'000'000;
constexpr const char* STANDARD_INPUT = "-";
constexpr double MIN_SPEED = 0.001;
constexpr double MAX_SPEED = 1000;

// What the command line holds as it is written.
struct Words {
    std::string feeds;
    std::string speed = "1";
    std::string clockSpeed = "1";
    std::string at;
    std::string group;
    uint32_t bus = 0;
    double auctionCycle = 4;
    double tradingCycle = 60;
};

struct Given {
    const CLI::Option* bus = nullptr;
    const CLI::Option* feeds = nullptr;
    const CLI::Option* group = nullptr;
    const CLI::Option* at = nullptr;
    const CLI::Option* clockSpeed = nullptr;
};

constexpr const char* AFTER_THE_OPTIONS =
    "-- COMMAND...: a program that is started when the board is there, with the board's clock (by\n"
    "libfaketime) and the board's library. The board ends with it, and the exit status is its "
    "own.\n"
    "\n"
    "    zce-board --at 08:54:50 --products all -- zce-recv config.ini --seconds 40\n"
    "\n"
    "zce-board ctl COMMAND looks at a board that is running and asks it for things: see\n"
    "zce-board ctl --help. Manual pages: zce-board(1), zce-board-ctl(1).";

void DescribeSources(CLI::App& app, Options& options) {
    auto* source = app.add_option_group("traffic", "what the board plays: one of");
    source->add_option("--instruments", options.instruments,
                       "An exchange with the instruments of a file, one name a line; # begins a "
                       "comment. - is standard input, here and with --scenario and --feeds");
    source
        ->add_option("--products", options.products,
                     "all: an exchange with the full list of products")
        ->check(CLI::IsMember({"all"}));
    source->add_option("--scenario", options.scenario,
                       "A scenario, an INI file: instruments, the day, rates, faults, boards");
    source->add_option("--replay", options.replay,
                       "A recorded session: its messages go to the channels that they came from, "
                       "once all of them are open");
    source->add_option("--relay", options.relay,
                       "What zce-relay publishes of the board of another machine, through the NATS "
                       "server at this address, nats://HOST:PORT: the same messages, as they come");
    source->require_option(1);
}

void DescribeRelay(CLI::App& app, Options& options) {
    auto* relay = app.get_option("--relay");
    app.add_option("--relay-settings", options.relaySettings,
                   "An INI file whose section [nats] has user and password, token, nkey or "
                   "credentials, and the files for TLS")
        ->needs(relay);
    auto* stream =
        app.add_option("--relay-stream", options.relayStream,
                       "JetStream's stream: what was published while the server was away comes "
                       "later")
            ->needs(relay);
    app.add_flag("--relay-from-start", options.bRelayFromStart,
                 "Begin with the oldest message that the stream has")
        ->needs(stream);
}

void DescribeExchange(CLI::App& app, Options& options, Words& words) {
    const auto noScenario = [&app](CLI::Option* option) {
        option->excludes(app.get_option("--scenario"))->excludes(app.get_option("--replay"));
        return option;
    };
    const auto exchangeAlone = [&app, &noScenario](CLI::Option* option) {
        noScenario(option)->excludes(app.get_option("--relay"));
    };
    exchangeAlone(app.add_option("--seed", options.live.seed,
                                 "Seed of the market: the same seed and list give the same ticks")
                      ->capture_default_str());
    exchangeAlone(app.add_option("--rate", options.live.rate,
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
    DescribeRelay(app, options);
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
            ->excludes(app.get_option("--replay"))
            ->excludes(app.get_option("--relay"));
    app.add_option("--speed", words.speed,
                   "How fast a replay goes: a factor from 0.001 to 1000, or max")
        ->needs(app.get_option("--replay"))
        ->capture_default_str();
    given.at = app.add_option("--at", words.at,
                              "The board's time of day at the beginning, as the exchange's clocks "
                              "show it, whatever the zone of this machine: \"HH:MM:SS\" or "
                              "\"YYYY-MM-DD HH:MM:SS\"")
                   ->excludes(app.get_option("--replay"))
                   ->excludes(app.get_option("--relay"));
    given.clockSpeed = app.add_option("--clock-speed", words.clockSpeed,
                                      "How fast the board's clock goes: a factor from 0.001 to "
                                      "1000")
                           ->excludes(app.get_option("--replay"))
                           ->excludes(app.get_option("--relay"))
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
        ->excludes(app.get_option("--replay"))
        ->excludes(app.get_option("--relay"));
    return given;
}

// In thousandths; nothing if it is no such number.
std::optional<int64_t> SpeedOf(const std::string& text) {
    double speed = 0;
    return ParseDecimal(text, MIN_SPEED, MAX_SPEED, speed)
               ? std::optional<int64_t>(std::lround(speed * 1000))
               : std::nullopt;
}

void TakeSpeed(const std::string& text, Options& options) {
    const auto speed = text == "max" ? 0 : SpeedOf(text);
    if (!speed) {
        throw CLI::ValidationError("--speed", "\"" + text +
                                                  "\" is neither a number from 0.001 to "
                                                  "1000 nor max");
    }
    options.speedMilli = *speed;
}

void TakeClockSpeed(const std::string& text, ClockStart& clock) {
    clock.speedMilli = SpeedOf(text);
    if (!clock.speedMilli) {
        throw CLI::ValidationError("--clock-speed",
                                   "\"" + text + "\" is no number from 0.001 to 1000");
    }
}

// "08:54:50", or a date with dashes and a blank in front of it.
void TakeMoment(const std::string& text, ClockStart& clock) {
    const size_t blank = text.find(' ');
    if (blank != std::string::npos) {
        std::string date = text.substr(0, blank);
        if (date.size() == 10 && date[4] == '-' && date[7] == '-') {
            clock.date = ParseDate(date.erase(7, 1).erase(4, 1));
        }
    }
    clock.hhmmss = ParseTimeOfDay(blank == std::string::npos ? text : text.substr(blank + 1));
    if (!clock.hhmmss || clock.date.has_value() != (blank != std::string::npos)) {
        throw CLI::ValidationError(
            "--at",
            "\"" + text + "\" is no time of day: HH:MM:SS is needed, or YYYY-MM-DD HH:MM:SS");
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

namespace {

// What the command line holds beyond what its reader checks.
void TakeWords(const Words& words, const Given& given, Options& options) {
    TakeSpeed(words.speed, options);
    if (given.at->count() != 0) {
        TakeMoment(words.at, options.live.clock);
    }
    if (given.clockSpeed->count() != 0) {
        TakeClockSpeed(words.clockSpeed, options.live.clock);
    }
    if (given.group->count() != 0) {
        options.group = GroupOf(words.group);
    }
    if (given.bus->count() != 0) {
        options.bus = words.bus;
    }
    if (given.feeds->count() != 0) {  // its file may be named ""
        options.feeds = words.feeds;
    }
    if (options.instruments == STANDARD_INPUT && options.feeds == STANDARD_INPUT) {
        throw CLI::ValidationError("--feeds", "standard input is that of --instruments already");
    }
    const auto seconds = [](double value) {
        return static_cast<int64_t>(value * static_cast<double>(NS_PER_SECOND));
    };
    options.live.pace = {seconds(words.auctionCycle), seconds(words.tradingCycle)};
}

// Takes what stands behind "--" out of the command line: how many words are left.
int TakeCommand(int argc, char** argv, Options& options) {
    for (int k = 1; k < argc; ++k) {
        if (strcmp(argv[k], "--") == 0) {
            options.command.assign(argv + k + 1, argv + argc);
            if (options.command.empty()) {
                throw CLI::RequiredError("a command behind --");
            }
            return k;
        }
    }
    return argc;
}

}  // namespace

std::optional<int> ParseOptions(int argc, char** argv, Options& options) {
    CLI::App app{"A software board for CZCE market data, and the exchange that it hears.",
                 "zce-board"};
    app.footer(AFTER_THE_OPTIONS);
    Words words;
    const Given given = Describe(app, options, words);
    try {
        const int own = TakeCommand(argc, argv, options);
        if (const auto status = ZceProgram::ReadCommandLine(app, own, argv)) {
            return status;
        }
        TakeWords(words, given, options);
        if (options.bList && !options.command.empty()) {
            throw CLI::ExcludesError("--list-instruments", "a command");
        }
    } catch (const CLI::ParseError& error) {
        fprintf(stderr, "zce-board: %s\n", error.what());
        return ZceProgram::EXIT_NOT_DONE;
    }
    return std::nullopt;
}

bool ReadInstruments(const Options& options, CInstrumentList& list, std::string& error) {
    if (!options.products.empty()) {
        list.AddAllProducts();
        return true;
    }
    if (options.instruments == STANDARD_INPUT) {
        return list.Read(std::cin, "standard input", error);
    }
    return list.ReadFile(options.instruments, error);
}

}  // namespace ZceBoard
