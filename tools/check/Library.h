#pragma once

#include <iniparser.h>

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "DataType/ZceChannel.h"
#include "DataType/ZceSubsInfo.h"
#include "check/InstrumentNames.h"

namespace ZceCheck {

constexpr unsigned CHANNELS = Vela2_U50::ZCE_CHANNEL_NUM;

// A line that the INI reader refuses, in its own numbering.
struct RefusedLine {
    unsigned line;
    bool bTooLong;
};

// What the library receives on a channel, of the given instruments.
struct Selection {
    std::vector<std::string> single;    // futures and options
    std::vector<std::string> combined;  // combinations
    std::vector<std::string> lacking;   // ids of the rules that are not among the instruments
};

// What the library itself makes of a configuration file. It is given the file as at a start, with a
// driver that keeps what is written and goes nowhere; whatever it prints meanwhile is kept.
struct Understood {
    bool bLoaded = false;
    std::vector<RefusedLine> refused;
    bool bStarts = false;  // the device is understood
    unsigned channel = 0;  // of this process; both only if bStarts
    unsigned bus = 0;
    std::optional<int> cpu;                           // nothing: no binding
    bool bBound = false;                              // the thread could be bound to it
    unsigned feeds = 0;                               // the feed switch word
    std::map<unsigned long, unsigned int> registers;  // as written, by number
    bool bAllRulesRead = false;
    std::array<Vela2_U50::ZceSubsInfo_t, CHANNELS> rules;
    std::array<Selection, CHANNELS> selected;                  // empty without instruments
    std::map<std::string, std::optional<std::string>> values;  // "section:key"; sections: no value
    std::string log;                                           // with bLog: the library's lines

    // The value of a key of the file; null if it is not there.
    const std::string* Value(const std::string& section, const std::string& key) const;
    bool HasSection(const std::string& section) const { return values.contains(section); }
};

// names: may be null. bLog: the lines of the library's log are kept too. The thread's CPUs are as
// before when it returns; standard output and error are the process's own again.
Understood AskLibrary(const std::string& path, const InstrumentNames* names, bool bLog);

}  // namespace ZceCheck
