#pragma once

#include <string>
#include <utility>
#include <vector>

// Calls that the linker leads here (--wrap), answered as the test says; they go to the real ones
// while nothing is said. Only accesses to the working directory itself (".") are answered.
namespace velatest {

struct WrappedCalls {
    static inline int accessErrno = 0;              // not 0: access(".") fails with it
    static inline int accessMode = -1;              // of the last access(".")
    static inline int statErrno = 0;                // not 0: stat(".") fails with it
    static inline bool noOwner = false;             // getpwuid finds nobody
    static inline int ownerErrno = 0;               // and leaves this in errno
    static inline const char* ownerName = nullptr;  // getpwuid finds this one

    // elog_log_file_init is recorded and not carried out, with this result.
    static inline bool holdLogInit = false;
    static inline int logInitResult = 0;
    static inline std::vector<std::pair<std::string, std::string>> logInits;
};

}  // namespace velatest
