#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace ZceRecord {

// What the environment asks for.
struct Settings {
    std::string name;  // the capture's name as it is given, with its patterns (FileNames.h)
    std::string path;  // the same, absolute
    size_t bufferBytes = 0;
    bool registers = false;
    bool overwrite = false;       // files that are there are replaced
    uint64_t maxBytes = 0;        // of a file; 0: no limit
    unsigned int maxMinutes = 0;  // of a file, from midnight on; 0: no limit
    uint64_t freeBytes = 0;       // left free on the disk; 0: it may be filled
    bool freeByDefault = false;   // then less of a small disk
    int zstdLevel = 0;            // 0: not compressed
    bool counts = false;          // messages are stamped with the processor's counter (TickClock.h)
    std::string fault;            // why nothing can be recorded; empty: it can
};

Settings ReadSettings();

bool EndsWithZst(const std::string& name);

// One line "zce-record: ..." on standard error.
void Say(const std::string& text);

// What is told of a recording whose file takes nothing more; empty if nothing is missing in it.
std::string MissingLine(const std::string& name, uint64_t all, uint64_t written,
                        const std::string& what);

}  // namespace ZceRecord
