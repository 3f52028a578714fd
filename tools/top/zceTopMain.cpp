#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>

#include "ctl/CtlBoard.h"
#include "top/TopMonitor.h"

// zce-top: a board on one screen, or as lines of text if standard output is no terminal. Exit
// status: 0 after q, SIGINT, SIGTERM or SIGHUP, after the one report of --once, and when the board
// is gone (which the last line says); 2 for a usage error, a terminal that cannot be used, a board
// that cannot be looked at, and a standard output that takes nothing, with the reason on standard
// error.

namespace {

constexpr int EXIT_NOT_STARTED = 2;
constexpr double MIN_INTERVAL = 0.1;
constexpr double MAX_INTERVAL = 3600;

int Main(int argc, char** argv) {
    ZceBoard::TopOptions options;
    CLI::App app{
        "Watches a zce-board: on one screen, or as text if standard output is no terminal.",
        "zce-top"};
    app.add_option("--bus", options.bus, "Bus index of the board")
        ->check(CLI::Range(0U, ZceBoard::LAST_BUS))
        ->capture_default_str();
    app.add_option("--interval", options.interval, "Seconds of real time from look to look")
        ->check(CLI::Range(MIN_INTERVAL, MAX_INTERVAL))
        ->capture_default_str();
    app.add_flag("--once", options.bOnce, "Print one report as text, and end");
    app.add_flag("--wait", options.bWait,
                 "Wait for a board if there is none, also when the one that is watched goes");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        fprintf(stderr, "zce-top: %s\n", error.what());
        return EXIT_NOT_STARTED;
    }
    std::string reason;
    if (!ZceBoard::CTopMonitor(options).Run(reason)) {
        fprintf(stderr, "zce-top: %s\n", reason.c_str());
        return EXIT_NOT_STARTED;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Main(argc, argv);
    } catch (const std::exception& error) {  // out of memory
        fprintf(stderr, "zce-top: %s\n", error.what());
        return EXIT_NOT_STARTED;
    }
}
