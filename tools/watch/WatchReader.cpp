#include "watch/WatchReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <memory>
#include <numeric>
#include <system_error>
#include <tuple>

#include "watch/ProcessLife.h"
#include "watch/Ticks.h"

namespace ZceWatch {

namespace {

constexpr uint64_t LAST_STATE = 2;

class CFile {
  public:
    // Not waiting for anybody: a pipe of a page's name is no page.
    explicit CFile(const std::string& path)
        : m_fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY)) {}
    ~CFile() {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;

    int Fd() const { return m_fd; }
    // How much of `size` bytes there was; -1: errno.
    ssize_t Read(void* to, size_t size) const {
        size_t done = 0;
        while (done < size) {
            const ssize_t got =
                pread(m_fd, static_cast<char*>(to) + done, size - done, static_cast<off_t>(done));
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got < 0) {
                return -1;
            }
            if (got == 0) {
                break;
            }
            done += static_cast<size_t>(got);
        }
        return static_cast<ssize_t>(done);
    }

  private:
    int m_fd;
};

std::string TextOf(int err) {
    return std::strerror(err);  // NOLINT(concurrency-mt-unsafe): the C library's is
}

template <class Value>
auto Get(const std::atomic<Value>& word) {
    return word.load(std::memory_order_relaxed);
}

template <class State>
State StateOf(uint64_t word, State last) {
    return word <= static_cast<uint64_t>(last) ? static_cast<State>(word) : State{};
}

// What is wrong with the page's beginning; empty: nothing.
std::string Refusal(const Page& page, size_t size) {
    if (size < offsetof(Page, size) || page.magic != PAGE_MAGIC) {
        return "this is no page of libzce-watch.so: remove it, or name another directory";
    }
    if (page.version != PAGE_VERSION) {
        return "this page has layout " + std::to_string(page.version) + ", this program reads " +
               std::to_string(PAGE_VERSION) + ": use the zce-watch and zce-top of the " +
               (page.version < PAGE_VERSION ? "older" : "newer") +
               " release that the application's libzce-watch.so is of, or start the application "
               "with this release's";
    }
    if (size != sizeof(Page) || page.size != sizeof(Page) || page.entrySize != sizeof(Entry) ||
        page.entryCapacity != PAGE_ENTRIES || page.ticksPerSecond == 0 ||
        Get(page.entriesUsed) > PAGE_ENTRIES) {
        return "this page is damaged: remove it, and start the application anew";
    }
    return "";
}

Life LifeOf(const Page& page) {
    if (Get(page.state) == static_cast<uint64_t>(PageState::Ended)) {
        return Life::Ended;
    }
    return IsThere(page.pid, page.processStart) ? Life::Runs : Life::Died;
}

Gaps GapsOf(const Entry& entry, const Page& page, bool bPolls) {
    Gaps gaps;
    const uint64_t last = Get(entry.lastPollTicks);
    const uint64_t now = ReadTicks(static_cast<TickSource>(page.tickSource));
    if (bPolls && last != 0 && now > last) {
        gaps.runningNs = TicksToNs(now - last, page.ticksPerSecond);
    }
    // A window in which nobody polled is the running gap, whatever was before it.
    constexpr uint64_t second = NS_PER_SECOND;
    constexpr uint64_t minute = 60 * second;
    const uint64_t running = gaps.runningNs;
    gaps.secondNs = running > second ? running : std::max(running, Get(entry.gapSecondNs));
    gaps.minuteNs = running > minute ? running : std::max(running, Get(entry.gapMinuteNs));
    gaps.everNs = std::max(running, Get(entry.gapEverNs));
    std::transform(entry.gaps.begin(), entry.gaps.end(), gaps.histogram.begin(), Get<uint64_t>);
    return gaps;
}

Counters CountersOf(const Entry& entry) {
    Counters counters;
    counters.state =
        StateOf(entry.countersState.load(std::memory_order_acquire), CountersState::Failed);
    counters.readNs = Get(entry.countersNs);
    counters.backPressure = Get(entry.backPressure);
    counters.packets = Get(entry.packets);
    counters.fifoErrors = Get(entry.fifoErrors);
    counters.errors = Get(entry.errors);
    return counters;
}

