#include "watch/ProcessLife.h"

#include <signal.h>  // NOLINT(modernize-deprecated-headers): kill()
#include <sys/types.h>

#include <cerrno>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>

namespace ZceWatch {

namespace {

struct Stat {
    char state = 0;
    uint64_t start = 0;
};

// The name, in parentheses, may have anything in it: what follows begins behind the last of them.
std::optional<Stat> ReadStat(uint64_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(file, line);
    const size_t end = line.rfind(')');
    if (end == std::string::npos) {
        return std::nullopt;
    }
    Stat stat;
    std::istringstream fields(line.substr(end + 1));
    fields >> stat.state;
    constexpr int stateField = 3;
    constexpr int startField = 22;
    std::string skipped;
    for (int field = stateField + 1; field < startField; ++field) {
        fields >> skipped;
    }
    fields >> stat.start;
    if (!fields || stat.start == 0) {
        return std::nullopt;
    }
    return stat;
}

}  // namespace

std::optional<uint64_t> ProcessStart(uint64_t pid) {
    const std::optional<Stat> stat = ReadStat(pid);
    return stat ? std::optional(stat->start) : std::nullopt;
}

bool IsThere(uint64_t pid, uint64_t start) {
    if (const std::optional<Stat> stat = ReadStat(pid)) {
        const bool ended = stat->state == 'Z' || stat->state == 'X';
        return !ended && (start == 0 || stat->start == start);
    }
    // /proc may be one that shows nothing of other users' processes.
    return pid != 0 && pid <= static_cast<uint64_t>(std::numeric_limits<pid_t>::max()) &&
           (kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM);
}

}  // namespace ZceWatch
