#include <fmt/format.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): sigtimedwait()

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>

#include "program/CommandLine.h"
#include "program/Printable.h"
#include "program/Program.h"
#include "watch/Ticks.h"
#include "watch/WatchExport.h"
#include "watch/WatchReader.h"

// zce-watch: the pages of the processes that libzce-watch.so watches, for people and for
// Prometheus. Exit status: 0; 1 if a page cannot be read, which a line on standard error tells (the
// others are told all the same); 2 for a usage error, and if the directory cannot be read or the
// output cannot be written. With --every it goes on whatever happens, until SIGINT or SIGTERM, and
// the status is that of its last look.

namespace {

constexpr int EXIT_PAGE_REFUSED = 1;
constexpr double MIN_EVERY = 0.1;
constexpr double MAX_EVERY = 3600;
constexpr double MAX_FORGET = 366;
constexpr int64_t NS_PER_DAY = 86'400 * ZceWatch::NS_PER_SECOND;

struct Options {
    std::string directory = "/run/zce";
    std::string output;
    double every = 0;
    double forgetDays = 3;
};

// What stood on standard error after the last look: a fault that lasts is told once.
class CComplaints {
  public:
    void Tell(const std::string& text) {
        if (text != m_told) {
            fputs(text.c_str(), stderr);
        }
        m_told = text;
    }

  private:
    std::string m_told;
};

std::string RefusalText(const ZceWatch::Directory& pages) {
    std::string text;
    for (const std::string& sentence : pages.refused) {
        text += fmt::format("zce-watch: {}\n", ZceProgram::Printable(sentence));
    }
    return text;
}

// Looks once, and writes what it found. The exit status of it.
int Export(const Options& options, CComplaints& complaints) {
    ZceWatch::Directory pages;
    std::string error;
    if (!ZceWatch::ReadDirectory(options.directory, pages, error)) {
        complaints.Tell(fmt::format("zce-watch: {}\n", error));
        return ZceProgram::EXIT_NOT_DONE;
    }
    const std::string text =
        ZceWatch::ExportText(pages, {ZceWatch::ClockNs(CLOCK_REALTIME),
                                     static_cast<int64_t>(options.forgetDays * NS_PER_DAY),
                                     ZceProgram::VersionText("").substr(1)});
    const int status = pages.refused.empty() ? ZceProgram::EXIT_FINE : EXIT_PAGE_REFUSED;
    if (options.output.empty()) {
        complaints.Tell(RefusalText(pages));
        return ZceProgram::WriteOutput("zce-watch", text, status);
    }
    if (!ZceWatch::ReplaceFile(options.output, text, error)) {
        complaints.Tell(RefusalText(pages) + fmt::format("zce-watch: {}\n", error));
        return ZceProgram::EXIT_NOT_DONE;
    }
    complaints.Tell(RefusalText(pages));
    return status;
}

// Looks again and again, until SIGINT or SIGTERM.
int ExportEvery(const Options& options) {
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    const int64_t ns = static_cast<int64_t>(options.every * ZceWatch::NS_PER_SECOND);
    const timespec pause{ns / ZceWatch::NS_PER_SECOND, ns % ZceWatch::NS_PER_SECOND};
    CComplaints complaints;
    int status = ZceProgram::EXIT_FINE;
    int signal = 0;
    do {
        status = Export(options, complaints);
        do {
            signal = sigtimedwait(&ends, nullptr, &pause);
        } while (signal < 0 && errno == EINTR);
    } while (signal < 0);
    return status;
}

int List(const Options& options) {
    ZceWatch::Directory pages;
    std::string error;
    if (!ZceWatch::ReadDirectory(options.directory, pages, error)) {
        fprintf(stderr, "zce-watch: %s\n", error.c_str());
        return ZceProgram::EXIT_NOT_DONE;
    }
    fputs(RefusalText(pages).c_str(), stderr);
    return ZceProgram::WriteOutput("zce-watch", ZceWatch::ListText(pages),
                                   pages.refused.empty() ? 0 : EXIT_PAGE_REFUSED);
}

void AddDirectory(const ZceProgram::CArguments& app, Options& options) {
    app.Option("--directory", options.directory, "Where the pages are")
        .Environment("ZCE_WATCH")
        .ShowDefault();
}

int Main(int argc, const char* const* argv) {
    Options options;
    const ZceProgram::CCommandLine app{
        "zce-watch",
        "Tells what libzce-watch.so has counted in the processes that were started with it."};
    app.RequireSubcommand();
    const auto exporting = app.Subcommand(
        "export", "Writes it for Prometheus, as the node exporter's textfile collector reads it");
    AddDirectory(exporting, options);
    const auto output =
        exporting.Option("--output", options.output,
                         "File to replace, *.prom for the node exporter; else standard output");
    exporting
        .Option("--every", options.every,
                "Write again after so many seconds, until SIGINT or SIGTERM")
        .Range(MIN_EVERY, MAX_EVERY)
        .Needs(output);
    exporting
        .Option("--forget", options.forgetDays, "Days for which a process is told that is gone")
        .Range(0.0, MAX_FORGET)
        .ShowDefault();
    const auto listing = app.Subcommand("list", "Prints the watched channels, a line each");
    AddDirectory(listing, options);
    if (const auto status = app.Read(argc, argv)) {
        return *status;
    }
    if (listing.IsChosen()) {
        return List(options);
    }
    if (options.every > 0) {
        return ExportEvery(options);
    }
    CComplaints complaints;
    return Export(options, complaints);
}

}  // namespace

int main(int argc, char** argv) {
    return ZceProgram::RunMain("zce-watch", Main, argc, argv);
}
