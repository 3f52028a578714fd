#pragma once

#include <sys/types.h>

#include <csignal>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "device/Board.h"
#include "device/Feeds.h"
#include "memory/BoardMemory.h"
#include "process/BoardLoop.h"
#include "traffic/Traffic.h"

namespace ZceBoard {

// The boards of one process, each with its shared memory and its traffic. Their memory is removed
// with the object.
class CBoardSet {
  public:
    // With `group` its members may use the boards too, else only the user himself. Each access to a
    // register takes `accessNs` at least.
    explicit CBoardSet(std::optional<gid_t> group = std::nullopt, uint32_t accessNs = 0)
        : m_group(group), m_accessNs(accessNs) {}

    // Makes the board of a bus. False: `error` says why there is none.
    bool Add(uint32_t bus, const CFeeds& feeds, std::unique_ptr<CTraffic> traffic,
             const std::string& clockFile, std::string& error);
    // Until `stop` is set or all traffic is over; with a command, until that has ended.
    void Run(const volatile std::sig_atomic_t& stop, CCommand* command = nullptr);

  private:
    struct One {
        CBoardMemory memory;
        std::unique_ptr<CTraffic> traffic;
        std::unique_ptr<CBoard> board;
        std::unique_ptr<CBoardLoop> loop;
    };
    std::optional<gid_t> m_group;
    uint32_t m_accessNs;
    std::vector<std::unique_ptr<One>> m_boards;
};

}  // namespace ZceBoard
