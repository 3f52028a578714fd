#include "Ending.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "Output.h"

volatile std::sig_atomic_t g_bStop = 0;

namespace {

// The library takes SIGINT and SIGTERM over with the first market-data message, and VelaRecv then
// returns -1. Before that message they are this program's own: a loop of its own looks at
// g_bStop, while VelaRecvStart cannot be left, so that the process ends in the handler.

volatile std::sig_atomic_t g_bOwnLoop = 0;
char g_szEmptyLastLine[128];

void OnEarlySignal(int /*signal*/) {
    g_bStop = 1;
    if (g_bOwnLoop == 0) {
        const ssize_t written =
            CanPrint(0) ? write(STDOUT_FILENO, g_szEmptyLastLine, std::strlen(g_szEmptyLastLine))
                        : -1;
        _exit(written < 0 ? 1 : 0);
    }
}

}  // namespace

void CatchEarlySignals(long lChannel, bool bOwnLoop) {
    std::snprintf(g_szEmptyLastLine, sizeof(g_szEmptyLastLine),
                  "zce-recv channel=%ld total=0 type17=0 type18=0 type19=0 type20=0 gaps=0\n",
                  lChannel);
    g_bOwnLoop = bOwnLoop ? 1 : 0;
    std::signal(SIGINT, OnEarlySignal);
    std::signal(SIGTERM, OnEarlySignal);
}
