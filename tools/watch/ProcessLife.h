#pragma once

#include <cstdint>
#include <optional>

namespace ZceWatch {

// When a process started, in the kernel's ticks since the machine did (field 22 of
// /proc/<pid>/stat): a pid that is used once more has another one. Empty: it is not told. Never 0.
std::optional<uint64_t> ProcessStart(uint64_t pid);

// Whether the process that started then is still there; also if nothing but its being there is
// told.
bool IsThere(uint64_t pid, uint64_t start);

}  // namespace ZceWatch
