#pragma once

#include <filesystem>
#include <string>
#include <system_error>

#include "benchMain.h"

namespace velabench {

// A folder of the program's own, in memory where the host has such a file system, so that no disk
// is measured. It is the working folder from now on, and gone when the program ends; if a signal
// ends it the folder stays.
inline void EnterOwnFolder() {
    static std::string s_path;
    std::error_code error;
    const std::filesystem::path shm = "/dev/shm";
    s_path = ((std::filesystem::is_directory(shm, error) ? shm
                                                         : std::filesystem::temp_directory_path()) /
              "velabench.XXXXXX")
                 .string();
    if (mkdtemp(s_path.data()) == nullptr) {
        Die("no folder " + s_path);
    }
    AtEnd([] {
        std::error_code ignored;
        std::filesystem::remove_all(s_path, ignored);
    });
    std::filesystem::current_path(s_path);
}

}  // namespace velabench
