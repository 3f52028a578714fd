#pragma once

// What zce-recv prints: no line makes it wait for a reader that has stopped, and none is lost
// without a word.

#include <unistd.h>

#include <string>

// How long a line waits for its reader.
const int outputPatienceMs = 200;

// Whether standard output, or another file, takes a line within this time. A program that a signal
// is to end must not wait for a reader that has stopped.
bool CanPrint(int timeoutMs, int fd = STDOUT_FILENO);

// Prints, at once. A reader that is gone, or a full disk, ends the program, at its last line or
// when the reporter looks. Any thread.
__attribute__((format(printf, 1, 2))) void Print(const char* format, ...);

// Whether something printed was lost. Any thread.
bool IsOutputLost();

// "zce-recv: WHAT: the reason" on standard error, the reason being an errno.
void TellError(const std::string& what, int err);

// `status`, or 1 with the reason on standard error if something printed was lost.
int FinishOutput(int status);
