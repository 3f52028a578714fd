#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "memory/RegisterMap.h"

// A board in shared memory: what zce-board and every process that uses the board map, whole.
//
// All of it may be written by any of these processes at any time, so whatever is read from it is
// checked before it is used as an offset or a length. Words that several processes touch are
// lock-free atomics. Memory that nobody touches is never resident.
namespace ZceBoard {

constexpr uint64_t SHM_MAGIC = 0x3144524142455a43;  // "CZEBARD1"
constexpr uint32_t SHM_VERSION = 5;

constexpr size_t CHANNELS = 16;
constexpr uint32_t STREAM_MTU = 2048;
constexpr size_t A2C_RING_BYTES = size_t{2} << 20;
constexpr size_t C2A_RING_BYTES = size_t{64} << 10;
constexpr size_t CACHE_LINE = 64;
constexpr size_t PAGE = 4096;

static_assert(std::atomic<uint32_t>::is_always_lock_free);
static_assert(std::atomic<uint64_t>::is_always_lock_free);

// Bytes of the memory's file that are locked, one process each (open file description locks, so
// that the end of the holder frees them whatever its end was). A locked byte means:
constexpr int64_t LOCK_BOARD = 0;       // the board lives
constexpr int64_t LOCK_CONTROL = 1;     // a request to the board is being made
constexpr int64_t LOCK_A2C_FIRST = 64;  // + channel: the stream is held
constexpr int64_t LOCK_C2A_FIRST = 128;
constexpr int64_t LOCK_CORE_FIRST = int64_t{1} << 32;  // + token: the process that has it lives

// The control words of one ring. The producer writes the first line, the consumer the second; the
// opener of the stream, at either end, writes the third.
struct alignas(PAGE) RingControl {
    // Bytes ever put into the ring; at this place, modulo the ring's size, the next record starts.
    alignas(CACHE_LINE) std::atomic<uint64_t> head;
    // Counts of the opening `statGeneration`, modulo 2^32.
    std::atomic<uint32_t> statGeneration;
    std::atomic<uint32_t> packetCount;
    std::atomic<uint32_t> backPressure;
    std::atomic<uint32_t> fifoErrors;

    // Bytes ever taken out.
    alignas(CACHE_LINE) std::atomic<uint64_t> tail;
    std::atomic<uint32_t> errors;  // records that could not be read, in this opening

    // The number of the present opening, 0 while the stream is closed; and of the last one.
    alignas(CACHE_LINE) std::atomic<uint32_t> generation;
    std::atomic<uint32_t> lastGeneration;
};

// A ring's data lie in front of slack as large as the largest packet, so that not even a record
// with a corrupted place leads out of the memory.
template <size_t Bytes>
struct RingMemory {
    static_assert((Bytes & (Bytes - 1)) == 0);
    static constexpr size_t BYTES = Bytes;
    RingControl control;
    alignas(PAGE) std::array<unsigned char, Bytes + PAGE> data;
};

using A2cMemory = RingMemory<A2C_RING_BYTES>;
using C2aMemory = RingMemory<C2A_RING_BYTES>;

struct alignas(PAGE) ShmHeader {
    std::atomic<uint64_t> magic;  // written last: until then this is no board
    std::atomic<uint32_t> version;
    std::atomic<uint32_t> bus;
    std::atomic<uint64_t> size;  // of the whole memory, bytes
    std::atomic<int32_t> boardPid;
    // Counts since the board's start: resets by 0x10, core resets, table writes out of range.
    std::atomic<uint32_t> boardResets;
    std::atomic<uint32_t> coreResets;
    std::atomic<uint32_t> ignoredTableWrites;
    // What an access to a register takes at least (AccessTime.h); the board's to write.
    std::atomic<uint32_t> accessNs;

