#pragma once

#include <cstddef>

#include "log/elogTime.h"

// The output step of the log service, in two halves: standard output (elogPrint.cpp) and the day's
// file (elogFile.cpp). Each half has a variant for signal handlers, which may have interrupted
// their thread anywhere, in the middle of the other variant too: it takes no lock, allocates
// nothing and calls nothing that is not async-signal-safe.
namespace elogoutput {

constexpr std::size_t g_uiLineBytes = 2048;

// Prints `size` bytes to standard output and appends them to the day's file. For a signal handler
// 2048 bytes at most.
void Write(const char* text, std::size_t size, elogtime::Caller caller);

// Prints to standard output, a text of one line by one write(), whatever other threads print. Waits
// for a standard output that stalls; after StopWaiting a tenth of a second at most, and no longer
// at all once a text has been given up.
void Print(const char* text, std::size_t size);
// As Print, but never waits: the line is left out if standard output stalls.
void PrintInSignal(const char* line, std::size_t size);
// The process is about to end: no thread must go on waiting for standard output. For signal
// handlers.
void StopWaiting();

// Rotation check and append.
void AppendToFile(const char* text, std::size_t size);
void AppendToFileInSignal(const char* line, std::size_t size);

// Lines of `level` are wanted: the output is enabled and the filter lets them through.
bool IsWanted(unsigned int level);
bool IsEnabled();

// Ends the text of `length` bytes, more than there is room for included, with its newline: a text
// that fills the buffer has its last byte replaced. Returns the size of the line.
std::size_t EndLine(char* line, std::size_t length);

}  // namespace elogoutput
