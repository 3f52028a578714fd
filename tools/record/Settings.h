#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace ZceRecord {

// What the environment asks for.
struct Settings {
    std::string name;  // the capture's name as it is told, %p replaced
    std::string path;  // the same, absolute
    size_t bufferBytes = 0;
    bool registers = false;
    std::string fault;  // why nothing can be recorded; empty: it can
};

Settings ReadSettings();

// One line "zce-record: ..." on standard error.
void Say(const std::string& text);

// What is told of a recording whose file takes nothing more; empty if nothing is missing in it.
std::string MissingLine(const std::string& name, uint64_t all, uint64_t written,
                        const std::string& what);

}  // namespace ZceRecord
