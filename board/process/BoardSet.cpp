#include "process/BoardSet.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace ZceBoard {

namespace {

std::string WhyNotMade(uint32_t bus, int err, int32_t pid) {
    if (err == EBUSY) {
        return fmt::format("bus {}: another zce-board is running on it (process {})", bus, pid);
    }
    if (err == EACCES && access(("/dev/shm" + ShmName(bus)).c_str(), F_OK) == 0) {
        return fmt::format("bus {}: the board on it is another user's (/dev/shm{})", bus,
                           ShmName(bus));
    }
    if (err == EINVAL) {
        return "ZCE_BOARD_SHM_PREFIX cannot be part of a name in shared memory";
    }
    if (err == ENOTSUP) {
        return fmt::format(
            "bus {}: cannot give the shared memory to that group: the user has to be in it", bus);
    }
    return fmt::format("bus {}: cannot make the shared memory {}: {}", bus, ShmName(bus),
                       strerror(err));
}

}  // namespace

bool CBoardSet::Add(uint32_t bus, const CFeeds& feeds, std::unique_ptr<CTraffic> traffic,
                    const std::string& clockFile, std::string& error) {
    auto one = std::make_unique<One>();
    int32_t pid = 0;
    if (const int err = one->memory.Create(bus, pid, m_group, m_accessNs); err != 0) {
        error = WhyNotMade(bus, err, pid);
        return false;
    }
    one->traffic = std::move(traffic);
    one->board = std::make_unique<CBoard>(one->memory, feeds);
    one->loop = std::make_unique<CBoardLoop>(*one->board, *one->traffic, bus, clockFile);
    m_boards.push_back(std::move(one));
    return true;
}

void CBoardSet::Run(const volatile std::sig_atomic_t& stop, CCommand* command) {
    std::vector<CBoardLoop*> loops;
    loops.reserve(m_boards.size());
    for (const auto& one : m_boards) {
        loops.push_back(one->loop.get());
    }
    RunBoards(loops, stop, command);
}

}  // namespace ZceBoard