    // The core lock: 0, or the token of the process that holds it (CoreLock.h).
    alignas(CACHE_LINE) std::atomic<uint32_t> coreLock;
};

// One kind of fault, as Faults.h tells of it. Counts are since it was switched on.
struct FaultWords {
    std::atomic<uint32_t> every;   // strikes at each n-th occasion; 0 counts as 1
    std::atomic<uint32_t> target;  // the register, channel or entry that it is for, or FAULT_ANY
    std::atomic<uint32_t> value;   // what a fault of this kind does with it
    std::atomic<uint32_t> limit;   // ends by itself after so many strikes; 0: never
    std::atomic<uint32_t> occasions;
    std::atomic<uint32_t> strikes;
    // Made of the kind and the first four words; a fault with another seal here is none.
    std::atomic<uint64_t> seal;
};

// A number that whoever knows the words can make, and that other words, or words written at random,
// do not have: never 0.
template <class... Words>
constexpr uint64_t SealOf(uint64_t first, Words... words) {
    uint64_t seal = 0x7A63652D626F6172;  // "zce-boar"
    for (const uint64_t word : {first, static_cast<uint64_t>(words)...}) {
        seal = (seal ^ word) * 0x9E3779B97F4A7C15;
        seal ^= seal >> 29;
    }
    return seal | 1;
}

constexpr uint32_t FAULT_ANY = 0xFFFFFFFF;
constexpr size_t FAULT_KINDS = 15;

struct alignas(PAGE) FaultBlock {
    std::atomic<uint32_t> on;  // bit k: kind k is on; nobody looks further while it is 0
    alignas(CACHE_LINE) std::array<FaultWords, FAULT_KINDS> kinds;
};

// What the board's process tells of itself once a pass, for whoever watches it. Each word is right
// on its own; the words together are of about the same moment.
struct ChannelStats {
    std::array<std::atomic<uint64_t>, 5> sent;  // types 2, 17, 18, 19, 20, over all openings
    std::atomic<uint64_t> other;                // of any other type
    std::atomic<uint64_t> dropped;
    std::atomic<uint32_t> openings;
    std::atomic<uint32_t> open;  // 1: somebody holds the stream
};

struct alignas(PAGE) BoardStats {
    std::atomic<uint64_t> passes;  // rounds of the board's loop, ever
    std::atomic<uint32_t> date;    // the board's time: yyyymmdd, hhmmss, ms of the second
    std::atomic<uint32_t> hhmmss;
    std::atomic<uint32_t> millisecond;
    std::atomic<uint32_t> phase;                       // a Phase
    std::atomic<uint32_t> paused;                      // 1: clock and traffic stand still
    std::atomic<uint32_t> source;                      // a TrafficSource
    std::array<std::atomic<uint32_t>, 2> instruments;  // of the exchange, single-leg and combined
    std::array<std::atomic<uint32_t>, 2> feeds;        // a FeedState each: L5, L1
    std::atomic<uint64_t> parsed;
    std::atomic<uint64_t> requests;
    std::atomic<uint64_t> garbage;    // requests and faults that nobody made, words put right
    std::atomic<int64_t> speedMilli;  // 1000: the clock runs with real time
    alignas(CACHE_LINE) std::array<ChannelStats, CHANNELS> channels;
};

// How many messages of each instrument were sent on a channel, over all openings, by the
// instrument's table and its index there. A channel that gets nothing has no memory here.
struct alignas(PAGE) InstrumentCounts {
    std::array<std::array<std::atomic<uint64_t>, TABLE_ENTRIES>, TABLE_COUNT> sent;
};

// A request to the board's process. Whoever makes one holds LOCK_CONTROL, writes kind, argument
// and seal and then `asked`; the board does it in its next pass and writes `result` and then
// `answered`.
struct alignas(PAGE) ControlMailbox {
    std::atomic<uint32_t> asked;
    std::atomic<uint32_t> answered;
    std::atomic<uint32_t> kind;  // a Request
    std::atomic<uint64_t> argument;
    std::atomic<uint64_t> seal;   // made of these three; a request with another one here is none
    std::atomic<int32_t> result;  // 0 or an errno
};

using TableWords = std::array<std::atomic<uint32_t>, TABLE_WORDS>;

struct BoardShm {
    ShmHeader header;
    FaultBlock faults;
    BoardStats stats;
    ControlMailbox control;
    alignas(PAGE) std::array<std::atomic<uint32_t>, REGISTER_COUNT> registers;
    alignas(PAGE) std::array<TableWords, TABLE_COUNT> tables;
    alignas(PAGE) std::array<A2cMemory, CHANNELS> a2c;
    alignas(PAGE) std::array<C2aMemory, CHANNELS> c2a;
    alignas(PAGE) std::array<InstrumentCounts, CHANNELS> instruments;
};

}  // namespace ZceBoard
