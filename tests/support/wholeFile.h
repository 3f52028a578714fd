#pragma once

#include <fstream>
#include <sstream>
#include <string>

namespace velatest {

// The bytes of a file; none if there is no such file.
inline std::string WholeFile(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

}  // namespace velatest
