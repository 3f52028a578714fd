#include "process/BoardOptions.h"

#include <grp.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "memory/AccessTime.h"
#include "memory/Values.h"
#include "program/CommandLine.h"
#include "program/Program.h"

namespace ZceBoard {

namespace {

using ZceProgram::CArguments;
using ZceProgram::COption;
using ZceProgram::UsageError;

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
    COption bus;
    COption feeds;
    COption group;
    COption at;
    COption clockSpeed;
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

void DescribeSources(const CArguments& app, Options& options) {
    const auto source = app.Group("traffic", "what the board plays: one of");
    source.Option("--instruments", options.instruments,
                  "An exchange with the instruments of a file, one name a line; # begins a "
                  "comment. - is standard input, here and with --scenario and --feeds");
    source.Option("--products", options.products, "all: an exchange with the full list of products")
        .OneOf({"all"});
    source.Option("--scenario", options.scenario,
                  "A scenario, an INI file: instruments, the day, rates, faults, boards");
    source.Option("--replay", options.replay,
                  "A recorded session: its messages go to the channels that they came from, "
                  "once all of them are open");
    source.Option("--relay", options.relay,
                  "What zce-relay publishes of the board of another machine, through the NATS "
                  "server at this address, nats://HOST:PORT: the same messages, as they come");
    source.RequireOneOption();
}

void DescribeRelay(const CArguments& app, Options& options) {
    const auto relay = app.Find("--relay");
    app.Option("--relay-settings", options.relaySettings,
               "An INI file whose section [nats] has user and password, token, nkey or "
               "credentials, and the files for TLS")
        .Needs(relay);
    const auto stream =
        app.Option("--relay-stream", options.relayStream,
                   "JetStream's stream: what was published while the server was away comes "
                   "later")
            .Needs(relay);
    app.Flag("--relay-from-start", options.bRelayFromStart,
             "Begin with the oldest message that the stream has")
        .Needs(stream);
}

void DescribeExchange(const CArguments& app, Options& options, Words& words) {
    const auto noScenario = [&app](COption option) {
        return option.Excludes(app.Find("--scenario")).Excludes(app.Find("--replay"));
    };
    const auto exchangeAlone = [&app, &noScenario](COption option) {
        noScenario(option).Excludes(app.Find("--relay"));
    };
    exchangeAlone(app.Option("--seed", options.live.seed,
                             "Seed of the market: the same seed and list give the same ticks")
                      .ShowDefault());
    exchangeAlone(
        app.Option("--rate", options.live.rate, "Ticks a second of real time, over all instruments")
            .Range(uint64_t{0}, MAX_RATE)
            .ShowDefault());
    noScenario(app.Option("--broadcast-cycle", words.auctionCycle,
                          "Seconds of board time for one round of the instrument broadcast in an "
                          "auction")
                   .Range(0.01, 3600.0)
                   .ShowDefault());
    noScenario(
        app.Option("--broadcast-cycle-trading", words.tradingCycle, "The same in trading time")
            .Range(0.01, 3600.0)
            .ShowDefault());
}

Given Describe(const CArguments& app, Options& options, Words& words) {
    DescribeSources(app, options);
    DescribeExchange(app, options, words);
    DescribeRelay(app, options);
    const auto bus = app.Option("--bus", words.bus, "Bus index of the board")
                         .Range(0U, MAX_BUSES - 1)
                         .Excludes(app.Find("--scenario"))
                         .ShowDefault();
    const auto feeds =
        app.Option("--feeds", words.feeds,
                   "An INI file with the addresses of the feeds L5 and L1, under the keys of "
                   "a host's section [config]: a feed arrives only while the host has "
                   "programmed the same. Without: both arrive, whatever is programmed")
            .Excludes(app.Find("--scenario"))
            .Excludes(app.Find("--replay"))
            .Excludes(app.Find("--relay"));
    app.Option("--speed", words.speed,
               "How fast a replay goes: a factor from 0.001 to 1000, or max")
        .Needs(app.Find("--replay"))
        .ShowDefault();
    const auto at = app.Option("--at", words.at,
                               "The board's time of day at the beginning, as the exchange's clocks "
                               "show it, whatever the zone of this machine: \"HH:MM:SS\" or "
                               "\"YYYY-MM-DD HH:MM:SS\"")
                        .Excludes(app.Find("--replay"))
                        .Excludes(app.Find("--relay"));
    const auto clockSpeed = app.Option("--clock-speed", words.clockSpeed,
                                       "How fast the board's clock goes: a factor from 0.001 to "
                                       "1000")
                                .Excludes(app.Find("--replay"))
                                .Excludes(app.Find("--relay"))
                                .ShowDefault();
    app.Option("--clock-file", options.clockFile,
               "A file that tells the board's clock to programs under libfaketime")
        .Excludes(app.Find("--scenario"));
    const auto group = app.Option("--group", words.group,
                                  "A group, name or number, whose members may use the board too");
    app.Option("--access-ns", options.accessNs,
               "What each read and write of a register takes at least, in nanoseconds of real "
               "time: about 1000 is a board on a bus")
        .Range(0U, MAX_ACCESS_NS)
        .ShowDefault();
    app.Flag("--list-instruments", options.bList,
             "Print the instruments, one index,type,name a line, and end")
        .Excludes(app.Find("--replay"))
        .Excludes(app.Find("--relay"));
    return {.bus = bus, .feeds = feeds, .group = group, .at = at, .clockSpeed = clockSpeed};
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
        throw UsageError("--speed: \"" + text +
                         "\" is neither a number from 0.001 to 1000 nor max");
    }
    options.speedMilli = *speed;
}

void TakeClockSpeed(const std::string& text, ClockStart& clock) {
    clock.speedMilli = SpeedOf(text);
    if (!clock.speedMilli) {
        throw UsageError("--clock-speed: \"" + text + "\" is no number from 0.001 to 1000");
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
        throw UsageError("--at: \"" + text +
                         "\" is no time of day: HH:MM:SS is needed, or YYYY-MM-DD HH:MM:SS");
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
    throw UsageError("--group: \"" + text + "\" is no group of this machine");
}

}  // namespace

namespace {

// What the command line holds beyond what its reader checks.
void TakeWords(const Words& words, const Given& given, Options& options) {
    TakeSpeed(words.speed, options);
    if (given.at.IsGiven()) {
        TakeMoment(words.at, options.live.clock);
    }
    if (given.clockSpeed.IsGiven()) {
        TakeClockSpeed(words.clockSpeed, options.live.clock);
    }
    if (given.group.IsGiven()) {
        options.group = GroupOf(words.group);
    }
    if (given.bus.IsGiven()) {
        options.bus = words.bus;
    }
    if (given.feeds.IsGiven()) {  // its file may be named ""
        options.feeds = words.feeds;
    }
    if (options.instruments == STANDARD_INPUT && options.feeds == STANDARD_INPUT) {
        throw UsageError("--feeds: standard input is that of --instruments already");
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
                throw UsageError("a command behind -- is required");
            }
            return k;
        }
    }
    return argc;
}

}  // namespace

std::optional<int> ParseOptions(int argc, char** argv, Options& options) {
    const ZceProgram::CCommandLine app{
        "zce-board", "A software board for CZCE market data, and the exchange that it hears."};
    app.Footer(AFTER_THE_OPTIONS);
    Words words;
    const Given given = Describe(app, options, words);
    try {
        const int own = TakeCommand(argc, argv, options);
        if (const auto status = app.Read(own, argv)) {
            return status;
        }
        TakeWords(words, given, options);
        if (options.bList && !options.command.empty()) {
            throw UsageError("--list-instruments excludes a command");
        }
    } catch (const UsageError& error) {
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
