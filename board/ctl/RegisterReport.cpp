#include "ctl/RegisterReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

#include "ctl/CtlError.h"
#include "ctl/TextTable.h"
#include "memory/RegisterFile.h"

namespace ZceBoard {

namespace {

using Json = nlohmann::ordered_json;

struct Named {
    uint32_t index;
    std::string name;
};

void AddNet(std::vector<Named>& all, uint32_t first, const std::string& feed) {
    uint32_t index = first;
    all.push_back({index++, feed + " net version switch"});
    for (const char* end : {" destination", " source"}) {
        for (const char* part : {" MAC, upper 2 bytes", " MAC, lower 4 bytes", " IP", " port"}) {
            all.push_back({index++, feed + end + part});
        }
    }
}

void AddCounters(std::vector<Named>& all, uint32_t first, const char* group) {
    constexpr uint32_t FIRST_TYPE = 17;
    for (uint32_t k = 0; k < COUNTERS_PER_GROUP; ++k) {
        all.push_back({first + k, fmt::format("parse counter {}, type {}", group, FIRST_TYPE + k)});
    }
}

void AddWindow(std::vector<Named>& all, uint32_t first, const std::string& table) {
    all.push_back({first + WINDOW_WRITE_ADDRESS, table + " table, write address"});
    all.push_back({first + WINDOW_WRITE_DATA, table + " table, write data"});
    all.push_back({first + WINDOW_READ_ADDRESS, table + " table, read address"});
    all.push_back({first + WINDOW_READ_DATA, table + " table, read data"});
}

// In ascending order of their indices.
std::vector<Named> MakeNames() {
    std::vector<Named> all{
        {REG_RESET, "reset"},
        {REG_SWITCH, "feed switch"},
        {REG_MAP_TRANSMIT, "map transmit"},
        {REG_LINK_STATUS, "link status"},
        {REG_TIME_A, "time of day, first copy"},
        {REG_TIME_B, "time of day, second copy"},
        {REG_DATE, "trading date"},
    };
    AddNet(all, REG_NET_L5, "L5");
    AddNet(all, REG_NET_L1, "L1");
    AddCounters(all, REG_COUNTER_A, "A");
    AddCounters(all, REG_COUNTER_B, "B");
    AddWindow(all, REG_SINGLE_TABLE, "single-leg");
    AddWindow(all, REG_COMBINE_TABLE, "combination");
    return all;
}

const std::vector<Named>& Names() {
    static const std::vector<Named> NAMES = MakeNames();
    return NAMES;
}

// A register's index, decimal or hexadecimal behind 0x.
std::optional<uint32_t> IndexOf(std::string_view text) {
    int base = 10;
    if (text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X") {
        text.remove_prefix(2);
        base = 16;
    }
    uint32_t index = 0;
    const auto [end, err] = std::from_chars(text.data(), text.data() + text.size(), index, base);
    const bool bWhole = err == std::errc{} && end == text.data() + text.size();
    return bWhole && index < REGISTER_COUNT ? std::optional(index) : std::nullopt;
}

void AddRange(const std::string& word, std::vector<uint32_t>& indices) {
    const size_t dash = word.find('-');
    const auto first = IndexOf(word.substr(0, dash));
    const auto last = dash == std::string::npos ? first : IndexOf(word.substr(dash + 1));
    if (!first || !last) {
        throw CCtlError(fmt::format(
            "registers: \"{}\": a register is 0x0 to {:#x}, or the same in decimal; a range is "
            "FIRST-LAST",
            word, REGISTER_COUNT - 1));
    }
    if (*last < *first) {
        throw CCtlError(fmt::format("registers: \"{}\": the range ends before it begins", word));
    }
    for (uint32_t index = *first; index <= *last; ++index) {
        indices.push_back(index);
    }
}

uint32_t ValueOf(BoardShm& shm, uint32_t index) {
    const CRegisterFile registers(shm);
    for (uint32_t table = 0; table < TABLE_COUNT; ++table) {
        const uint32_t window = table == TABLE_SINGLE ? REG_SINGLE_TABLE : REG_COMBINE_TABLE;
        if (index == window + WINDOW_READ_DATA) {
            const uint32_t address = registers.Peek(window + WINDOW_READ_ADDRESS);
            return address < TABLE_WORDS
                       ? shm.tables[table][address].load(std::memory_order_relaxed)
                       : 0;
        }
    }
    return registers.Peek(index);
}

}  // namespace

std::string RegisterName(uint32_t index) {
    const auto& names = Names();
    const auto found =
        std::lower_bound(names.begin(), names.end(), index,
                         [](const Named& named, uint32_t wanted) { return named.index < wanted; });
    return found != names.end() && found->index == index ? found->name : "";
}

std::vector<uint32_t> RegistersOf(const std::vector<std::string>& words) {
    std::vector<uint32_t> indices;
    for (const std::string& word : words) {
        AddRange(word, indices);
    }
    if (words.empty()) {
        for (const Named& named : Names()) {
            indices.push_back(named.index);
        }
    }
    return indices;
}

std::string RegistersText(BoardShm& shm, const std::vector<uint32_t>& indices) {
    CTextTable table({"register", "value", ">decimal", "meaning"});
    for (const uint32_t index : indices) {
        const uint32_t value = ValueOf(shm, index);
        table.Add({fmt::format("{:#x}", index), fmt::format("{:#010x}", value),
                   std::to_string(value), RegisterName(index)});
    }
    return table.Text();
}

Json RegistersJson(BoardShm& shm, const std::vector<uint32_t>& indices) {
    Json list = Json::array();
    for (const uint32_t index : indices) {
        const std::string name = RegisterName(index);
        Json& one = list.emplace_back();
        one["register"] = index;
        one["value"] = ValueOf(shm, index);
        one["meaning"] = name.empty() ? Json() : Json(name);
    }
    return {{"bus", shm.header.bus.load()}, {"registers", list}};
}

}  // namespace ZceBoard
