#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace ZceCapture {

// What is asked about a file that is written. Not by stat() and fstat(): a library that fakes the
// time (libfaketime) puts its own in their place, which cannot be called any more when the process
// ends, while a recording is still written to its end.
struct FileStatus {
    bool regular = false;
    uint32_t links = 0;  // 0: it was removed
};

// Nothing if there is none, or it cannot be asked about (errno).
std::optional<FileStatus> StatusOf(const std::string& path);
std::optional<FileStatus> StatusOf(int fd);

}  // namespace ZceCapture
