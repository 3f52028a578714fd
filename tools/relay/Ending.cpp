#include "relay-tool/Ending.h"

#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "program/Printable.h"
#include "program/Program.h"

namespace ZceRelay {

namespace {

volatile std::sig_atomic_t g_bStop = 0;

void OnSignal(int /*signal*/) {
    g_bStop = 1;
}

}  // namespace

void TellError(const std::string& line) {
    fprintf(stderr, "zce-relay: %s\n", ZceProgram::Printable(line).c_str());
}

int NotDone(const std::string& reason) {
    TellError(reason);
    return ZceProgram::EXIT_NOT_DONE;
}

void TellStatus(const std::string& line) {
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    if (poll(&output, 1, 0) != 0) {
        fputs(line.c_str(), stdout);
        fflush(stdout);
    }
}

void CatchSignals() {
    std::signal(SIGINT, OnSignal);
    std::signal(SIGTERM, OnSignal);
}

bool IsStopped() {
    return g_bStop != 0;
}

}  // namespace ZceRelay
