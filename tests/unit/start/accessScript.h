#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "fakeDrv.h"

namespace velatest {

// Walks along what was done on a board: each call expects the next access. The first difference
// fails the test, the rest is then not looked at.
class AccessScript {
  public:
    explicit AccessScript(const std::vector<DrvAccess>& accesses) : m_accesses(accesses) {}

    void Read(unsigned long addr, unsigned long value) { Next({"ReadInt32", addr, value}); }
    void Write(unsigned long addr, unsigned long value) { Next({"WriteInt32", addr, value}); }
    void LoggedWrite(unsigned long addr, unsigned long value) {
        Next({"WriteInt32_Log", addr, value});
    }
    void ReadBackWrite(unsigned long addr, unsigned long value) {
        Next({"WriteInt32_LogWithRead", addr, value});
    }

    // All 64 words of entries 0 to 4094 and word 0 of entry 4095, the single-leg table first.
    void ClearsBothTables() {
        for (unsigned long addr = 0; addr <= 262080; ++addr) {
            Write(0x11001, 0);
            Write(0x11000, addr);
        }
        for (unsigned long addr = 0; addr <= 262080; ++addr) {
            Write(0x12001, 0);
            Write(0x12000, addr);
        }
    }
    // The reset, which clears the tables, and the clearing after it.
    void Resets() {
        LoggedWrite(0x10, 1);
        LoggedWrite(0x10, 0);
        ClearsBothTables();
        ClearsBothTables();
    }
    // Six times word 0 of entries 0 to 4095 of either table.
    void UnsubscribesAll() {
        for (int pass = 1; pass <= 6; ++pass) {
            for (unsigned long entry = 0; entry < 4096; ++entry) {
                Write(0x11001, 0);
                Write(0x11000, entry * 64);
            }
            for (unsigned long entry = 0; entry < 4096; ++entry) {
                Write(0x12001, 0);
                Write(0x12000, entry * 64);
            }
        }
    }
    // The eight parse counters, all of the same value.
    void ReadsCounters(unsigned long value) {
        for (const unsigned long addr :
             {0x200bUL, 0x200cUL, 0x200dUL, 0x200eUL, 0x210bUL, 0x210cUL, 0x210dUL, 0x210eUL}) {
            Read(addr, value);
        }
    }
    void End() {
        if (!m_failed) {
            EXPECT_EQ(m_at, m_accesses.size()) << "the next one: " << m_accesses.at(m_at);
        }
    }

  private:
    void Next(const DrvAccess& expected) {
        if (m_failed) {
            return;
        }
        if (m_at == m_accesses.size()) {
            ADD_FAILURE() << "access " << m_at << " is missing: " << expected;
            m_failed = true;
        } else if (!(m_accesses[m_at] == expected)) {
            ADD_FAILURE() << "access " << m_at << " is " << m_accesses[m_at] << ", expected "
                          << expected;
            m_failed = true;
        } else {
            ++m_at;
        }
    }

    const std::vector<DrvAccess>& m_accesses;
    std::size_t m_at = 0;
    bool m_failed = false;
};

// One line for each difference of two lists, instead of the lists.
inline void ExpectLines(const std::vector<std::string>& lines,
                        const std::vector<std::string>& expected) {
    for (std::size_t at = 0; at < std::max(lines.size(), expected.size()); ++at) {
        const std::string line = at < lines.size() ? lines[at] : "(no line)";
        ASSERT_EQ(line, at < expected.size() ? expected[at] : "(no line)") << "line " << at;
    }
}

}  // namespace velatest
