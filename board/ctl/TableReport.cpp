#include "ctl/TableReport.h"

#include <fmt/format.h>

#include <array>
#include <nlohmann/json.hpp>
#include <vector>

#include "ctl/Snapshot.h"
#include "ctl/TextTable.h"
#include "memory/RegisterFile.h"

namespace ZceBoard {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::array<const char*, TABLE_COUNT> TABLES = {"single", "combination"};

struct Entry {
    uint32_t table;
    uint32_t index;
    std::string name;
    uint32_t mask;
};

struct Content {
    std::vector<Entry> shown;
    std::array<size_t, TABLE_COUNT> learnt{};
    std::array<size_t, TABLE_COUNT> subscribed{};
};

bool IsShown(const Entry& entry, const TableChoice& choice) {
    if (choice.channel) {
        return (entry.mask >> *choice.channel & 1) != 0;
    }
    return entry.mask != 0 || (choice.bAll && !entry.name.empty());
}

Content Read(BoardShm& shm, const TableChoice& choice) {
    Content content;
    const CRegisterFile registers(shm);
    for (uint32_t table = 0; table < TABLE_COUNT; ++table) {
        for (uint32_t index = 0; index < TABLE_ENTRIES; ++index) {
            const Entry entry{table, index, Printable(registers.LoadName(table, index)),
                              registers.Mask(table, index)};
            content.learnt[table] += entry.name.empty() ? 0 : 1;
            content.subscribed[table] += entry.mask == 0 ? 0 : 1;
            if (IsShown(entry, choice)) {
                content.shown.push_back(entry);
            }
        }
    }
    return content;
}

std::vector<uint32_t> ChannelsOf(uint32_t mask) {
    std::vector<uint32_t> channels;
    for (uint32_t channel = 0; channel < CHANNELS; ++channel) {
        if ((mask >> channel & 1) != 0) {
            channels.push_back(channel);
        }
    }
    return channels;
}

}  // namespace

std::string TablesText(BoardShm& shm, const TableChoice& choice) {
    const Content content = Read(shm, choice);
    CTextTable table({"table", ">index", "name", "channels", "mask"});
    for (const Entry& entry : content.shown) {
        table.Add({TABLES[entry.table], std::to_string(entry.index), entry.name,
                   fmt::format("{}", fmt::join(ChannelsOf(entry.mask), ",")),
                   fmt::format("{:#06x}", entry.mask)});
    }
    return (content.shown.empty() ? "" : table.Text()) +
           fmt::format(
               "{} shown; single-leg: {} learnt, {} subscribed; combinations: {} learnt, {} "
               "subscribed\n",
               content.shown.size(), content.learnt[TABLE_SINGLE], content.subscribed[TABLE_SINGLE],
               content.learnt[TABLE_COMBINE], content.subscribed[TABLE_COMBINE]);
}

Json TablesJson(BoardShm& shm, const TableChoice& choice) {
    const Content content = Read(shm, choice);
    Json json;
    json["bus"] = shm.header.bus.load();
    json["entries"] = Json::array();
    for (const Entry& entry : content.shown) {
        Json& one = json["entries"].emplace_back();
        one["table"] = TABLES[entry.table];
        one["index"] = entry.index;
        one["name"] = entry.name;
        one["channels"] = ChannelsOf(entry.mask);
        one["mask"] = entry.mask;
    }
    for (size_t table = 0; table < TABLE_COUNT; ++table) {
        json["counts"][TABLES[table]] = {{"learnt", content.learnt[table]},
                                         {"subscribed", content.subscribed[table]}};
    }
    return json;
}

}  // namespace ZceBoard
