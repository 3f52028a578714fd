#pragma once

// The signals before the library takes them over.

#include <csignal>

// Not 0: SIGINT or SIGTERM came; a loop of the program's own looks at it.
extern volatile std::sig_atomic_t g_bStop;

// From here SIGINT and SIGTERM end the program also before the first message: `bOwnLoop` says that
// somebody looks at g_bStop.
void CatchEarlySignals(long lChannel, bool bOwnLoop);
