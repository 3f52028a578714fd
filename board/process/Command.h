#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "process/CommandSetting.h"
#include "process/Signals.h"

namespace ZceBoard {

// A program that runs beside the boards of this process, with their clock, and ends them with it;
// if this process is killed it is sent SIGTERM.
// Standard output is its own alone: what this process prints there goes to standard error instead,
// from the construction on. One thread.
class CCommand {
  public:
    static constexpr int CANNOT_BE_RUN = 126;
    static constexpr int IS_NOT_THERE = 127;

    // `setting` outlives this object.
    CCommand(std::vector<std::string> words, const CCommandSetting& setting);
    ~CCommand();
    CCommand(const CCommand&) = delete;
    CCommand& operator=(const CCommand&) = delete;

    // Once. What cannot be run has ended, with a line on standard error.
    void Start();
    bool HasStarted() const { return m_bStarted; }
    // Gives it the signals that this process was sent, and looks whether it has ended.
    bool HasEnded();
    // For boards that play nothing any more: when it has had a second for what is still under way,
    // it is sent SIGTERM.
    void LetEnd(int64_t nowNs);
    // Once it has ended: its exit status, or 128 and the signal that ended it.
    int Status() const { return m_status; }

  private:
    [[noreturn]] void Become(int errors, const Signals::CBlocked& blocked) const;
    void End(int status);

    std::vector<std::string> m_words;
    const CCommandSetting& m_setting;
    pid_t m_board = -1;  // this process
    int m_output = -1;   // standard output as it was
    pid_t m_pid = -1;
    int m_status = 0;
    int64_t m_idleSinceNs = 0;
    bool m_bStarted = false;
    bool m_bEnded = false;
    bool m_bToldToEnd = false;
};

}  // namespace ZceBoard
