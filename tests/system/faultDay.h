#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "memory/BoardMemory.h"
#include "memory/Faults.h"
#include "startDay.h"

namespace velatest {

// A day of a board with faults. Each of its tests is named in a row of the table of faults in
// docs/software-board.md, and the row says what the library logs.
class FaultDay : public StartDay {
  protected:
    void SetUp() override;

    // A fault as a user writes it; the board has seen it when this returns.
    void Set(const std::string& fault);
    void ClearFaults();
    // A board in the session that was not reset: with the list, today's date, decoding.
    void BeginSession();
    // Starts a master in a session and returns its output until its stream is open.
    std::string Recover(const std::string& name = "master");
    // Interrupts it, and gives what it printed.
    static std::string End(Process& receiver);

    // The log of `output` is what this test's row says: its WARN and ERROR lines, but for those of
    // any start, are those of the row, each once or more, and no others; its INFO lines are there.
    // In a row "..." stands for any text.
    static void ExpectRow(const std::string& output);

    // A board on the same bus, in the place of one that has ended.
    void StartAnotherBoard();

    const Listed& Find(const std::string& name) const;

    ZceBoard::CBoardMemory m_memory;
    std::optional<ZceBoard::CFaults> m_faults;
    std::unique_ptr<Process> m_master;
};

// The lines of these levels, "LEVEL text", in the order of the output.
std::vector<std::string> LinesOf(const std::string& output, const std::string& levels);

}  // namespace velatest
