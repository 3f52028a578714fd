#pragma once

#include "startBoard.h"

class IDrv;
struct enyx_hw_core;

namespace velabench {

// Both ways of reading the names in the board's tables, in a process that uses the board.
class CNameReader {
  public:
    // Finds the board, and starts the library's log as its start does.
    CNameReader();

    // By the library: what a master does at a start in trading time without a cache file.
    void ReadByLibrary(Names& names);
    // By the vendor's calls, in a plain loop with the same result: a name counts when two readings
    // in a row that are not empty agree, eight readings at most. False if a call failed.
    bool ReadByCalls(Names& names);
    // The same calls, without a map of the names: how many there are, -1 if a call failed.
    int CountByCalls();

  private:
    IDrv* m_pDrv = nullptr;
    enyx_hw_core* m_pCore = nullptr;
};

}  // namespace velabench
