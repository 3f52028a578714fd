#pragma once

// How the program ends: the signals before the library takes them over, and what it ends with.

#include <csignal>

// Not 0: SIGINT or SIGTERM came; a loop of the program's own looks at it.
extern volatile std::sig_atomic_t g_bStop;

// From here SIGINT and SIGTERM end the program also before the first message.
void CatchEarlySignals(long lChannel);

// From here somebody looks at g_bStop.
void BeginOwnLoop();

// Ends the program as Ctrl-C does, with this exit status. Any thread.
void EndWith(int status);

// The status of the last EndWith, 0 without one.
int EndStatus();
