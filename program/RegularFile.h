#pragma once

#include <cstddef>
#include <string>

namespace ZceProgram {

// Opens a file that can be read to its end without waiting for anybody, and read again from its
// beginning. -1, with the reason, for any other: a directory, a pipe, a device.
int OpenRegular(const std::string& path, std::string& reason);

// The most that a program reads of a configuration, a list or a cache file: far more than any has.
constexpr std::size_t MAX_FILE_BYTES = std::size_t{16} << 20U;

// All that is left of an open file, in `bytes`; one byte more than `limit` if there is more than
// that. False: `reason` says why it cannot be read.
bool ReadUpTo(int descriptor, std::size_t limit, std::string& bytes, std::string& reason);

}  // namespace ZceProgram
