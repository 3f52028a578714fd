#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Utils/calendar.h"

// What stands in an instrument cache file, and whether a start would believe it: read and judged by
// the library's own functions.
namespace ZceBin {

// In the order in which a start comes upon them.
enum class Verdict {
    Believed,
    NotRead,       // outside trading time a start does not read the file, it empties it
    Incomplete,    // no end tag
    NoTime,        // no line with the creation time
    OtherSession,  // of another day, or of a time that is not of the session
};

struct SkippedLine {
    unsigned int number = 0;  // from 1; a piece of a line that is too long counts as one
    std::string text;         // without its line end
};

struct BinLook {
    Verdict verdict = Verdict::Believed;
    bool bComplete = false;
    std::optional<unsigned long> time;  // yyyymmddhhmmss
    std::map<std::string, unsigned short> insts;
    std::vector<SkippedLine> skipped;  // those that are neither an instrument nor time nor end tag
};

// What a start that looks at these bytes at the moment `at` makes of them.
BinLook LookAtBin(const std::string& bytes, const VORBA2::LocalMoment_t& at);

// Why it is not believed, in words; empty if it is.
std::string ReasonOf(const BinLook& look, const VORBA2::LocalMoment_t& at);

// A number yyyymmddhhmmss as "2026-11-20 08:55:11"; as it is if it is none of that length.
std::string CreationTimeText(unsigned long time);

// All of a regular file, or of standard input for "-". Nothing, with the reason, for what cannot be
// read, is no regular file, has more than 16 MiB, or has a zero byte.
std::optional<std::string> ReadBin(const std::string& path, std::string& reason);

// `text` with \xNN for what would do something to a terminal.
std::string Printable(const std::string& text);

}  // namespace ZceBin
