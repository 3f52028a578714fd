#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace ZceCheck {

// The instruments that rules are tried on: name to the board's index, as the library has them.
struct InstrumentNames {
    std::map<std::string, unsigned short> byName;
    std::string source;        // where they are from, for messages
    bool bIncomplete = false;  // a cache file without its end
};

// The three sources. False: `error` says where and why, "PATH:LINE: reason" for a bad line.
//
// A list: one name a line, '#' begins a comment, blanks around a name and empty lines do not count;
// or lines "index,type,name", as zce-board --list-instruments prints them. "-" is standard input.
bool ReadNameList(const std::string& path, InstrumentNames& names, std::string& error);
// The library's cache file, read by the library, of whatever day it is.
bool ReadBinFile(const std::string& path, InstrumentNames& names, std::string& error);
// The tables of the software board on a bus, read as the library reads them. The board notices
// nothing of it: not a register is written.
bool ReadBoardTables(std::uint32_t bus, InstrumentNames& names, std::string& error);

}  // namespace ZceCheck
