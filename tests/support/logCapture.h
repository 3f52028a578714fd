#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "log/CRwLogger.h"
#include "tempDir.h"

namespace velatest {

// The process's log service at work in a directory of its own, and its lines read back. One at a
// time; the directory goes with the object. Lines also appear on standard output as ever.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // The lines since the construction or the last Clear, without their headers: "ERROR text",
    // "WARN text", "INFO text" and so on. The service's own first line is left out. A text that
    // holds line ends comes as one entry.
    std::vector<std::string> Lines() const;
    // As Lines, of one level: LinesOf("ERROR") gives the texts alone.
    std::vector<std::string> LinesOf(const std::string& level) const;
    // Whether a line is there, given as in Lines.
    bool Has(const std::string& line) const;
    void Clear();

    // Where the files are.
    const std::string& Dir() const { return m_dir.path(); }

  private:
    std::vector<std::string> AllLines() const;

    TempDir m_dir;
    std::unique_ptr<CRwLogger> m_logger;
    std::size_t m_skipped = 0;
};

// What the process and its children write to standard output (by file descriptor) from the
// construction on; after the destruction it goes where it went before.
class StdoutCapture {
  public:
    StdoutCapture();
    ~StdoutCapture();
    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;

    // All of it so far.
    std::string Text() const;
    // Gives standard output back; Text keeps its answer.
    void Stop();

  private:
    TempDir m_dir;
    int m_before = -1;
};

}  // namespace velatest
