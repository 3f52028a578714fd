#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "capturetool/Diff.h"
#include "capturetool/Export.h"
#include "capturetool/Info.h"
#include "capturetool/Stats.h"
#include "capturetool/Verify.h"
#include "program/CommandLine.h"
#include "program/Moment.h"
#include "program/Program.h"

// zce-capture: what is in a recording, whether it is whole, and its messages as a table. Exit
// status: 0; 1 something is not well or not the same; 2 a usage error, and whatever could not be
// done, with the reason on standard error.

namespace {

using namespace ZceCaptureTool;
using ZceProgram::CArguments;

constexpr const char* FILE_HELP = "The capture";
constexpr const char* FILES_HELP = "The captures";

CArguments AddInfo(const CArguments& app, InfoOptions& options) {
    const auto info = app.Subcommand(
        "info",
        "Counts by bus, channel, opening and type, times, rates, bursts, and what is missing. Exit "
        "status 1 if a file is cut.");
    info.Option("FILE", options.files, FILES_HELP).Required();
    info.Option("--burst-gap", options.burstGapUs,
                "A burst goes on while each message comes less than so many us behind the "
                "one before")
        .Range(1, 1'000'000)
        .ShowDefault();
    info.Flag("--json", options.json, "The answer as JSON");
    return info;
}

CArguments AddVerify(const CArguments& app, std::vector<std::string>& files) {
    const auto verify = app.Subcommand(
        "verify",
        "Reads each file whole and compares it with its sidecar: complete, cut, "
        "changed, unfinished; what a rotation lacks. Exit status 1 if something is not well.");
    verify.Option("FILE", files, FILES_HELP).Required();
    return verify;
}

void AddChannels(const CArguments& app, std::vector<uint32_t>& channels) {
    app.Option("--channel", channels, "Only these channels: 3 or 0,3").Commas().Range(0, 15);
}

// A time that an option gives.
void AddTime(const CArguments& app, const char* name, std::optional<GivenTime>& time,
             const char* help) {
    app.Text(
        name,
        [&time](const std::string& text) {
            time = ReadTime(text);
            if (!time) {
                throw ZceProgram::UsageError(text + " is " + ZceProgram::NO_MOMENT);
            }
        },
        help);
}

CArguments AddExport(const CArguments& app, ExportOptions& options) {
    const auto out = app.Subcommand(
        "export",
        "One row for each message. Exit status 1 if the file is cut: the rows before it "
        "are written.");
    out.Flag("--csv", options.csv, "As a table of comma-separated values").Required();
    out.Option("FILE", options.file, FILE_HELP).Required();
    out.Option("--output", options.output, "Write to this file instead of standard output");
    out.Flag("--raw", options.raw, "All bytes of each message in hex, no fields");
    AddChannels(out, options.channels);
    out.Option("--type", options.types, "Only these types of messages: 17 or 17,19").Commas();
    AddTime(out, "--from", options.from,
            "Only messages from this local time on: HH:MM, HH:MM:SS, HH:MM:SS.FRACTION, or one of "
            "them behind YYYY-MM-DDT; without a date on the day of the first message");
    AddTime(out, "--to", options.to, "Only messages before this local time");
    return out;
}

CArguments AddDiff(const CArguments& app, DiffOptions& options) {
    const auto diff = app.Subcommand(
        "diff",
        "Compares the messages of two captures, channel by channel: how many there are, and the "
        "first that differs. Exit status 1 if there is one.");
    diff.Option("A", options.a, FILE_HELP).Required();
    diff.Option("B", options.b, "The other").Required();
    diff.Flag("--times", options.times, "The messages' times must be the same too");
    return diff;
}

CArguments AddStats(const CArguments& app, StatsOptions& options) {
    constexpr double shortest = 1e-6;
    constexpr double longest = 1e9;
    const auto stats = app.Subcommand(
        "stats",
        "The rate and the longest gap between two messages over the day, as a table or a "
        "plot. Exit status 1 if a file is cut.");
    stats.Option("FILE", options.files, "The captures, in the order of time").Required();
    stats.Option("--plot", options.plot, "Draw it to this SVG file (with gnuplot)");
    stats
        .Option("--bin", options.binSeconds,
                "Seconds of each row or dot; without it as many as fit the day")
        .Range(shortest, longest);
    AddChannels(stats, options.channels);
    return stats;
}

int Main(int argc, const char* const* argv) {
    const ZceProgram::CCommandLine app{
        "zce-capture", "Looks at recordings of what an application polled from its board."};
    app.RequireSubcommand();
    InfoOptions info;
    std::vector<std::string> verified;
    ExportOptions table;
    DiffOptions diff;
    StatsOptions stats;
    const auto infoCommand = AddInfo(app, info);
    const auto verifyCommand = AddVerify(app, verified);
    const auto exportCommand = AddExport(app, table);
    const auto diffCommand = AddDiff(app, diff);
    AddStats(app, stats);
    if (const auto status = app.Read(argc, argv)) {
        return *status;
    }
    if (infoCommand.IsChosen()) {
        return RunInfo(info);
    }
    if (verifyCommand.IsChosen()) {
        return RunVerify(verified);
    }
    if (exportCommand.IsChosen()) {
        return RunExport(table);
    }
    return diffCommand.IsChosen() ? RunDiff(diff) : RunStats(stats);
}

}  // namespace

int main(int argc, char** argv) {
    return ZceProgram::RunMain("zce-capture", Main, argc, argv);
}
