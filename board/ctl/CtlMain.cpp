#include "ctl/CtlMain.h"

#include <fmt/format.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>
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
#include "program/CommandLine.h"
#include "program/Program.h"

namespace ZceBoard {

namespace {

constexpr const char* NAME = "zce-board ctl";
constexpr int EXIT_REFUSED = ZceProgram::EXIT_NOT_DONE;
constexpr int JSON_INDENT = 2;

using Json = nlohmann::ordered_json;
using ZceProgram::CArguments;

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
        m_app.Version(ZceProgram::VersionText(NAME));
        m_app.RequireSubcommand();
        m_app.OptionsAnywhere();
        m_app.Option("--bus", m_options.bus, "Bus index of the board")
            .Range(0U, LAST_BUS)
            .ShowDefault();
        m_app.Flag("--json", m_options.bJson, "For programs: one JSON object");
        DescribeLooks();
        DescribeClock();
        DescribeFaults();
    }

    CtlResult Run(int argc, const char* const* argv) {
        try {
            const auto answer = m_app.Parse(argc, argv);
            return {0, answer ? *answer : Do(), ""};
        } catch (const ZceProgram::UsageError& error) {
            return Refused(UsageText(error));
        } catch (const CCtlError& error) {
            return Refused(error.what());
        }
    }

  private:
    // Where in the command line, and what; an unknown command is told by what stands in its place.
    static std::string UsageText(const ZceProgram::UsageError& error) {
        using Kind = ZceProgram::UsageError::Kind;
        const std::string where =
            error.chosen.empty() ? "" : fmt::format("{}: ", fmt::join(error.chosen, " "));
        if (error.kind == Kind::Unexpected) {
            return fmt::format("{}not expected: {}", where, fmt::join(error.unexpected, " "));
        }
        if (error.commands.empty() || error.kind != Kind::Missing) {
            return where + error.what();
        }
        return fmt::format("{}{}; there are {}", where,
                           error.unexpected.empty()
                               ? "a command is missing"
                               : "no such command: '" + error.unexpected.front() + "'",
                           fmt::join(error.commands, ", "));
    }

    static CtlResult Refused(const std::string& reason) {
        return {EXIT_REFUSED, "", "zce-board ctl: " + reason + "\n"};
    }

    std::string Do() const {
        const Command command = Chosen();
        if (command == nullptr) {  // what kinds of faults there are is known without a board
            return m_options.bJson ? Dump(FaultKindsJson()) : FaultKindsText();
        }
        CBoardMemory memory;
        AttachBoard(memory, m_options.bus);
        return command(memory, m_options);
    }

    // Which of the subcommands that do something; nothing for one that needs no board.
    Command Chosen() const {
        for (const auto& [sub, command] : m_commands) {
            if (sub.IsChosen()) {
                return command;
            }
        }
        return nullptr;
    }

    CArguments Add(const CArguments& parent, const char* name, const char* text, Command command) {
        return m_commands.emplace_back(parent.Subcommand(name, text), command).first;
    }

    void DescribeLooks() {
        Add(m_app, "status", "How the board stands", Status);
        Add(m_app, "registers", "Registers, by default all that have a name", Registers)
            .Option("range", m_options.registers,
                    "FIRST or FIRST-LAST, hexadecimal behind 0x or decimal");
        const auto tables = Add(m_app, "tables", "Which instrument goes to which channels", Tables);
        const auto channel =
            tables.Option("--channel", m_options.tables.channel, "Only what goes to this channel")
                .Range(0U, static_cast<uint32_t>(CHANNELS - 1));
        tables.Flag("--all", m_options.tables.bAll, "Also learnt instruments that go to no channel")
            .Excludes(channel);
        Add(m_app, "counters", "What was sent, dropped and parsed", Counters);
    }

    void DescribeClock() {
        Add(m_app, "advance", "Move the board's clock forward to a time of day", Advance)
            .Option("time", m_options.moment, "[to] HH:MM:SS")
            .Required();
        Add(m_app, "pause", "Let clock and traffic stand still", Pause);
        Add(m_app, "resume", "Let them go on", Resume);
        Add(m_app, "step", "Let some time pass while the board is paused", Step)
            .Option("ms", m_options.step, "Milliseconds of board time")
            .ShowDefault();
    }

    void DescribeFaults() {
        const auto fault = m_app.Subcommand("fault", "Things that are wrong with the board");
        fault.RequireSubcommand();
        Add(fault, "list", "The faults that are on", Faults);
        Add(fault, "kinds", "What faults there are", nullptr);
        const auto on = Add(fault, "on", "Switch a fault on", FaultOn);
        on.Option("kind", m_options.fault, "One of `fault kinds`").Required();
        on.Option("setting", m_options.settings, "key=value");
        Add(fault, "off", "Switch a fault off", FaultOff)
            .Option("kind", m_options.fault, "One of `fault kinds`, or all")
            .Required();
    }

    ZceProgram::CCommandLine m_app{NAME, "Looks at a running zce-board and asks it for things."};
    Options m_options;
    std::vector<std::pair<CArguments, Command>> m_commands;
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
