#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "check/Findings.h"
#include "check/IniLines.h"
#include "check/Library.h"

namespace ZceCheck {

// How many instruments a channel gets.
struct Counts {
    std::size_t futures = 0;
    std::size_t options = 0;
    std::size_t combinations = 0;
};

// One end of a feed, as it arrives at the board; nothing where nothing is written.
struct FeedEnd {
    std::optional<std::string> mac;
    std::optional<std::string> ip;
    std::optional<unsigned> port;
};

struct Feed {
    const char* name = "";       // "L1"
    const char* switchKey = "";  // "czce_level1"
    bool bOn = false;
    unsigned items = 0;  // addresses written, of 6
    bool bOpens = false;
    unsigned long switchReg = 0;
    FeedEnd destination;
    FeedEnd source;
};

// What was found out about a file.
struct CheckResult {
    std::string file;
    IniLines lines;
    Understood library;
    CFindings findings;
    std::string listSource;  // empty: no list
    std::array<std::optional<Counts>, CHANNELS> counts;
    std::array<Feed, 2> feeds{};

    // 0 fine, 1 warnings, 2 errors.
    int Status() const;
};

// Checks the file at `path`, whose bytes are `text`. names: may be null. bLog: as AskLibrary.
CheckResult CheckFile(const std::string& path, std::string_view text, const InstrumentNames* names,
                      bool bLog = false);

std::string ChannelSection(unsigned channel);

// The parts of it, in this order; each adds its findings.
void CheckLines(CheckResult& result);                                  // the INI format
void CheckNames(CheckResult& result);                                  // sections and keys
void CheckDevice(CheckResult& result);                                 // device and cpucore
void CheckFeeds(CheckResult& result);                                  // switches and addresses
void CheckRules(CheckResult& result);                                  // what needs no list
void CheckAgainst(const InstrumentNames& names, CheckResult& result);  // what needs one

// Where a key stands, with the value that the library has read.
Place PlaceOf(const CheckResult& result, const std::string& section, const std::string& key);

// "a, b and c".
std::string Listed(const std::vector<std::string>& texts, std::string_view last = " and ");

}  // namespace ZceCheck
