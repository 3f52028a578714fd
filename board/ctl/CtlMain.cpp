#include "ctl/CtlMain.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <sstream>
#include <vector>

#include "ctl/ControlCommands.h"
#include "ctl/CtlBoard.h"
#include "ctl/CtlError.h"
#include "ctl/FaultCommands.h"
#include "ctl/RegisterReport.h"
#include "ctl/Snapshot.h"
#include "ctl/StatusReport.h"
#include "ctl/TableReport.h"
#include "memory/BoardMemory.h"
#include "memory/RegisterMap.h"
#include "program/Program.h"

namespace ZceBoard {

namespace {

constexpr const char* NAME = "zce-board ctl";
constexpr int EXIT_REFUSED = ZceProgram::EXIT_NOT_DONE;
constexpr int JSON_INDENT = 2;

using Json = nlohmann::ordered_json;

struct Options {
    uint32_t bus = 0;
    bool bJson = false;
    std::vector<std::string> registers;
    TableChoice tables;
    std::vector<std::string> moment;
    std::string step = "1";
    std::string fault;
    std::vector<std::string> settings;
};

using Command = std::string (*)(CBoardMemory& memory, const Options& options);

std::string Dump(const Json& json) {
    return json.dump(JSON_INDENT) + "\n";
}

std::string Clock(CBoardMemory& memory, const Options& options) {
    const BoardSnapshot snapshot = TakeSnapshot(memory.Shm());
    return options.bJson ? Dump(ClockJson(snapshot)) : ClockText(snapshot);
}

std::string Status(CBoardMemory& memory, const Options& options) {
    const BoardSnapshot snapshot = TakeSnapshot(memory.Shm());
    return options.bJson ? Dump(StatusJson(snapshot, FaultsJson(memory.Shm())))
                         : StatusText(snapshot);
}

std::string Registers(CBoardMemory& memory, const Options& options) {
    const std::vector<uint32_t> indices = RegistersOf(options.registers);
    return options.bJson ? Dump(RegistersJson(memory.Shm(), indices))
                         : RegistersText(memory.Shm(), indices);
}

std::string Tables(CBoardMemory& memory, const Options& options) {
    return options.bJson ? Dump(TablesJson(memory.Shm(), options.tables))
                         : TablesText(memory.Shm(), options.tables);
}

std::string Counters(CBoardMemory& memory, const Options& options) {
    const BoardSnapshot snapshot = TakeSnapshot(memory.Shm());
    return options.bJson ? Dump(CountersJson(snapshot)) : CountersText(snapshot);
}

std::string Advance(CBoardMemory& memory, const Options& options) {
    AdvanceTo(memory, options.moment);
    return Clock(memory, options);
}

// A line for people if nothing had to be done.
std::string Already(const CBoardMemory& memory, const Options& options, bool bDone,
                    const char* state) {
    return bDone || options.bJson ? "" : fmt::format("bus {}: already {}\n", memory.Bus(), state);
}

std::string Pause(CBoardMemory& memory, const Options& options) {
    const bool bDone = PauseBoard(memory);
    return Already(memory, options, bDone, "paused") + Clock(memory, options);
}

std::string Resume(CBoardMemory& memory, const Options& options) {
    const bool bDone = ResumeBoard(memory);
    return Already(memory, options, bDone, "running") + Clock(memory, options);
}

std::string Step(CBoardMemory& memory, const Options& options) {
    StepBoard(memory, options.step);
    return Clock(memory, options);
}

std::string Faults(CBoardMemory& memory, const Options& options) {
    return options.bJson ? Dump({{"bus", memory.Bus()}, {"faults", FaultsJson(memory.Shm())}})
                         : FaultsText(memory.Shm());
}

std::string FaultOn(CBoardMemory& memory, const Options& options) {
    const std::string done = SwitchFaultOn(memory, options.fault, options.settings);
    return options.bJson ? Faults(memory, options) : done;
}

std::string FaultOff(CBoardMemory& memory, const Options& options) {
    const std::string done = SwitchFaultOff(memory, options.fault);
    return options.bJson ? Faults(memory, options) : done;
}

class CCtl {
  public:
    CCtl() {
        m_app.set_version_flag("--version", ZceProgram::VersionText(NAME),
                               "Print the version, and end");
        m_app.require_subcommand(1);
        m_app.fallthrough();
        m_app.add_option("--bus", m_options.bus, "Bus index of the board")
            ->check(CLI::Range(0U, LAST_BUS))
            ->capture_default_str();
        m_app.add_flag("--json", m_options.bJson, "For programs: one JSON object");
        DescribeLooks();
        DescribeClock();
        DescribeFaults();
    }

    CtlResult Run(int argc, const char* const* argv) {
        try {
            m_app.parse(argc, argv);
            return {0, Do(), ""};
        } catch (const CLI::Success& help) {
            std::ostringstream output;
            m_app.exit(help, output, output);
            return {0, output.str(), ""};
        } catch (const CLI::ParseError& error) {
            return Refused(UsageError(error));
        } catch (const CCtlError& error) {
            return Refused(error.what());
        }
    }

