#include <unistd.h>

#include <cstdio>
#include <optional>
#include <string>

#include "check/Commands.h"
#include "check/Report.h"
#include "program/CommandLine.h"
#include "program/Printable.h"
#include "program/Program.h"
#include "program/RegularFile.h"

namespace ZceCheck {

namespace {

constexpr unsigned LAST_BUS = 9;

struct Options {
    std::string file;
    std::optional<std::string> instruments;
    std::optional<std::string> bin;
    std::optional<unsigned> board;
    bool bJson = false;
    bool bLog = false;
};

int NotDone(const std::string& reason) {
    fprintf(stderr, "zce-check: %s\n", ZceProgram::Printable(reason).c_str());
    return ZceProgram::EXIT_NOT_DONE;
}

void AddOptions(const ZceProgram::CArguments& app, Options& options) {
    app.Option("CONFIG", options.file, "The configuration file").Required();
    const auto source =
        app.Group("Instruments", "What the rules are tried on; without one of these, nothing");
    source.Option("--instruments", options.instruments,
                  "A file with one instrument a line, or \"index,type,name\"; -: standard "
                  "input");
    source.Option("--bin", options.bin, "A cache file of the library");
    source.Option("--board", options.board, "The tables of the zce-board on this bus")
        .Range(0U, LAST_BUS);
    source.RequireAtMostOneOption();
    app.Flag("--json", options.bJson, "Print one JSON object");
    app.Flag("--log", options.bLog, "Print what the library logs, on standard error");
    app.Footer(
        "Exit status: 0 fine, 1 warnings, 2 errors and whatever could not be done.\n"
        "Other questions: zce-check --when, zce-check host, zce-check vendor; each with --help.");
}

// False: `error` says why. The library reads the file as well, and more than once: a pipe would be
// empty by then.
bool ReadFile(const std::string& path, std::string& text, std::string& error) {
    std::string reason;
    const int descriptor = ZceProgram::OpenRegular(path, reason);
    bool bRead = descriptor >= 0;
    if (bRead) {
        bRead = ZceProgram::ReadUpTo(descriptor, ZceProgram::MAX_FILE_BYTES, text, reason);
        close(descriptor);
    }
    if (bRead && text.size() > ZceProgram::MAX_FILE_BYTES) {
        reason = "has more than 16 MiB: no configuration has";
        bRead = false;
    }
    error = bRead ? "" : path + ": " + reason;
    return bRead;
}

bool ReadNames(const Options& options, InstrumentNames& names, std::string& error) {
    if (options.board) {
        return ReadBoardTables(*options.board, names, error);
    }
    return options.bin ? ReadBinFile(*options.bin, names, error)
                       : ReadNameList(*options.instruments, names, error);
}

}  // namespace

int ConfigMain(int argc, const char* const* argv) {
    const ZceProgram::CCommandLine app{
        "zce-check",
        "Says what a configuration file of the library will do, before the session: what each "
        "channel gets, how the feeds are set up, and what is wrong with it."};
    Options options;
    AddOptions(app, options);
    if (const auto status = app.Read(argc, argv)) {
        return *status;
    }
    std::string text;
    std::string error;
    if (!ReadFile(options.file, text, error)) {
        return NotDone(error);
    }
    const bool bNames = options.board || options.bin || options.instruments;
    InstrumentNames names;
    if (bNames && !ReadNames(options, names, error)) {
        return NotDone(error);
    }
    const CheckResult result =
        CheckFile(options.file, text, bNames ? &names : nullptr, options.bLog);
    if (options.bLog) {
        fputs(ZceProgram::PrintableLines(result.library.log).c_str(), stderr);
    }
    const std::string report = options.bJson ? JsonReport(result) : TextReport(result);
    fwrite(report.data(), 1, report.size(), stdout);
    return result.Status();
}

}  // namespace ZceCheck
