#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <optional>
#include <string>

#include "program/CommandLine.h"
#include "program/Moment.h"
#include "program/Program.h"
#include "relay-tool/Commands.h"
#include "relay-tool/Ending.h"
#include "relay-tool/Received.h"
#include "relay-tool/ServerOptions.h"

namespace ZceRelay {

namespace {

constexpr int64_t NS_PER_SECOND = 1'000'000'000;
constexpr int64_t WAIT_MS = 100;

struct Words {
    ServerOptions server;
    std::string stream;
    std::string since;
    std::string capture;
    std::optional<uint16_t> bus;
    uint32_t seconds = 0;
    bool bFromStart = false;
    bool bCheck = false;
    bool bQuiet = false;
};

void Describe(const ZceProgram::CArguments& app, Words& words) {
    AddServerOptions(app, words.server);
    app.Option("--bus", words.bus, "The messages of this bus alone");
    const auto stream = app.Option("--stream", words.stream,
                                   "JetStream's stream: nothing is missed that it still has, also "
                                   "while the server was away");
    const auto fromStart =
        app.Flag("--from-start", words.bFromStart, "All that the stream has").Needs(stream);
    app.Option("--since", words.since,
               "What the stream has since a time of this machine's clock: HH:MM[:SS], or a "
               "date, YYYY-MM-DD, with a blank in front of it")
        .Needs(stream)
        .Excludes(fromStart);
    const auto what = app.Group("output", "one of");
    what.Option("--capture", words.capture,
                "Write a capture, which zce-board --replay and Wireshark read");
    what.Flag("--check", words.bCheck, "Look only whether anything is missing");
    what.RequireOneOption();
    app.Option("--seconds", words.seconds, "End after so many; 0: at a signal");
    app.Flag("--quiet", words.bQuiet, "No status line each second");
}

// Ns since the epoch of a local time; nothing if the text is none.
std::optional<int64_t> SinceNs(const std::string& text) {
    const time_t now = time(nullptr);
    struct tm then {};
    localtime_r(&now, &then);
    const auto today = static_cast<unsigned int>((then.tm_year + 1900) * 10000 +
                                                 (then.tm_mon + 1) * 100 + then.tm_mday);
    const auto moment = ZceProgram::ReadMoment(text, today);
    if (!moment) {
        return std::nullopt;
    }
    then = {};
    then.tm_year = static_cast<int>(moment->date / 10000) - 1900;
    then.tm_mon = static_cast<int>(moment->date / 100 % 100) - 1;
    then.tm_mday = static_cast<int>(moment->date % 100);
    then.tm_hour = static_cast<int>(moment->time / 10000);
    then.tm_min = static_cast<int>(moment->time / 100 % 100);
    then.tm_sec = static_cast<int>(moment->time % 100);
    then.tm_isdst = -1;
    return static_cast<int64_t>(mktime(&then)) * NS_PER_SECOND;
}

// Until a signal, or so many seconds. False, with the reason, if the capture takes nothing more.
bool Receive(CSubscriber& subscriber, CReceived& received, const Words& words, std::string& error) {
    const int64_t beginNs = NowNs();
    const int64_t endNs = beginNs + words.seconds * NS_PER_SECOND;
    int64_t nextSecondNs = beginNs + NS_PER_SECOND;
    Incoming incoming;
    for (int64_t nowNs = beginNs; !IsStopped() && (words.seconds == 0 || nowNs < endNs);
         nowNs = NowNs()) {
        if (subscriber.Next(incoming, WAIT_MS)) {
            received.Take(incoming);
        }
        if (nowNs < nextSecondNs) {
            continue;
        }
        nextSecondNs = nowNs + NS_PER_SECOND;
        if (!received.Flush(error)) {
            return false;
        }
        if (!words.bQuiet) {
            TellStatus(fmt::format("{} {}\n", received.StatusLine(),
                                   subscriber.IsConnected() ? "connected" : "not-connected"));
        }
    }
    return received.Flush(error);
}

}  // namespace

int SubscribeMain(int argc, const char* const* argv) {
    const ZceProgram::CCommandLine app{
        "zce-relay subscribe",
        "Receives what zce-relay publish publishes, and tells what is missing."};
    Words words;
    Describe(app, words);
    if (const auto status = app.Read(argc, argv)) {
        return *status;
    }
    std::string error;
    Settings settings;
    if (!SettingsOf(words.server, settings, error)) {
        return NotDone(error);
    }
    SubscribeOptions options;
    options.bus = words.bus;
    options.stream = words.stream;
    if (words.bFromStart) {
        options.sinceNs = 0;
    } else if (!words.since.empty()) {
        options.sinceNs = SinceNs(words.since);
        if (!options.sinceNs) {
            return NotDone(
                fmt::format("--since: \"{}\" is {}", words.since, ZceProgram::NO_MOMENT));
        }
    }
    CSubscriber subscriber(settings, options, TellError);
    CReceived received;
    if (!subscriber.Prepare(error)) {
        return NotDone(error);
    }
    if (!words.capture.empty() && !received.OpenCapture(words.capture, error)) {
        return NotDone(fmt::format("{}: {}", words.capture, error));
    }
    CatchSignals();
    const bool bWritten = Receive(subscriber, received, words, error);
    fputs(fmt::format("{}{} foreign={} connects={}\n", received.Lines(), received.StatusLine(),
                      subscriber.Foreign(), subscriber.Connects())
              .c_str(),
          stdout);
    if (!bWritten) {
        return NotDone(fmt::format("{}: {}", words.capture, error));
    }
    return received.Lost() == 0 && subscriber.Connects() != 0 ? ZceProgram::EXIT_FINE : EXIT_LOST;
}

}  // namespace ZceRelay
