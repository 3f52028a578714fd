#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace ZceRecord {

// What the patterns of a file's name stand for.
struct NameParts {
    int64_t timeNs = 0;     // when the file is begun; shown as local time
    std::string bus;        // %b
    std::string channel;    // %c
    uint64_t number = 1;    // %n: of the file in its recording
    std::string processId;  // %p
};

// What is wrong with the patterns of a name, empty if nothing is: "%q is no pattern".
std::string PatternFault(const std::string& pattern);

// Whether the name has the pattern of this letter.
bool HasPattern(const std::string& pattern, char letter);

// The name: %Y %m %d %H %M %S date and time, %b bus, %c channel, %n number of four digits or more,
// %p process id, %% a percent sign.
std::string Expand(const std::string& pattern, const NameParts& parts);

// The k-th name: "day.pcap" itself, "day-2.pcap", "day-3.pcap", ...; "day.pcap.zst" and
// "day.pcap.registers" become "day-2.pcap.zst" and "day-2.pcap.registers".
std::string Numbered(const std::string& name, size_t k);

// Makes the folders above the file that are not there. False: `error` names the folder.
bool MakeFoldersOf(const std::string& path, std::string& error);

// The end of the stretch of so many minutes that the time is in: stretches are counted from
// midnight, local time, and end there.
int64_t EndOfStretch(int64_t timeNs, unsigned int minutes);

}  // namespace ZceRecord
