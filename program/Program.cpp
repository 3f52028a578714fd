#include "program/Program.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>

#ifndef VELAZCE_VERSION
#error "the build gives the version"
#endif

namespace ZceProgram {

std::string VersionText(const std::string& name) {
    return name + " " VELAZCE_VERSION;
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
