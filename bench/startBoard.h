#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <map>
#include <string>
#include <vector>

#include "memory/BoardMemory.h"

// A board for starts of a master, the start by the library, and the same vendor calls in a plain
// loop.
namespace velabench {

constexpr std::time_t startMoment = 1'795'163'400;  // 2026-11-20 08:30:00 UTC
constexpr std::uint32_t startDate = 20261120;
constexpr std::uint32_t startTime = 83000;
constexpr std::uint32_t dayBefore = 20261119;
constexpr unsigned int coreId = 474;
constexpr unsigned int tableEntries = 4095;  // whose names are read, in each of the two tables

// Names of instruments, by table and place.
using Names = std::map<std::string, unsigned short>;

// The board is this process. A directory of its own is the working directory, of the children too;
// both are gone at the end of the program.
class CStartBoard {
  public:
    CStartBoard();

    // The board as it is before a start: tables with `names` instruments, half in each, and a date,
    // today's or the day before's, after which a start resets the board.
    void Prepare(bool bReset, unsigned int names = 2 * tableEntries);
    // What each access to a register takes at least.
    void SetAccessNs(std::uint32_t ns);
    // A number made of all registers and both tables: what a start leaves.
    std::uint64_t State() const;

  private:
    ZceBoard::CBoardMemory m_memory;
};

// What Prepare has put into the tables, as a reader of the names finds it.
Names PreparedNames(unsigned int names);

// A group of calls under one lock: a write, a read, or a write and a read of one register, as
// PackCall of the calls `Write`, `Read`, and `Lock` for both.
using CallGroup = std::uint64_t;
// One or two groups in turns, `count` times, their values going on by `step` each time: what a
// start's loops over the tables are.
struct CallRun {
    std::array<CallGroup, 2> first;
    std::array<std::uint64_t, 2> step;
    std::uint32_t length;  // 1 or 2
    std::uint32_t count;
};
using CallRuns = std::vector<CallRun>;

// The accesses between the board's discovery and the opening of the streams. Ends the program if
// they are made in any other way than that of a group.
CallRuns RunsOf(const std::vector<std::uint64_t>& calls);

// A start of the master by the library, by its configuration in the working directory; a second one
// in a process finds what the first one left. False if it failed.
bool StartByLibrary();
// The same calls, in their order. False if one of them failed.
bool StartByCalls(const CallRuns& runs);

}  // namespace velabench
