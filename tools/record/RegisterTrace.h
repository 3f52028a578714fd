#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

#include "capture/OutputFile.h"
#include "record/FileMaker.h"

namespace ZceRecord {

// One register access of the application.
struct RegisterAccess {
    int64_t timeNs = 0;  // CLOCK_REALTIME before the call
    uint64_t byteOffset = 0;
    uint64_t value = 0;
    int error = 0;  // errno of a failed call
    uint8_t bitOffset = 0;
    uint8_t width = 0;
    bool described = false;  // the call had a register description
    bool write = false;
    bool failed = false;
};

// Writes the accesses as lines of text:
//
//     2026-11-20 08:55:04.123456789 read 0x104 0x153210
//     2026-11-20 08:55:04.123456912 write 0x302[0:16] 0x1a2b
//     2026-11-20 08:55:04.123457000 write 0x90000 0x1 failed: Invalid argument (22)
//
// The time is local. The brackets, first bit in the 32-bit register and width, are left out for a
// whole register. A failed read has no value. Add may be called by any thread and only keeps the
// access; so may Missing and Progress. Open, Pass and Summary by one at a time.
class CRegisterTrace {
  public:
    // At most so many accesses wait for the next pass; what comes on top is counted and told.
    explicit CRegisterTrace(size_t maxWaiting = MAX_WAITING) : m_maxWaiting(maxWaiting) {}

    // Makes the file; false: it was told why not.
    bool Open(CFileMaker& maker, int64_t timeNs);
    void Add(const RegisterAccess& access);
    void Pass(bool last);
    // The line that tells what was recorded; empty after a failure, which was told then.
    std::string Summary() const;
    // The line that tells what is not written; empty after a failure, or if all is.
    std::string Missing();
    // Grows with what is written.
    uint64_t Progress() const { return m_file.Written(); }
    void Abandon() { m_file.Close(); }

  private:
    static constexpr size_t MAX_WAITING = size_t{2} << 20;

    void Format(const RegisterAccess& access);
    void Flush();

    const size_t m_maxWaiting;
    std::string m_name;
    std::mutex m_mutex;  // the three below
    std::vector<RegisterAccess> m_accesses;
    uint64_t m_lost = 0;
    uint64_t m_added = 0;  // also the lost ones

    ZceCapture::COutputFile m_file;
    std::vector<RegisterAccess> m_taken;
    std::string m_text;
    time_t m_second = -1;  // whose date and time of day m_date holds
    std::string m_date;
    uint64_t m_passes = 0;
    uint64_t m_recorded = 0;
    uint64_t m_totalLost = 0;
    std::atomic<uint64_t> m_inFile{0};  // of the accesses
    std::atomic<bool> m_failed{false};
};

}  // namespace ZceRecord
