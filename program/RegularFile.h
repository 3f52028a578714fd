#pragma once

#include <cstddef>
#include <string>

namespace ZceProgram {

// Opens a file that can be read to its end without waiting for anybody, and read again from its
// beginning. -1, with the reason, for any other: a directory, a pipe, a device.
int OpenRegular(const std::string& path, std::string& reason);

// All that is left of an open file, in `bytes`; one byte more than `limit` if there is more than
// that. False: `reason` says why it cannot be read.
bool ReadUpTo(int descriptor, std::size_t limit, std::string& bytes, std::string& reason);

}  // namespace ZceProgram
