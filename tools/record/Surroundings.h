#pragma once

#include <cstdint>
#include <string>

namespace ZceRecord {

struct Space {
    uint64_t freeBytes = 0;  // for programs of any user
    uint64_t allBytes = 0;
};

// What the thread that writes asks the system, so that a test can answer.
struct Surroundings {
    int64_t (*now)();                                      // ns since the epoch
    bool (*space)(const std::string& file, Space& space);  // of its file system; false: not known
};

// The system itself.
const Surroundings& TheSystem();

}  // namespace ZceRecord
