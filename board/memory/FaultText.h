#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "memory/Faults.h"

// Faults as people write them: a name, and words "key=number" in any order, a number decimal or
// 0x and hexadecimal:
//
//     read-fails register=0x11 every=3 limit=10
//     slow-reader channel=3 value=65536
//     crash
//
// Keys are the kind's target ("register", "entry", "channel"; left out: all of them), "value", and
// for the counted kinds "every" (strikes at each n-th occasion; 1) and "limit" (ends after so many
// strikes; 0, for never).
namespace ZceBoard {

// The setting of these words. False, with one line in `error` that names the wrong word and what is
// allowed in its place; `setting` is then untouched.
bool ParseFault(const std::vector<std::string>& words, FaultSetting& setting, std::string& error);
// The same of words with blanks between them.
bool ParseFault(std::string_view text, FaultSetting& setting, std::string& error);

// The words of a setting, as ParseFault takes them; without those that say nothing new.
std::string TextOf(const FaultSetting& setting);

// All names, for messages: "link-down, counters-stuck, ...".
std::string FaultNames();
// What a kind takes: "read-fails [register=0..0x1ffff] [every=1..] [limit=0..]".
std::string FaultForm(Fault kind);
// All kinds, for a usage text: a line "  <form>" and a line of explanation for each.
std::string FaultHelp();

}  // namespace ZceBoard
