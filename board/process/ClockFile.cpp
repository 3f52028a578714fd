#include "process/ClockFile.h"

#include <fmt/format.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>

namespace ZceBoard {

namespace {

constexpr int64_t NOTICED_NS = 5 * NS_PER_MS;
constexpr int64_t PACE_NS = 10 * NS_PER_MS;

// The machine's wall clock, whatever moves that of this process.
int64_t MachineNs() {
    timespec now{};
    syscall(SYS_clock_gettime, CLOCK_REALTIME, &now);
    return now.tv_sec * NS_PER_SECOND + now.tv_nsec;
}

int64_t MomentOf(const BoardTime& time) {
    return MomentAt(time.date, time.hhmmss) + static_cast<int64_t>(time.dayNs) % NS_PER_SECOND;
}

}  // namespace

std::string CClockFile::WhyNot(const std::string& path) {
    namespace fs = std::filesystem;
    std::error_code none;
    if (fs::is_directory(path, none)) {
        return strerror(EISDIR);
    }
    // A file that is there is replaced by a new one.
    const fs::path folder = fs::path(path).parent_path();
    if (!folder.empty() && fs::exists(folder, none) && !fs::is_directory(folder, none)) {
        return strerror(ENOTDIR);
    }
    return access(folder.empty() ? "." : folder.c_str(), W_OK | X_OK) == 0 ? "" : strerror(errno);
}

void CClockFile::Tell(const BoardTime& time, const HostTime& now) {
    if (m_path.empty() || m_bFailed || (m_bTold && now.realNs < m_nextNs)) {
        return;
    }
    const int64_t ahead = MomentOf(time) - MachineNs();
    if (m_bTold && std::abs(ahead - m_toldNs) < NOTICED_NS) {
        return;
    }
    m_nextNs = now.realNs + PACE_NS;
    if (!Write(ahead)) {
        fprintf(stderr, "zce-board: %s: %s; the clock is not told any more\n", m_path.c_str(),
                strerror(errno));
        m_bFailed = true;
    }
    m_toldNs = ahead;
    m_bTold = true;
}

bool CClockFile::Write(int64_t aheadNs) {
    const std::string fresh = m_path + ".new";
    FILE* file = fopen(fresh.c_str(), "we");
    if (file == nullptr) {
        return false;
    }
    const std::string text =
        fmt::format("{}{}.{:03}\n", aheadNs < 0 ? '-' : '+', std::abs(aheadNs) / NS_PER_SECOND,
                    std::abs(aheadNs) / NS_PER_MS % 1000);
    int err = fputs(text.c_str(), file) >= 0 ? 0 : errno;
    err = fclose(file) != 0 && err == 0 ? errno : err;
    if (err == 0 && rename(fresh.c_str(), m_path.c_str()) == 0) {
        return true;
    }
    err = err != 0 ? err : errno;
    unlink(fresh.c_str());
    errno = err;
    return false;
}

}  // namespace ZceBoard
