#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <memory>
#include <string>

#include "ctl/CtlMain.h"
#include "process/BoardOptions.h"
#include "process/BoardSet.h"
#include "process/ClockFile.h"
#include "process/Command.h"
#include "process/CommandSetting.h"
#include "process/Signals.h"
#include "program/Printable.h"
#include "program/Program.h"
#include "relay/Receiver.h"
#include "relay/Settings.h"
#include "traffic/FeedFile.h"
#include "traffic/LiveTraffic.h"
#include "traffic/RelayTraffic.h"
#include "traffic/ReplayTraffic.h"
#include "traffic/ScenarioTraffic.h"

// zce-board: a software board, or several, and the exchange behind them; or, as `zce-board ctl`, a
// look at one that is running (CtlMain.h). Exit status: 0 after
// SIGINT, SIGTERM or SIGHUP, at the end of a scenario or a replay, and for --help and
// --list-instruments; with a command, the command's; 2 for a usage error and for a board that
// cannot start, with the reason on standard error.

namespace {

using ZceBoard::CBoardSet;
using ZceBoard::CCommand;
using ZceBoard::Options;

int NotStarted(const std::string& error) {
    fprintf(stderr, "zce-board: %s\n", error.c_str());
    return ZceProgram::EXIT_NOT_DONE;
}

int PrintInstruments(const ZceBoard::CInstrumentList& list) {
    std::string lines;
    for (const ZceBoard::Instrument& instrument : list.All()) {
        lines += std::to_string(instrument.index) + "," + std::to_string(instrument.table) + "," +
                 instrument.name + "\n";
    }
    return ZceProgram::WriteOutput("zce-board", lines, ZceProgram::EXIT_FINE);
}

// The boards of this process, and what runs beside them.
class CPlay {
  public:
    explicit CPlay(const Options& options)
        : m_options(options), m_boards(options.group, options.accessNs) {}

    // Before the boards are made. `clockFile`: the boards', which a command gets one for; `at`: who
    // asks for it.
    bool Prepare(std::string& clockFile, const std::string& at, std::string& error) {
        ZceBoard::Signals::Install(!m_options.command.empty());
        const std::string why = clockFile.empty() ? "" : ZceBoard::CClockFile::WhyNot(clockFile);
        if (!why.empty()) {
            error = at;
            error.append(": ").append(why);
            return false;
        }
        if (m_options.command.empty()) {
            return true;
        }
        if (!m_setting.Make(clockFile, error)) {
            return false;
        }
        clockFile = m_setting.ClockFile();
        return true;
    }
    CBoardSet& Boards() { return m_boards; }
    // The exit status of the process.
    int Run() {
        if (m_options.command.empty()) {
            m_boards.Run(ZceBoard::Signals::Stop());
            return ZceProgram::EXIT_FINE;
        }
        CCommand command(m_options.command, m_setting);
        m_boards.Run(ZceBoard::Signals::Stop(), &command);
        return command.Status();
    }

  private:
    const Options& m_options;
    ZceBoard::CCommandSetting m_setting;  // its clock file goes after the boards
    CBoardSet m_boards;
};

int PlayLive(const Options& options) {
    ZceBoard::CInstrumentList list;
    ZceBoard::CFeeds feeds;
    std::string error;
    if (!ReadInstruments(options, list, error) ||
        (options.feeds && !ReadFeedFile(*options.feeds, feeds, error))) {
        return NotStarted(error);
    }
    if (options.bList) {
        return PrintInstruments(list);
    }
    CPlay play(options);
    std::string clockFile = options.clockFile;
    if (!play.Prepare(clockFile, "--clock-file " + clockFile, error) ||
        !play.Boards().Add(options.bus.value_or(0), feeds,
                           std::make_unique<ZceBoard::CLiveTraffic>(list, options.live), clockFile,
                           error)) {
        return NotStarted(error);
    }
    return play.Run();
}

int PlayScenario(const Options& options) {
    ZceBoard::Scenario scenario;
    std::string error;
    if (!ReadScenario(options.scenario, scenario, error, options.live.clock)) {
        return NotStarted(error);
    }
    if (options.bList) {
        return PrintInstruments(scenario.instruments);
    }
    CPlay play(options);
    std::string clockFile = scenario.clockFile;
    if (!play.Prepare(clockFile, scenario.clockFileAt, error)) {
        return NotStarted(error);
    }
    const uint32_t today = ZceBoard::BoardTimeAt(ZceBoard::ReadHostTime().wallNs).date;
    for (const uint32_t bus : scenario.buses) {
        if (!play.Boards().Add(bus, scenario.feeds,
                               std::make_unique<ZceBoard::CScenarioTraffic>(scenario, today),
                               clockFile, error)) {
            return NotStarted(error);
        }
        clockFile.clear();  // all boards have the same clock: the first one tells it
    }
    return play.Run();
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
    CPlay play(options);
    std::string clockFile = options.clockFile;
    if (!play.Prepare(clockFile, "--clock-file " + clockFile, error)) {
        return NotStarted(error);
    }
    for (const auto& [bus, content] : summary.buses) {
        auto traffic = std::make_unique<ZceBoard::CReplayTraffic>(options.replay, summary, bus,
                                                                  options.speedMilli);
        if (!traffic->Open(error) || !play.Boards().Add(options.bus.value_or(bus), {},
                                                        std::move(traffic), clockFile, error)) {
            return NotStarted(error);
        }
        clockFile.clear();
    }
    return play.Run();
}

int PlayRelay(const Options& options) {
    constexpr size_t ringBytes = size_t{64} << 20U;
    ZceRelay::Settings settings;
    std::string error;
    if (!options.relaySettings.empty() &&
        !ZceRelay::ReadSettings(options.relaySettings, settings, error)) {
        return NotStarted("--relay-settings " + error);
    }
    if (!ZceRelay::TakeServer(options.relay, settings, error)) {
        return NotStarted("--relay: " + error);
    }
    const uint32_t bus = options.bus.value_or(0);
    ZceRelay::SubscribeOptions what;
    what.bus = static_cast<uint16_t>(bus);
    what.stream = options.relayStream;
    what.name = "zce-board bus " + std::to_string(bus);
    if (options.bRelayFromStart) {
        what.sinceNs = 0;
    }
    ZceRelay::CReceivedMessages messages(ringBytes);
    ZceRelay::CReceiver receiver(settings, what, messages, [](const std::string& line) {
        fprintf(stderr, "zce-board: relay: %s\n", ZceProgram::Printable(line).c_str());
    });
    CPlay play(options);
    std::string clockFile = options.clockFile;
    if (!receiver.Prepare(error) || !play.Prepare(clockFile, "--clock-file " + clockFile, error) ||
        !play.Boards().Add(
            bus, {},
            std::make_unique<ZceBoard::CRelayTraffic>(messages, settings.server, options.live.pace,
                                                      !options.relayStream.empty()),
            clockFile, error)) {
        return NotStarted(error);
    }
    receiver.Start();
    return play.Run();
}

int Main(int argc, char** argv) {
    ZceBoard::Signals::IgnoreBrokenPipes();
    Options options;
    if (const auto status = ParseOptions(argc, argv, options)) {
        return *status;
    }
    if (options.live.clock.hhmmss) {
        setenv("TZ", "CST-8", 1);  // the exchange's, on a machine without a list of zones too
    }
    tzset();
    if (!options.scenario.empty()) {
        return PlayScenario(options);
    }
    if (!options.relay.empty()) {
        return PlayRelay(options);
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
