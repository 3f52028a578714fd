#include "Ending.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "Output.h"

volatile std::sig_atomic_t g_bStop = 0;

namespace {

// The library takes SIGINT and SIGTERM over with the first market-data message, and VelaRecv then
// returns -1. Before that message they are this program's own: a loop of its own looks at
// g_bStop, while VelaRecvStart and VelaStart, which may wait for minutes, cannot be left, so that
// the process ends in the handler.

volatile std::sig_atomic_t g_bOwnLoop = 0;
volatile std::sig_atomic_t g_iStatus = 0;
char g_szEmptyLastLine[128];

void OnEarlySignal(int /*signal*/) {
    g_bStop = 1;
    if (g_bOwnLoop == 0) {
        const ssize_t written =
            CanPrint(0) ? write(STDOUT_FILENO, g_szEmptyLastLine, std::strlen(g_szEmptyLastLine))
                        : -1;
        _exit(written < 0 ? 1 : g_iStatus);
    }
}

}  // namespace

void CatchEarlySignals(long lChannel) {
    std::snprintf(g_szEmptyLastLine, sizeof(g_szEmptyLastLine),
                  "zce-recv channel=%ld total=0 type17=0 type18=0 type19=0 type20=0 gaps=0\n",
                  lChannel);
    std::signal(SIGINT, OnEarlySignal);
    std::signal(SIGTERM, OnEarlySignal);
}

void BeginOwnLoop() {
    g_bOwnLoop = 1;
}

void EndWith(int status) {
    g_iStatus = status;
    kill(getpid(), SIGINT);
}

int EndStatus() {
    return g_iStatus;
}
