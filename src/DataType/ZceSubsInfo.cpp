#include "DataType/ZceSubsInfo.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <utility>

#include "DataType/ZceConfigFile.h"
#include "log/elog.h"

namespace Vela2_U50 {

namespace {

constexpr const char* g_szRecv = "recv";
constexpr const char* g_szItemSeparator = ",";

bool IsDigit(char letter) {
    return std::isdigit(static_cast<unsigned char>(letter)) != 0;
}

std::string Lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return text;
}

// One item of a list, and the list's text for display.
void AddItem(const char* item, std::vector<std::string>& list, std::string& joined) {
    if (!joined.empty()) {
        joined += g_szItemSeparator;
    }
    list.emplace_back(item);
    joined += item;
}

// A switch key of a channel: the value as read, and a flag that is only ever set. Deliberate.
void TakeSwitch(const char* value, const char* key, unsigned int channel, std::string& kept,
                std::uint8_t& flag) {
    kept = value;
    const bool recv = kept == g_szRecv;
    if (recv) {
        flag = 1;
    }
    LOG_INFO("[channel:%d] %s=%s", static_cast<int>(channel), key, recv ? g_szRecv : "norecv");
}

}  // namespace

ZceSubsInfoArray_t m_stSubsInfo;

ZceSubsInfo_t* FindSubsInfo(ZceSubsInfoArray_t& rules, unsigned int channel) {
    if (channel >= ZCE_CHANNEL_NUM) {
        LOG_WARN("[channel:%d] There is no such channel, its rules are ignored.",
                 static_cast<int>(channel));
        return nullptr;
    }
    return &rules[channel];
}

std::string RemoveSpace(const std::string& text) {
    std::string result = text;
    std::erase(result, ' ');
    return result;
}

bool findStringIgnoreCase(const std::string& text, const std::string& pattern) {
    return Lowered(text).find(Lowered(pattern)) != std::string::npos;
}

bool FindAllTag(const std::string& text) {
    return findStringIgnoreCase(text, "all");
}

std::string_view::size_type FindOptionLetter(std::string_view id) {
    const auto* const firstDigit = std::find_if(id.begin(), id.end(), IsDigit);
    auto at = id.find_first_of("CP", static_cast<std::size_t>(firstDigit - id.begin()));
    while (at != std::string_view::npos) {
        if (IsDigit(id[at - 1]) && at + 1 < id.size() && IsDigit(id[at + 1])) {
            return at;
        }
        at = id.find_first_of("CP", at + 1);
    }
    return at;
}

std::string_view ClassIn(std::string_view id) {
    const auto* const end = std::find_if(
        id.begin(), id.end(), [](unsigned char letter) { return std::isalpha(letter) == 0; });
    return id.substr(0, static_cast<std::size_t>(end - id.begin()));
}

bool IsOption(const std::string& id) {
    return FindOptionLetter(id) != std::string_view::npos;
}

int OptionExtractSecondClass(const std::string& id, std::string& underlying) {
    const std::string_view::size_type at = FindOptionLetter(id);
    if (at == std::string_view::npos) {
        return -1;
    }
    underlying = id.substr(0, at);
    return 0;
}

std::string ExtractClass(const char* id, unsigned int count) {
    return std::string(ClassIn({id, count}));
}

void CZceConfigFile::ParseRawInsts(std::string raw, unsigned int channel) {
    ZceSubsInfo_t* rules = FindSubsInfo(m_arrSubsInfo, channel);
    if (rules == nullptr) {
        return;
    }
    char* rest = nullptr;
    for (const char* item = strtok_r(raw.data(), g_szItemSeparator, &rest); item != nullptr;
         item = strtok_r(nullptr, g_szItemSeparator, &rest)) {
        if (std::any_of(item, item + std::strlen(item), IsDigit)) {
            AddItem(item, rules->vecSubIds, rules->strSubIds);
        } else {
            AddItem(item, rules->vecSubClasses, rules->strSubClasses);
        }
    }
}

void CZceConfigFile::ParseInsts(const char* insts, unsigned int channel) {
    ZceSubsInfo_t& rules = m_arrSubsInfo[channel];
    const int shown = static_cast<int>(channel);
    const std::string compact = RemoveSpace(insts);
    rules.bSubAll = FindAllTag(compact) ? 1 : 0;
    ParseRawInsts(compact, channel);
    LOG_INFO("[channel:%d] --------Channel %u subscribed information is as below:--------", shown,
             channel);
    for (const std::string& id : rules.vecSubIds) {
        LOG_INFO("[channel:%d] subId:%s", shown, id.c_str());
    }
    if (rules.bSubAll != 0) {
        LOG_INFO("[channel:%d] You subscribe all subId !", shown);
    }
    for (const std::string& cls : rules.vecSubClasses) {
        LOG_INFO("[channel:%d] subClass:%s,", shown, cls.c_str());
    }
}

int CZceConfigFile::ParseSubsInst() {
    for (unsigned int channel = 0; channel < ZCE_CHANNEL_NUM; ++channel) {
        const std::string section = "channel" + std::to_string(channel) + ":";
        ZceSubsInfo_t& rules = m_arrSubsInfo[channel];
        if (const char* insts = GetString(section + "insts"); insts != nullptr) {
            ParseInsts(insts, channel);
            const char* options = GetString(section + "options");
            if (options == nullptr) {
                LOG_ERROR(
                    "[channel:%d] Error! In subscribe labek ,Lack item: options=xxx , please check "
                    "!",
                    static_cast<int>(channel));
                return -1;
            }
            TakeSwitch(options, "options", channel, rules.strOptions, rules.bOptionsRecv);
        }
        if (const char* ips = GetString(section + "ips"); ips != nullptr) {
            TakeSwitch(ips, "ips", channel, rules.strIps, rules.bIpsRecv);
        }
        if (const char* spd = GetString(section + "spd"); spd != nullptr) {
            TakeSwitch(spd, "spd", channel, rules.strSpd, rules.bSpdRecv);
            LOG_INFO("--------------------------------------------------------");
        }
    }
    return 0;
}

}  // namespace Vela2_U50
