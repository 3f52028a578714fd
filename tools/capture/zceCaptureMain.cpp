#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "capturetool/Diff.h"
#include "capturetool/Export.h"
#include "capturetool/Info.h"
#include "capturetool/Stats.h"
#include "capturetool/Verify.h"
#include "program/Moment.h"
#include "program/Program.h"

// zce-capture: what is in a recording, whether it is whole, and its messages as a table. Exit
// status: 0; 1 something is not well or not the same; 2 a usage error, and whatever could not be
// done, with the reason on standard error.

namespace {

using namespace ZceCaptureTool;

constexpr const char* FILE_HELP = "The capture";
constexpr const char* FILES_HELP = "The captures";

// What the chosen command does, with the options that were read for it.
using Command = std::function<int()>;

void AddInfo(CLI::App& app, InfoOptions& options, Command& command) {
    CLI::App* info = app.add_subcommand(
        "info",
        "Counts by bus, channel, opening and type, times, rates, bursts, and what is missing. Exit "
        "status 1 if a file is cut.");
    info->add_option("FILE", options.files, FILES_HELP)->required();
    info->add_option("--burst-gap", options.burstGapUs,
                     "A burst goes on while each message comes less than so many us behind the "
                     "one before")
        ->check(CLI::Range(1, 1'000'000))
        ->capture_default_str();
    info->add_flag("--json", options.json, "The answer as JSON");
    info->callback([&options, &command] { command = [&options] { return RunInfo(options); }; });
}

void AddVerify(CLI::App& app, std::vector<std::string>& files, Command& command) {
    CLI::App* verify =
        app.add_subcommand("verify",
                           "Reads each file whole and compares it with its sidecar: complete, cut, "
                           "changed, unfinished; "
                           "what a rotation lacks. Exit status 1 if something is not well.");
    verify->add_option("FILE", files, FILES_HELP)->required();
    verify->callback([&files, &command] { command = [&files] { return RunVerify(files); }; });
}

void AddChannels(CLI::App& app, std::vector<uint32_t>& channels) {
    app.add_option("--channel", channels, "Only these channels: 3 or 0,3")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(CLI::Range(0, 15));
}

// A time that an option gives.
void AddTime(CLI::App& app, const std::string& name, std::optional<GivenTime>& time,
             const std::string& help) {
    app.add_option_function<std::string>(
        name,
        [&time](const std::string& text) {
            time = ReadTime(text);
            if (!time) {
                throw CLI::ValidationError(text + " is " + ZceProgram::NO_MOMENT);
            }
        },
        help);
}

void AddExport(CLI::App& app, ExportOptions& options, Command& command) {
    CLI::App* out = app.add_subcommand(
        "export",
        "One row for each message. Exit status 1 if the file is cut: the rows before it "
        "are written.");
    out->add_flag("--csv", options.csv, "As a table of comma-separated values")->required();
    out->add_option("FILE", options.file, FILE_HELP)->required();
    out->add_option("--output", options.output, "Write to this file instead of standard output");
    out->add_flag("--raw", options.raw, "All bytes of each message in hex, no fields");
    AddChannels(*out, options.channels);
    out->add_option("--type", options.types, "Only these types of messages: 17 or 17,19")
        ->delimiter(',')
        ->allow_extra_args(false);
    AddTime(*out, "--from", options.from,
            "Only messages from this local time on: HH:MM, HH:MM:SS, HH:MM:SS.FRACTION, or one of "
            "them behind YYYY-MM-DDT; without a date on the day of the first message");
    AddTime(*out, "--to", options.to, "Only messages before this local time");
    out->callback([&options, &command] { command = [&options] { return RunExport(options); }; });
}

void AddDiff(CLI::App& app, DiffOptions& options, Command& command) {
    CLI::App* diff = app.add_subcommand(
        "diff",
        "Compares the messages of two captures, channel by channel: how many there are, and the "
        "first that differs. Exit status 1 if there is one.");
    diff->add_option("A", options.a, FILE_HELP)->required();
    diff->add_option("B", options.b, "The other")->required();
    diff->add_flag("--times", options.times, "The messages' times must be the same too");
    diff->callback([&options, &command] { command = [&options] { return RunDiff(options); }; });
}

void AddStats(CLI::App& app, StatsOptions& options, Command& command) {
    constexpr double shortest = 1e-6;
    constexpr double longest = 1e9;
    CLI::App* stats = app.add_subcommand(
        "stats",
        "The rate and the longest gap between two messages over the day, as a table or a "
        "plot. Exit status 1 if a file is cut.");
    stats->add_option("FILE", options.files, "The captures, in the order of time")->required();
    stats->add_option("--plot", options.plot, "Draw it to this SVG file (with gnuplot)");
    stats
        ->add_option("--bin", options.binSeconds,
                     "Seconds of each row or dot; without it as many as fit the day")
        ->check(CLI::Range(shortest, longest));
    AddChannels(*stats, options.channels);
    stats->callback([&options, &command] { command = [&options] { return RunStats(options); }; });
}

int Main(int argc, const char* const* argv) {
    CLI::App app{"Looks at recordings of what an application polled from its board.",
                 "zce-capture"};
    app.require_subcommand(1);
    Command command;
    InfoOptions info;
    std::vector<std::string> verified;
    ExportOptions table;
    DiffOptions diff;
    StatsOptions stats;
    AddInfo(app, info, command);
    AddVerify(app, verified, command);
    AddExport(app, table, command);
    AddDiff(app, diff, command);
    AddStats(app, stats, command);
    if (const auto status = ZceProgram::ReadCommandLine(app, argc, argv)) {
        return *status;
    }
    return command();
}

}  // namespace

int main(int argc, char** argv) {
    return ZceProgram::RunMain("zce-capture", Main, argc, argv);
}
