#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "ctl/CtlBoard.h"
#include "program/CommandLine.h"
#include "program/Program.h"
#include "top/TopMonitor.h"
#include "top/TopWatchMonitor.h"

// zce-top: a board, or the processes that libzce-watch.so watches, on one screen, or as lines of
// text if standard output is no terminal that can be drawn on. Exit status: 0 after q, SIGINT,
// SIGTERM or SIGHUP, after the one report of --once, and when the board is gone (which the last
// line says); 2 for a usage error, a board or a directory that cannot be looked at, and a standard
// output that takes nothing, with the reason on standard error.

namespace {

constexpr double MIN_INTERVAL = 0.1;
constexpr double MAX_INTERVAL = 3600;

// Where the applications' pages are if the command line does not say.
std::string WatchDirectory() {
    const char* named = std::getenv("ZCE_WATCH");  // NOLINT(concurrency-mt-unsafe): no thread yet
    return named != nullptr && *named != '\0' ? named : "/run/zce";
}

bool Run(const ZceBoard::TopOptions& options, const std::optional<std::string>& watched,
         std::string& reason) {
    if (watched) {
        const std::string directory = watched->empty() ? WatchDirectory() : *watched;
        return ZceBoard::CTopWatchMonitor(directory, options.interval, options.bOnce).Run(reason);
    }
    return ZceBoard::CTopMonitor(options).Run(reason);
}

int Main(int argc, const char* const* argv) {
    ZceBoard::TopOptions options;
    const ZceProgram::CCommandLine app{
        "zce-top",
        "Watches a zce-board, or watched applications: on one screen, or as text if standard "
        "output is no terminal to draw on."};
    const auto bus = app.Option("--bus", options.bus, "Bus index of the board")
                         .Range(0U, ZceBoard::LAST_BUS)
                         .ShowDefault();
    app.Option("--interval", options.interval, "Seconds of real time from look to look")
        .Range(MIN_INTERVAL, MAX_INTERVAL)
        .ShowDefault();
    app.Flag("--once", options.bOnce, "Print one report as text, and end");
    const auto wait =
        app.Flag("--wait", options.bWait,
                 "Wait for a board if there is none, also when the one that is watched goes");
    std::string directory;
    const auto watch =
        app.Option("--watch", directory,
                   "No board, but the applications that run with libzce-watch.so: the directory "
                   "of their pages, if not named ZCE_WATCH's or /run/zce")
            .ValueName("DIR")
            .ValueOptional()
            .Excludes(bus)
            .Excludes(wait);
    if (const auto status = app.Read(argc, argv)) {
        return *status;
    }
    std::string reason;
    if (!Run(options, watch.IsGiven() ? std::optional(directory) : std::nullopt, reason)) {
        fprintf(stderr, "zce-top: %s\n", reason.c_str());
        return ZceProgram::EXIT_NOT_DONE;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return ZceProgram::RunMain("zce-top", Main, argc, argv);
}
