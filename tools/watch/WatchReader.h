#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "watch/WatchPage.h"

// Reads the pages that libzce-watch.so writes. Nothing here maps a page: a page that is cut short
// while it is read is refused, and that is all.
namespace ZceWatch {

// What became of the process of a page.
enum class Life : uint8_t { Runs, Ended, Died };

struct Gaps {
    uint64_t runningNs = 0;  // since the last poll that is known of; 0: closed, or not polled yet
    // The longest, the running one among them: a process that does not poll does not tell it.
    uint64_t secondNs = 0;
    uint64_t minuteNs = 0;
    uint64_t everNs = 0;
    std::array<uint64_t, GAP_BUCKETS> histogram{};
};

struct Counters {
    CountersState state = CountersState::NotRead;
    int64_t readNs = 0;
    uint64_t backPressure = 0;
    uint64_t packets = 0;
    uint64_t fifoErrors = 0;
    uint64_t errors = 0;
};

struct Counted {
    uint64_t messages = 0;
    uint64_t bytes = 0;
};

// A channel as its page tells it.
struct Stream {
    uint64_t bus = 0;
    uint64_t channel = 0;
    uint64_t opening = 0;
    EntryState state = EntryState::None;
    int64_t openedNs = 0;
    int64_t closedNs = 0;
    BoardState board = BoardState::Unknown;
    uint64_t polls = 0;
    int64_t lastMessageNs = 0;  // 0: none yet
    std::array<Counted, TYPES> types{};
    Gaps gaps;
    Counters counters;

    uint64_t Messages() const;
    uint64_t Bytes() const;
};

// A process as its page tells it. Times are ns since 1970.
struct Process {
    std::string path;  // of the page
    std::string program;
    uint64_t pid = 0;
    Life life = Life::Runs;
    int64_t beginNs = 0;
    int64_t endNs = 0;        // 0: it has not ended in order
    uint64_t notCounted = 0;  // openings for which the page had no room
    std::vector<Stream> streams;
};

// False: `error` is the whole sentence: which file, what is wrong, what to do.
bool ReadPage(const std::string& path, Process& process, std::string& error);

struct Directory {
    std::vector<Process> processes;    // by program, then pid
    std::vector<std::string> refused;  // a sentence each, for the pages that cannot be read
};

// All pages of a directory. False: it cannot be read itself; `error` is the whole sentence. A page
// that goes away meanwhile is none.
bool ReadDirectory(const std::string& directory, Directory& pages, std::string& error);

// The lowest gap of a bucket of the histogram, and the first that is above it; 0 for the last one.
uint64_t GapBucketBeginNs(size_t bucket);
uint64_t GapBucketEndNs(size_t bucket);

}  // namespace ZceWatch
