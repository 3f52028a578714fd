#pragma once

#include <cstddef>
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

}  // namespace ZceRecord
