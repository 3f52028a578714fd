#pragma once

#include <cstdint>
#include <string_view>

// The vendor's C calls over a board in plain arrays: no call allocates, so that only the code under
// test does, and a start of two million writes takes milliseconds. One thread.
//
// The board is a living one: two tables behind 0x11000 to 0x11003 and 0x12000 to 0x12003, a reset
// that clears them, both clocks those of the host (see quickClock.h), parse counters that move.
namespace anomaly {

struct QuickBoard {
    // Everything as after power-on, the board's date today's, nothing in the tables.
    static void Clear();
    static void SetTradeDate(std::uint32_t date);
    static void SetDecode(std::uint32_t value);
    // type 0: single legs, 1: combinations.
    static void SetName(unsigned int type, unsigned int index, std::string_view name);
    // The next polls deliver it, one packet each; copied.
    static void Queue(const unsigned char* packet, unsigned int size);
    // Enters what the board has and what of the vendor's objects is left into the report.
    static void EnterEnd();
};

}  // namespace anomaly
