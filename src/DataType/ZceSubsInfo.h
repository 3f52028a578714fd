#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "DataType/ZceChannel.h"

// What one channel wants to receive, and the predicates on instrument names that the reading of the
// rules and the selection share. All functions are pure and may be called from any thread.
namespace Vela2_U50 {

// Rules of one DMA channel. Filled by CZceConfigFile::ParseSubsInst; a second parsing appends.
struct ZceSubsInfo_t {
    std::vector<std::string> vecSubIds;      // instrument ids, in file order, duplicates kept
    std::vector<std::string> vecSubClasses;  // classes (product letters), in file order
    std::uint8_t bSubAll = 0;                // 1: every single-leg instrument
    std::uint8_t bOptionsRecv = 0;           // 1: options too
    std::uint8_t bIpsRecv = 0;               // 1: inter-product spreads
    std::uint8_t bSpdRecv = 0;               // 1: spreads
    std::uint32_t nReserved = 3;
    std::string strSubIds;      // the ids joined with ","
    std::string strSubClasses;  // the classes joined with ","
    std::string strOptions;     // values as read
    std::string strIps;
    std::string strSpd;
};

// The rules of all channels, indexed by channel number.
using ZceSubsInfoArray_t = ZceSubsInfo_t[ZCE_CHANNEL_NUM];

// Beside the configuration objects' own arrays: built empty at load; nothing fills it.
extern ZceSubsInfoArray_t m_stSubsInfo;

// The rules of one channel, or null after a WARN line if there is no such channel.
ZceSubsInfo_t* FindSubsInfo(ZceSubsInfoArray_t& rules, unsigned int channel);

// `text` without its space characters (code 32 alone: tabs stay).
std::string RemoveSpace(const std::string& text);

// Whether `pattern` occurs anywhere in `text`, without regard to case.
bool findStringIgnoreCase(const std::string& text, const std::string& pattern);

// Whether "all" occurs anywhere in `text`, without regard to case.
bool FindAllTag(const std::string& text);

// Position of the letter that makes an id an option's, or npos.
std::string_view::size_type FindOptionLetter(std::string_view id);

// The leading letters of `id`.
std::string_view ClassIn(std::string_view id);

// Whether `id` names an option: after its first digit a capital C or P between two digits.
bool IsOption(const std::string& id);

// Sets `underlying` to the part of an option's id before the option letter (SR209 of SR209C5000).
// Returns 0, or -1 with `underlying` unchanged if `id` names no option.
int OptionExtractSecondClass(const std::string& id, std::string& underlying);

// The leading letters among the first `count` characters of `id` (SR of SR209).
std::string ExtractClass(const char* id, unsigned int count);

}  // namespace Vela2_U50
