#pragma once

#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

namespace velatest {

// The bytes of a file; none if there is no such file.
inline std::string WholeFile(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

// The same, but "(none)" if there is no such file.
inline std::string FileText(const std::string& path) {
    return access(path.c_str(), F_OK) == 0 ? WholeFile(path) : "(none)";
}

// The file has this text and no other.
inline void PutFile(const std::string& path, std::string_view text) {
    std::ofstream(path, std::ios::binary) << text;
}

}  // namespace velatest
