#include "program/Program.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <sstream>
#include <vector>

#ifndef VELAZCE_VERSION
#error "the build gives the version"
#endif

namespace ZceProgram {

std::string VersionText(const std::string& name) {
    return name + " " VELAZCE_VERSION;
}

namespace {

// A misspelt option leaves the one that was meant missing: what is missing is asked for first, and
// the misspelt one is what helps. CLI11 tells the arguments from the last to the first.
std::string ReasonOf(const CLI::App& app, const CLI::ParseError& error) {
    const int code = error.get_exit_code();
    std::vector<std::string> unknown = app.remaining(true);
    if (unknown.empty() || (code != static_cast<int>(CLI::ExitCodes::RequiredError) &&
                            code != static_cast<int>(CLI::ExitCodes::ExtrasError))) {
        return error.what();
    }
    std::reverse(unknown.begin(), unknown.end());
    return CLI::ExtrasError(unknown).what();
}

}  // namespace

std::optional<int> ReadCommandLine(CLI::App& app, int argc, const char* const* argv) {
    const std::string name = app.get_name();
    app.set_version_flag("--version", VersionText(name), "Print the version, and end");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& answered) {
        std::ostringstream output;
        app.exit(answered, output, output);
        return WriteOutput(name, output.str(), EXIT_FINE);
    } catch (const CLI::ParseError& error) {
        fprintf(stderr, "%s: %s\n", name.c_str(), ReasonOf(app, error).c_str());
        return EXIT_NOT_DONE;
    }
    return std::nullopt;
}

namespace {

int NotWritten(const std::string& name, int err) {
    fprintf(stderr, "%s: standard output: %s\n", name.c_str(),
            err == 0 ? "an earlier write failed" : strerror(err));
    return EXIT_NOT_DONE;
}

}  // namespace

int FinishOutput(const std::string& name, int status) {
    errno = 0;
    const bool bWritten = fflush(stdout) == 0 && ferror(stdout) == 0;
    return bWritten ? status : NotWritten(name, errno);
}

int WriteOutput(const std::string& name, const std::string& text, int status) {
    errno = 0;
    const bool bWritten = fwrite(text.data(), 1, text.size(), stdout) == text.size();
    return bWritten ? FinishOutput(name, status) : NotWritten(name, errno);
}

void IgnoreBrokenPipes() {
    struct sigaction action {};
    action.sa_handler = SIG_IGN;  // NOLINT(cppcoreguidelines-pro-type-cstyle-cast)
    sigaction(SIGPIPE, &action, nullptr);
}

int RunMain(const char* name, int (*body)(int argc, const char* const* argv), int argc,
            const char* const* argv) {
    IgnoreBrokenPipes();
    try {
        return body(argc, argv);
    } catch (const std::exception& error) {
        fprintf(stderr, "%s: %s\n", name, error.what());
        return EXIT_NOT_DONE;
    }
}

}  // namespace ZceProgram