Stream StreamOf(const Entry& entry, const Page& page, Life life) {
    Stream stream;
    stream.bus = Get(entry.bus);
    stream.channel = Get(entry.channel);
    stream.opening = Get(entry.opening);
    stream.state = StateOf(Get(entry.state), EntryState::Closed);
    stream.openedNs = Get(entry.openedNs);
    stream.closedNs = Get(entry.closedNs);
    stream.board = StateOf(Get(entry.boardState), BoardState::Replaced);
    stream.polls = Get(entry.polls);
    stream.lastMessageNs = Get(entry.lastMessageNs);
    for (size_t k = 0; k < TYPES; ++k) {
        stream.types[k] = {Get(entry.messages[k].messages), Get(entry.messages[k].bytes)};
    }
    stream.gaps = GapsOf(entry, page, life == Life::Runs && stream.state == EntryState::Open);
    stream.counters = CountersOf(entry);
    return stream;
}

enum class Found { Page, Nothing, Wrong };

Found Read(const std::string& path, Process& process, std::string& error) {
    const CFile file(path);
    const auto page = std::make_unique<Page>();
    struct stat status {};
    if (file.Fd() < 0 || fstat(file.Fd(), &status) != 0) {
        const int err = errno;
        error = path + ": " + TextOf(err);
        return err == ENOENT ? Found::Nothing : Found::Wrong;
    }
    if (!S_ISREG(status.st_mode)) {
        error = path + ": this is no file: remove it, or name another directory";
        return Found::Wrong;
    }
    const ssize_t size = file.Read(page.get(), sizeof(Page));
    error = size < 0 ? TextOf(errno) : Refusal(*page, static_cast<size_t>(size));
    if (!error.empty()) {
        error = path + ": " + error;
        return Found::Wrong;
    }
    process = {};
    process.path = path;
    process.program =
        std::string(page->program.data(), strnlen(page->program.data(), page->program.size()));
    process.pid = page->pid;
    process.life = LifeOf(*page);
    process.beginNs = page->beginNs;
    process.endNs = Get(page->endNs);
    process.notCounted = Get(page->notCounted);
    for (size_t k = 0; k < Get(page->entriesUsed); ++k) {
        process.streams.push_back(StreamOf(page->entries[k], *page, process.life));
    }
    return Found::Page;
}

}  // namespace

uint64_t Stream::Messages() const {
    return std::accumulate(types.begin(), types.end(), uint64_t{0},
                           [](uint64_t sum, const Counted& type) { return sum + type.messages; });
}

uint64_t Stream::Bytes() const {
    return std::accumulate(types.begin(), types.end(), uint64_t{0},
                           [](uint64_t sum, const Counted& type) { return sum + type.bytes; });
}

bool ReadPage(const std::string& path, Process& process, std::string& error) {
    return Read(path, process, error) == Found::Page;
}

bool ReadDirectory(const std::string& directory, Directory& pages, std::string& error) {
    namespace fs = std::filesystem;
    std::error_code failed;
    pages = {};
    for (fs::directory_iterator it(directory, failed), end; !failed && it != end;
         it.increment(failed)) {
        const std::string path = it->path().string();
        if (!path.ends_with(PAGE_SUFFIX)) {
            continue;
        }
        Process process;
        std::string refusal;
        const Found found = Read(path, process, refusal);
        if (found == Found::Page) {
            pages.processes.push_back(std::move(process));
        } else if (found == Found::Wrong) {
            pages.refused.push_back(refusal);
        }
    }
    if (failed) {
        error = directory + ": " + TextOf(failed.value()) +
                ": name the directory that the applications have in ZCE_WATCH";
        return false;
    }
    std::sort(pages.processes.begin(), pages.processes.end(),
              [](const Process& left, const Process& right) {
                  return std::tie(left.program, left.pid) < std::tie(right.program, right.pid);
              });
    std::sort(pages.refused.begin(), pages.refused.end());
    return true;
}

uint64_t GapBucketBeginNs(size_t bucket) {
    return bucket == 0 ? 0 : FIRST_GAP_NS << (bucket - 1);
}

uint64_t GapBucketEndNs(size_t bucket) {
    return bucket + 1 < GAP_BUCKETS ? FIRST_GAP_NS << bucket : 0;
}

}  // namespace ZceWatch