  private:
    // Where in the command line, and what; an unknown command is told by what stands in its place.
    std::string UsageError(const CLI::ParseError& error) {
        std::string where;
        const CLI::App* last = &m_app;
        while (!last->get_subcommands().empty()) {
            last = last->get_subcommands().front();
            where.append(where.empty() ? "" : " ").append(last->get_name());
        }
        where.append(where.empty() ? "" : ": ");
        const std::vector<std::string> rest = m_app.remaining(true);
        const auto isExit = [&error](CLI::ExitCodes code) {
            return error.get_exit_code() == static_cast<int>(code);
        };
        if (isExit(CLI::ExitCodes::ExtrasError)) {
            return fmt::format("{}not expected: {}", where, fmt::join(rest, " "));
        }
        std::vector<std::string> names;
        for (const CLI::App* sub : last->get_subcommands(AnyApp)) {
            names.push_back(sub->get_name());
        }
        if (names.empty() || !isExit(CLI::ExitCodes::RequiredError)) {
            return where + error.what();
        }
        return fmt::format(
            "{}{}; there are {}", where,
            rest.empty() ? "a command is missing" : "no such command: '" + rest.front() + "'",
            fmt::join(names, ", "));
    }

    static bool AnyApp(const CLI::App* /*app*/) { return true; }

    static CtlResult Refused(const std::string& reason) {
        return {EXIT_REFUSED, "", "zce-board ctl: " + reason + "\n"};
    }

    std::string Do() const {
        if (m_command == nullptr) {  // what kinds of faults there are is known without a board
            return m_options.bJson ? Dump(FaultKindsJson()) : FaultKindsText();
        }
        CBoardMemory memory;
        AttachBoard(memory, m_options.bus);
        return m_command(memory, m_options);
    }

    CLI::App* Add(CLI::App& parent, const char* name, const char* text, Command command) {
        CLI::App* sub = parent.add_subcommand(name, text);
        sub->fallthrough();
        sub->callback([this, command] { m_command = command; });
        return sub;
    }

    void DescribeLooks() {
        Add(m_app, "status", "How the board stands", Status);
        Add(m_app, "registers", "Registers, by default all that have a name", Registers)
            ->add_option("range", m_options.registers,
                         "FIRST or FIRST-LAST, hexadecimal behind 0x or decimal");
        CLI::App* tables = Add(m_app, "tables", "Which instrument goes to which channels", Tables);
        CLI::Option* channel =
            tables
                ->add_option_function<uint32_t>(
                    "--channel", [this](uint32_t value) { m_options.tables.channel = value; },
                    "Only what goes to this channel")
                ->check(CLI::Range(0U, static_cast<uint32_t>(CHANNELS - 1)));
        tables
            ->add_flag("--all", m_options.tables.bAll,
                       "Also learnt instruments that go to no channel")
            ->excludes(channel);
        Add(m_app, "counters", "What was sent, dropped and parsed", Counters);
    }

    void DescribeClock() {
        Add(m_app, "advance", "Move the board's clock forward to a time of day", Advance)
            ->add_option("time", m_options.moment, "[to] HH:MM:SS")
            ->required();
        Add(m_app, "pause", "Let clock and traffic stand still", Pause);
        Add(m_app, "resume", "Let them go on", Resume);
        Add(m_app, "step", "Let some time pass while the board is paused", Step)
            ->add_option("ms", m_options.step, "Milliseconds of board time")
            ->capture_default_str();
    }

    void DescribeFaults() {
        CLI::App* fault = m_app.add_subcommand("fault", "Things that are wrong with the board");
        fault->fallthrough();
        fault->require_subcommand(1);
        Add(*fault, "list", "The faults that are on", Faults);
        Add(*fault, "kinds", "What faults there are", nullptr);
        CLI::App* on = Add(*fault, "on", "Switch a fault on", FaultOn);
        on->add_option("kind", m_options.fault, "One of `fault kinds`")->required();
        on->add_option("setting", m_options.settings, "key=value");
        Add(*fault, "off", "Switch a fault off", FaultOff)
            ->add_option("kind", m_options.fault, "One of `fault kinds`, or all")
            ->required();
    }

    CLI::App m_app{"Looks at a running zce-board and asks it for things.", NAME};
    Options m_options;
    Command m_command = nullptr;
};

}  // namespace

CtlResult RunCtl(int argc, const char* const* argv) {
    return CCtl().Run(argc, argv);
}

int CtlMain(int argc, const char* const* argv) {
    ZceProgram::IgnoreBrokenPipes();
    const CtlResult result = RunCtl(argc, argv);
    fputs(result.error.c_str(), stderr);
    return ZceProgram::WriteOutput(NAME, result.output, result.status);
}

}  // namespace ZceBoard
