#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "wholeFile.h"

namespace velatest {

// The names in a directory, sorted.
inline std::vector<std::string> NamesIn(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Of this process; the one that reads the list is among them.
inline std::size_t OpenDescriptors() {
    return NamesIn("/proc/self/fd").size();
}

inline std::string LastLine(const std::string& text) {
    if (text.empty()) {
        return "";
    }
    const std::size_t before = text.find_last_of('\n', text.size() - 2);
    return text.substr(before == std::string::npos ? 0 : before + 1);
}

}  // namespace velatest
