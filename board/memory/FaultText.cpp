#include "memory/FaultText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <optional>

namespace ZceBoard {

namespace {

constexpr uint32_t MAX_NUMBER = 0xFFFFFFFF;
constexpr std::string_view LINE_BLANKS = " \t\r\n";

// One key that a kind takes, and where its number goes.
struct Key {
    const char* name;
    uint32_t min;
    uint32_t max;
    bool hex;
    uint32_t FaultSetting::*member;
    uint32_t silent;  // the number that need not be said
};

std::vector<Key> KeysOf(const FaultInfo& info) {
    std::vector<Key> keys;
    if (info.target != nullptr) {
        const bool hex = std::string_view(info.target) == "register";
        keys.push_back(
            {info.target, info.targetMin, info.targetMax, hex, &FaultSetting::target, FAULT_ANY});
    }
    if (info.value != nullptr) {
        // Always said: nobody knows it by heart.
        keys.push_back({info.value, info.valueMin, info.valueMax, false, &FaultSetting::value,
                        info.valueMax == MAX_NUMBER ? 0 : MAX_NUMBER});
    }
    if (info.counted) {
        keys.push_back({"every", 1, MAX_NUMBER, false, &FaultSetting::every, 1});
        keys.push_back({"limit", 0, MAX_NUMBER, false, &FaultSetting::limit, 0});
    }
    return keys;
}

std::string NumberText(uint32_t number, bool hex) {
    std::array<char, 16> digits{};
    char* const end =
        std::to_chars(digits.data(), digits.data() + digits.size(), number, hex ? 16 : 10).ptr;
    return (hex ? "0x" : "") + std::string(digits.data(), end);
}

// The whole text is one number of 32 bits.
std::optional<uint32_t> NumberOf(std::string_view text) {
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(hex ? 2 : 0);
    uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, err] = std::from_chars(text.data(), end, number, hex ? 16 : 10);
    return err == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

// "entry=0..4095", "every=1..".
std::string RangeText(const Key& key) {
    const std::string text = key.name + std::string("=") + NumberText(key.min, key.hex) + "..";
    return key.max == MAX_NUMBER ? text : text + NumberText(key.max, key.hex);
}

std::string KeysText(const std::vector<Key>& keys) {
    if (keys.empty()) {
        return "it takes nothing";
    }
    std::string text;
    for (const Key& key : keys) {
        text.append(text.empty() ? "it takes " : ", ").append(RangeText(key));
    }
    return text;
}

// Takes one word "key=number" into the setting; what is wrong with it, empty if nothing is.
std::string TakeWord(const std::vector<Key>& keys, const std::string& word, FaultSetting& setting,
                     std::vector<std::string_view>& given) {
    const std::string_view text = word;
    const std::string_view name = text.substr(0, text.find('='));
    const auto key =
        std::find_if(keys.begin(), keys.end(), [name](const Key& one) { return one.name == name; });
    if (key == keys.end()) {
        return KeysText(keys);
    }
    if (std::find(given.begin(), given.end(), name) != given.end()) {
        return "a second " + std::string(name);
    }
    given.push_back(name);
    const std::optional<uint32_t> number =
        name.size() < text.size() ? NumberOf(text.substr(name.size() + 1)) : std::nullopt;
    if (!number || *number < key->min || *number > key->max) {
        return "allowed is " + RangeText(*key);
    }
    setting.*key->member = *number;
    return "";
}

}  // namespace

bool ParseFault(const std::vector<std::string>& words, FaultSetting& setting, std::string& error) {
    if (words.empty()) {
        error = "no fault is named; there are " + FaultNames();
        return false;
    }
    const std::optional<Fault> kind = FaultOf(words.front());
    if (!kind) {
        error = "no such fault: '" + words.front() + "'; there are " + FaultNames();
        return false;
    }
    const FaultInfo& info = InfoOf(*kind);
    const std::vector<Key> keys = KeysOf(info);
    FaultSetting parsed{*kind, 1, FAULT_ANY, info.valueMin, 0};
    std::vector<std::string_view> given;
    for (size_t k = 1; k < words.size(); ++k) {
        const std::string fault = TakeWord(keys, words[k], parsed, given);
        if (!fault.empty()) {
            error = std::string(info.name) + ": '" + words[k] + "': " + fault;
            return false;
        }
    }
    setting = parsed;
    return true;
}

bool ParseFault(std::string_view text, FaultSetting& setting, std::string& error) {
    std::vector<std::string> words;
    for (size_t at = text.find_first_not_of(LINE_BLANKS); at != std::string_view::npos;
         at = text.find_first_not_of(LINE_BLANKS, at)) {
        const size_t end = std::min(text.find_first_of(LINE_BLANKS, at), text.size());
        words.emplace_back(text.substr(at, end - at));
        at = end;
    }
    return ParseFault(words, setting, error);
}

std::string TextOf(const FaultSetting& setting) {
    const FaultInfo& info = InfoOf(setting.kind);
    std::string text = info.name;
    for (const Key& key : KeysOf(info)) {
        const uint32_t number = setting.*key.member;
        if (number != key.silent) {
            text.append(" ").append(key.name).append("=").append(NumberText(number, key.hex));
        }
    }
    return text;
}

std::string FaultNames() {
    std::string names;
    for (size_t k = 0; k < FAULT_KINDS; ++k) {
        names.append(names.empty() ? "" : ", ").append(InfoOf(static_cast<Fault>(k)).name);
    }
    return names;
}

std::string FaultForm(Fault kind) {
    const FaultInfo& info = InfoOf(kind);
    std::string form = info.name;
    for (const Key& key : KeysOf(info)) {
        form.append(" [").append(RangeText(key)).append("]");
    }
    return form;
}

std::string FaultHelp() {
    std::string help;
    for (size_t k = 0; k < FAULT_KINDS; ++k) {
        const auto kind = static_cast<Fault>(k);
        help.append("  ").append(FaultForm(kind)).append("\n      ");
        help.append(InfoOf(kind).text).append("\n");
    }
    return help;
}

std::string CFaults::Text() const {
    std::string text;
    for (size_t k = 0; k < FAULT_KINDS; ++k) {
        const auto kind = static_cast<Fault>(k);
        if (!IsOn(kind)) {
            continue;
        }
        text.append(text.empty() ? "" : ", ").append(TextOf(Setting(kind)));
        if (InfoOf(kind).counted) {
            text.append(" strikes=").append(std::to_string(Words(kind).strikes.load()));
        }
    }
    return text;
}

}  // namespace ZceBoard
