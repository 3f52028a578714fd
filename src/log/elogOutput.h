#pragma once

#include <csignal>
#include <cstddef>

#include "log/elogTime.h"

// What the parts of the log service share: the line buffer with its lock, and the output step.
namespace elogoutput {

constexpr std::size_t LINE_BYTES = 2048;

// Holds back the signals of the calling thread: a handler that logs must find neither a lock nor a
// stream of the log service in the middle of being used by the thread that it interrupted.
class SignalHold {
  public:
    SignalHold();
    ~SignalHold();
    SignalHold(const SignalHold&) = delete;
    SignalHold& operator=(const SignalHold&) = delete;

  private:
    sigset_t m_before;
};

// The right to use the shared buffers, for the life of the object; any number of threads may ask.
class BufferScope {
  public:
    BufferScope();
    ~BufferScope();
    BufferScope(const BufferScope&) = delete;
    BufferScope& operator=(const BufferScope&) = delete;

    // LINE_BYTES bytes. A write from within a write of the same thread (during a rotation) gets a
    // buffer of its own, so that the line which is waiting for its file keeps its text.
    char* Line();

  private:
    SignalHold m_hold;
};

// The output step: prints `size` bytes to standard output and appends them to the day's file.
void Write(const char* text, std::size_t size, elogtime::Caller caller);

// The file's half of it, in elogFile.cpp: rotation check, append and flush, under the file lock.
void AppendToFile(const char* text, std::size_t size, elogtime::Caller caller);

// Lines of `level` are wanted: the output is enabled and the filter lets them through.
bool IsWanted(unsigned int level);
bool IsEnabled();

// Ends the text of `length` bytes, more than there is room for included, with its newline: a text
// that fills the buffer has its last byte replaced. Returns the size of the line.
std::size_t EndLine(char* line, std::size_t length);

}  // namespace elogoutput
