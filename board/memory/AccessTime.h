#pragma once

#include <algorithm>
#include <cstdint>

#include "memory/ShmLayout.h"

// How long an access to a register takes. The software board's own is a few loads and stores; a
// board of silicon is at the other end of a bus, where a read takes about a microsecond. A board
// that is started with an access time shows what a program pays for its accesses there.
namespace ZceBoard {

constexpr uint32_t MAX_ACCESS_NS = 1'000'000;

// What an access to this board takes at least; 0: as long as it takes. Within the limit, whatever
// stands in the memory.
inline uint32_t AccessNs(const BoardShm& shm) {
    return std::min(shm.header.accessNs.load(std::memory_order_relaxed), MAX_ACCESS_NS);
}

// A moment on the processor's own counter, to wait from, in real time, which no acceleration of the
// process's clock reaches. Any thread.
class CAccessBegin {
  public:
    CAccessBegin();
    // Keeps the processor until `ns` have passed since this object was made: a processor that reads
    // a register of a real board stands still as well. Leaves errno alone.
    void KeepBusy(uint32_t ns) const;

  private:
    uint64_t m_begin;
};

// One access, a call without arguments, which the access time of the board makes longer. Gives what
// the access gives.
template <class Access>
auto TakeTime(const BoardShm& shm, Access access) {
    if (shm.header.accessNs.load(std::memory_order_relaxed) == 0) [[likely]] {
        return access();
    }
    const CAccessBegin begin;
    const auto result = access();
    begin.KeepBusy(AccessNs(shm));
    return result;
}

}  // namespace ZceBoard
