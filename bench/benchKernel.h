#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// What the kernel counts of each processor, at one moment.
namespace velabench {

class CKernelCounts {
  public:
    CKernelCounts();
    // Lines about one processor: the interrupts since `before`, by source, and the time that the
    // host took away.
    void PrintSince(const CKernelCounts& before, const char* what, int cpu) const;

  private:
    void ReadInterrupts();
    void ReadStolen();

    // Of each source ("LOC Local timer interrupts"), by processor number.
    std::map<std::string, std::map<int, std::uint64_t>> m_interrupts;
    std::map<int, std::uint64_t> m_stolen;  // ticks of the kernel's clock
};

}  // namespace velabench
