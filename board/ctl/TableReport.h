#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "memory/ShmLayout.h"

namespace ZceBoard {

// Which entries of the instrument tables are shown: those that go to `channel`; or all that have a
// name or a channel; or else those that go to some channel.
struct TableChoice {
    std::optional<uint32_t> channel;
    bool bAll = false;
};

// Which instrument goes to which channels, read from the tables directly, and a line of counts.
std::string TablesText(BoardShm& shm, const TableChoice& choice);
nlohmann::ordered_json TablesJson(BoardShm& shm, const TableChoice& choice);

}  // namespace ZceBoard
