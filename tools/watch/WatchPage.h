#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

// The page in which libzce-watch.so shows what an application's polls bring: a file for each
// process, mapped by the process and read by whoever wants to know.
//
// Where: <ZCE_WATCH>/<program>-<pid>.watch, made when the process opens its first stream (under
// another name, then renamed: a page that can be found is whole), readable by all. The process
// leaves it behind: with the state Ended if it ended in order; still Running if it was killed,
// crashed or left by _exit(). A page whose state is Running and whose process (pid and start time)
// is no longer there is thus that of a process that died. When a process makes its page it removes
// those of the same program that ended in order, and those that died but for the newest 16.
//
// Who writes: an entry, the one thread that uses the stream, with plain stores; the page's own
// words, whoever opens the first stream and the end of the process. Who reads: anyone, at any time,
// without a lock. Each word is whole, and stands for itself: words read together may be some polls
// apart. What belongs together without fail is told by the order of the stores: an entry's bus and
// channel are there before `entriesUsed` counts it and never change; an opening's number and
// times are there before its state.
//
// All numbers are of the machine's own byte order (the page never leaves the machine). PAGE_VERSION
// changes with each change of what is below.
namespace ZceWatch {

constexpr std::array<char, 8> PAGE_MAGIC = {'Z', 'C', 'E', 'W', 'A', 'T', 'C', 'H'};
constexpr uint64_t PAGE_VERSION = 1;
constexpr size_t PAGE_ENTRIES = 64;  // 16 channels of four boards
constexpr const char* PAGE_SUFFIX = ".watch";

using Word = std::atomic<uint64_t>;
using Time = std::atomic<int64_t>;  // ns since 1970; 0: never
static_assert(Word::is_always_lock_free && Time::is_always_lock_free);
static_assert(sizeof(Word) == 8 && sizeof(Time) == 8);

// ---- What is counted ----

// The messages of an entry are counted by type: index in `messages`.
enum class Type : uint8_t { Map, Market17, Market18, Market19, Market20, Other };
constexpr size_t TYPES = 6;
// The types' numbers in a message; of the last kind are all others, and messages below four bytes.
constexpr std::array<const char*, TYPES> TYPE_NAMES = {"2", "17", "18", "19", "20", "other"};

// A gap is the time from one poll of a stream to the next (what the application does in between,
// and what the machine does to it). A reading of the clock takes longer than an idle poll may cost,
// so it is read at one poll of several: 1 to 128, so many that such a stretch takes 1.5 us at most
// if all is as before; polls that take longer than that are measured one by one. The longest gap of
// a stretch is taken to be the whole stretch: it is never told too short, and too long by the other
// polls of its stretch, which is below 1.5 us ordinarily.
//
// The histogram counts the gaps of all stretches: of a stretch below FIRST_GAP_NS all of them in
// the first bucket; of a longer one, one gap of the stretch's length, the others in the first
// bucket. Bucket 0: below FIRST_GAP_NS; bucket k: from FIRST_GAP_NS << (k - 1), below
// FIRST_GAP_NS << k; the last one: all that is longer.
constexpr uint64_t FIRST_GAP_NS = 2048;
constexpr size_t GAP_BUCKETS = 24;  // the last from 2^33 ns: 8.6 s

enum class PageState : uint64_t { Running = 1, Ended = 2 };
enum class EntryState : uint64_t { None = 0, Open = 1, Closed = 2 };
// Which clock the ticks are of: the processor's time stamp counter, or CLOCK_MONOTONIC's ns.
enum class TickSource : uint64_t { Counter = 1, Monotonic = 2 };
// What the vendor's counters of the entry are.
enum class CountersState : uint64_t { NotRead = 0, Read = 1, Failed = 2 };
// What the board's library says of the board: it runs; it is gone; it is gone and another one runs,
// while this process has the memory of the old one. The library of a real board says nothing.
enum class BoardState : uint64_t { Unknown = 0, Runs = 1, Gone = 2, Replaced = 3 };

// ---- The layout ----

struct TypeCount {
    Word messages;
    Word bytes;
};

constexpr uint64_t BUS_NOT_KNOWN = 65535;

// A channel of a board, for all its openings in this process: what is counted goes on, while the
// vendor's counters begin with each opening.
struct alignas(64) Entry {
    // Line 0: which one, and whether it is open.
    Word bus;      // or BUS_NOT_KNOWN
    Word channel;  // n of CUSTOM_CHAN<n>_DATA
    Word opening;  // 1, 2, ...: of this bus and channel in this process
    Word state;    // EntryState
    Time openedNs;
    Time closedNs;
    Word boardState;  // BoardState, asked about once a second in an idle poll
    Word reserved0;

    // Line 1: the polls, up to the last at which the clock was read. Ticks are TickSource's; gaps
    // are in ns.
    Word polls;
    Word lastPollTicks;  // when the clock was last read; 0: not polled in this opening
    Word gapSecondNs;    // the longest of the last whole second and of the running one
    Word gapMinuteNs;    // of the last 60 whole seconds and of the running one
    Word gapEverNs;      // of all openings
    // When the last message came: noted once in 1 ms at most, at the end of a stretch, by a clock
    // of some 4 ms (CLOCK_REALTIME_COARSE). What comes last before the application stops to poll
    // has the time of what came before it.
    Time lastMessageNs;
    Word reserved1;
    Word reserved2;

    // Lines 2 and 3: the messages, and the stream's counters: read once a second in an idle poll,
    // and when the stream is closed; since this opening, as the vendor's library gives them (32
    // bits).
    std::array<TypeCount, TYPES> messages;
    Word backPressure;
    Word packets;
    Word fifoErrors;
    Word errors;

    // Line 4
    Word countersState;  // CountersState
    Time countersNs;     // when they were read
    std::array<Word, 6> reserved4;

    // Lines 5 to 7
    std::array<Word, GAP_BUCKETS> gaps;
};

struct alignas(64) Page {
    // These never change in any version: what tells that a page is not understood.
    std::array<char, 8> magic;
    uint64_t version;
    // The same in all the life of a page.
    uint64_t size;  // of the page in bytes
    uint64_t entrySize;
    uint64_t entryCapacity;
    uint64_t pid;
    uint64_t processStart;  // field 22 of /proc/<pid>/stat
    int64_t beginNs;        // when the page was made, ns since 1970
    uint64_t tickSource;
    uint64_t ticksPerSecond;
    std::array<char, 64> program;  // its name, ended by a zero byte
    // These change.
    Word state;  // PageState
    Time endNs;  // when it ended in order
    Word entriesUsed;
    Word notCounted;  // openings of streams for which there was no entry
    std::array<Word, 10> reserved;

    std::array<Entry, PAGE_ENTRIES> entries;
};

static_assert(sizeof(Entry) == 512 && offsetof(Entry, polls) == 64 &&
              offsetof(Entry, messages) == 128 && offsetof(Entry, countersState) == 256 &&
              offsetof(Entry, gaps) == 320);
static_assert(offsetof(Page, entries) == 256 && sizeof(Page) == 256 + PAGE_ENTRIES * sizeof(Entry));
static_assert(std::is_standard_layout_v<Page>);

}  // namespace ZceWatch
