#include "watch/PageFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <new>
#include <system_error>
#include <utility>

#include "watch/ProcessLife.h"
#include "watch/WatchReader.h"

namespace ZceWatch {

namespace {

constexpr mode_t PAGE_MODE = 0644;
constexpr size_t DEAD_PAGES_KEPT = 16;

// A file that is removed unless it is kept.
class CNewFile {
  public:
    explicit CNewFile(std::string path) : m_path(std::move(path)) {
        unlink(m_path.c_str());  // of a process of the same number that died while it made it
        m_fd = open(m_path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, PAGE_MODE);
    }
    ~CNewFile() {
        if (m_fd >= 0) {
            close(m_fd);
            if (!m_bKept) {
                unlink(m_path.c_str());
            }
        }
    }
    CNewFile(const CNewFile&) = delete;
    CNewFile& operator=(const CNewFile&) = delete;

    int Fd() const { return m_fd; }
    // Under its name, at once.
    bool KeepAs(const std::string& path) {
        m_bKept = rename(m_path.c_str(), path.c_str()) == 0;
        return m_bKept;
    }

  private:
    std::string m_path;
    int m_fd = -1;
    bool m_bKept = false;
};

// All of it has its place on the disk, so that no write to the mapping can fail. 0, or an errno.
int Reserve(int fd) {
    rlimit limit{};
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur < sizeof(Page)) {
        return EFBIG;  // without the signal that the kernel sends
    }
    int err = 0;
    do {  // NOLINT(cppcoreguidelines-avoid-do-while)
        err = posix_fallocate(fd, 0, sizeof(Page));
    } while (err == EINTR);
    return err;
}

std::string Failed(const std::string& path, int err) {
    return path + ": " + std::strerror(err);  // NOLINT(concurrency-mt-unsafe): the C library's is
}

// Makes the directory and those above it; readable by all, whatever the umask.
std::error_code MakeDirectory(const std::filesystem::path& directory) {
    namespace fs = std::filesystem;
    std::error_code failed;
    if (fs::exists(directory, failed)) {
        return fs::is_directory(directory, failed)
                   ? std::error_code()
                   : std::make_error_code(std::errc::not_a_directory);
    }
    if (directory.has_parent_path() && directory.parent_path() != directory) {
        if (const std::error_code above = MakeDirectory(directory.parent_path())) {
            return above;
        }
    }
    if (fs::create_directory(directory, failed)) {
        constexpr auto readable = static_cast<fs::perms>(0755);
        std::error_code ignored;
        fs::permissions(directory, readable, ignored);
    }
    return failed;
}

}  // namespace

std::string ProgramName() {
    std::string name = program_invocation_short_name;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return c <= ' ' || c > '~' || c == '/'; },
        '_');
    name.resize(std::min(name.size(), sizeof(Page::program) - 1));
    return name.empty() ? "program" : name;
}

bool CPageFile::Open(const std::string& directory, const TickClock& clock, std::string& error) {
    m_clock = clock;
    if (const std::error_code failed = MakeDirectory(directory)) {
        error = Failed(directory, failed.value());
        return false;
    }
    RemoveOldPages(directory);
    return Make(directory + "/" + ProgramName() + "-" + std::to_string(getpid()) + PAGE_SUFFIX,
                error);
}

bool CPageFile::Make(const std::string& path, std::string& error) {
    // Not ended by the suffix: no reader takes it for a page.
    CNewFile file(path + ".new");
    if (file.Fd() < 0) {
        error = Failed(path, errno);
        return false;
    }
    fchmod(file.Fd(), PAGE_MODE);
    if (const int err = Reserve(file.Fd()); err != 0) {
        error = Failed(path, err);
        return false;
    }
    void* memory = mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED, file.Fd(), 0);
    if (memory == MAP_FAILED) {
        error = Failed(path, errno);
        return false;
    }
    m_page = new (memory) Page{};
    Fill();
    if (!file.KeepAs(path)) {
        error = Failed(path, errno);
        munmap(memory, sizeof(Page));
        m_page = nullptr;
        return false;
    }
    return true;
}

void CPageFile::Fill() {
    m_page->magic = PAGE_MAGIC;
    m_page->version = PAGE_VERSION;
    m_page->size = sizeof(Page);
    m_page->entrySize = sizeof(Entry);
    m_page->entryCapacity = PAGE_ENTRIES;
    m_page->pid = static_cast<uint64_t>(getpid());
    m_page->processStart = ProcessStart(m_page->pid).value_or(0);
    m_page->beginNs = ClockNs(CLOCK_REALTIME);
    m_page->tickSource = static_cast<uint64_t>(m_clock.source);
    m_page->ticksPerSecond = m_clock.perSecond;
    const std::string name = ProgramName();
    std::copy(name.begin(), name.end(), m_page->program.begin());
    m_page->state = static_cast<uint64_t>(PageState::Running);
}

CStreamWatch* CPageFile::StreamOf(uint16_t bus, uint16_t channel) {
    for (const Channel& known : m_channels) {
        // Two boards of unknown numbers have channels of the same number, each with its entry.
        if (known.bus == bus && known.number == channel && !known.watch->IsOpen()) {
            return known.watch.get();
        }
    }
    if (m_channels.size() == PAGE_ENTRIES) {
        AddTo(m_page->notCounted, 1);
        return nullptr;
    }
    Entry& entry = m_page->entries[m_channels.size()];
    entry.bus = bus;
    entry.channel = channel;
    m_channels.push_back({bus, channel, std::make_unique<CStreamWatch>(entry, m_clock)});
    m_page->entriesUsed.store(m_channels.size(), std::memory_order_release);
    return m_channels.back().watch.get();
}

void CPageFile::Finish() {
    if (m_page != nullptr) {
        m_page->endNs = ClockNs(CLOCK_REALTIME);
        m_page->state = static_cast<uint64_t>(PageState::Ended);
    }
}

bool CPageFile::BecomeChild() {
    // Memory of the child's own in the place of its parent's page: a poll needs to ask nothing.
    if (m_page != nullptr && mmap(m_page, sizeof(Page), PROT_READ | PROT_WRITE,
                                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) == MAP_FAILED) {
        m_page = nullptr;
        return false;
    }
    return true;
}

void RemoveOldPages(const std::string& directory) {
    Directory pages;
    std::string error;
    if (!ReadDirectory(directory, pages, error)) {
        return;
    }
    const std::string name = ProgramName();
    std::erase_if(pages.processes, [&](const Process& process) {
        return process.program != name || process.life == Life::Runs;
    });
    // The newest of the dead first, those that ended last.
    std::sort(pages.processes.begin(), pages.processes.end(),
              [](const Process& left, const Process& right) {
                  return std::pair(left.life == Life::Died, left.beginNs) >
                         std::pair(right.life == Life::Died, right.beginNs);
              });
    for (size_t k = 0; k < pages.processes.size(); ++k) {
        if (k >= DEAD_PAGES_KEPT || pages.processes[k].life == Life::Ended) {
            unlink(pages.processes[k].path.c_str());
        }
    }
}

}  // namespace ZceWatch
