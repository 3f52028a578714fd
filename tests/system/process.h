#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace velatest {

// One started program, its standard output and standard error in one file. Killed, if it still
// runs, when the object goes.
class Process {
  public:
    struct Options {
        std::string directory;                 // working directory; empty: the test's
        std::vector<std::string> environment;  // "NAME=value", on top of the test's own
        std::string output;                    // the file that takes what it prints
    };

    Process(const std::vector<std::string>& arguments, const Options& options);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // Until the program has printed `text`; false after `limit` or if it ended without.
    bool WaitFor(const std::string& text, std::chrono::seconds limit = std::chrono::seconds(30));
    // Until it ends; the exit status, 128 + signal for one that a signal ended, -1 after `limit`.
    int WaitEnd(std::chrono::seconds limit = std::chrono::seconds(30));
    void Signal(int signal) const;
    bool Running();
    // What it has printed so far.
    std::string Output() const;
    // The printed line that begins with `start`, the last one if there are several; empty if none.
    std::string LastLine(const std::string& start) const;
    pid_t Pid() const { return m_pid; }

  private:
    pid_t m_pid = -1;
    int m_status = -1;
    bool m_ended = false;
    std::string m_output;
};

// Takes the options' working directory and environment over into the calling process. False if the
// directory cannot be entered.
bool EnterEnvironment(const Process::Options& options);

// The value of `name=<digits>` in a line, -1 if it is not there.
long Field(const std::string& line, const std::string& name);

// A TZ under which the local time of day is hh:mm:ss (as hhmmss) now.
std::string VirtualZone(unsigned int hhmmss);

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& text);

}  // namespace velatest
