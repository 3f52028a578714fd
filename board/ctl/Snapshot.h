#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "memory/ShmLayout.h"

namespace ZceBoard {

constexpr size_t MESSAGE_TYPES = 5;
// The message types that are counted, in the order of the counts.
constexpr std::array<uint32_t, MESSAGE_TYPES> MESSAGE_TYPE_NUMBERS = {2, 17, 18, 19, 20};

// One channel's stream to the host. The counts of messages are those of all openings together;
// back pressure and FIFO errors are those of the present or last one, as the stream's reader sees
// them.
struct ChannelSnapshot {
    bool bOpen = false;
    uint32_t openings = 0;
    std::array<uint64_t, MESSAGE_TYPES> sent{};
    uint64_t other = 0;
    uint64_t dropped = 0;
    uint32_t backPressure = 0;
    uint32_t fifoErrors = 0;
    uint64_t subscribed = 0;  // instruments with this channel in their mask

    bool WasEverOpen() const { return openings != 0; }
    // Types 17 to 20.
    uint64_t MarketData() const { return sent[1] + sent[2] + sent[3] + sent[4]; }
};

// One instrument table.
struct TableSnapshot {
    uint32_t exchange = 0;  // instruments that the exchange lists
    size_t learnt = 0;      // entries with a name
    size_t subscribed = 0;  // entries with a channel in their mask
};

// What a board's memory tells of the board at one moment, in plain words. Each is right on its own.
struct BoardSnapshot {
    uint32_t bus = 0;
    int32_t pid = 0;
    uint64_t passes = 0;
    uint32_t date = 0;
    uint32_t hhmmss = 0;
    uint32_t millisecond = 0;
    uint32_t phase = 0;
    bool bPaused = false;
    uint32_t source = 0;
    int64_t speedMilli = 0;
    std::array<TableSnapshot, TABLE_COUNT> tables;
    uint32_t switchWord = 0;
    bool bMapTransmit = false;
    bool bHeldInReset = false;
    uint32_t linkStatus = 0;          // as hosts read it, with a fault if there is one
    std::array<uint32_t, 2> feeds{};  // L5, L1
    uint64_t parsed = 0;
    uint64_t requests = 0;
    uint32_t boardResets = 0;
    uint32_t coreResets = 0;
    uint32_t ignoredTableWrites = 0;
    std::array<std::array<uint32_t, COUNTERS_PER_GROUP>, 2> parseCounters{};  // groups A, B
    std::array<ChannelSnapshot, CHANNELS> channels;
    std::string faults;  // CFaults::Text()
};

// Reads it without touching anything: no lock, no window register, no effect.
BoardSnapshot TakeSnapshot(BoardShm& shm);

// The words for what is in a snapshot. A value that no board writes is a "?".
std::string DateText(uint32_t date);                          // "2026-11-20"
std::string TimeText(uint32_t hhmmss);                        // "09:00:00"
std::string TimeText(uint32_t hhmmss, uint32_t millisecond);  // "09:00:00.100"
const char* PhaseText(uint32_t phase);                        // "trading"
const char* SourceText(uint32_t source);                      // "live"
const char* FeedText(uint32_t state);                         // "ok"
std::string SpeedText(int64_t speedMilli);                    // "1", "2.5"
// "all connected", or "not connected: 0, 3".
std::string LinkText(uint32_t linkStatus);
// Text of the memory, in which anybody may write anything: what cannot be printed is a "?".
std::string Printable(std::string text);

}  // namespace ZceBoard
