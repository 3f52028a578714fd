#pragma once

#include <string>

#include "check/Machine.h"

// Who owns what the library writes to, and whether this process may.
namespace ZceMachine {

// The log's directory and its file of the day `date` (yyyymmdd). protectedRegular: what the kernel
// says of fs.protected_regular, "0" for off.
Result LogDirectoryResult(const std::string& directory, unsigned int date,
                          const std::string& protectedRegular);
// The working directory, and the cache file in it.
Result WorkDirectoryResult(const std::string& directory);

}  // namespace ZceMachine
