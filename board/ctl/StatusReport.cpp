#include "ctl/StatusReport.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "ctl/TextTable.h"

namespace ZceBoard {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::array<const char*, TABLE_COUNT> TABLE_TEXTS = {"single-leg", "combinations"};
constexpr std::array<const char*, TABLE_COUNT> TABLE_KEYS = {"single", "combination"};
constexpr uint32_t SPEED_UNIT = 1000;

const char* OnOff(bool bOn) {
    return bOn ? "on" : "off";
}

std::string MomentText(const BoardSnapshot& snapshot) {
    return fmt::format("{} {}, {}, {}, speed {}", DateText(snapshot.date),
                       TimeText(snapshot.hhmmss, snapshot.millisecond), PhaseText(snapshot.phase),
                       snapshot.bPaused ? "paused" : "running", SpeedText(snapshot.speedMilli));
}

std::string InstrumentsText(const BoardSnapshot& snapshot) {
    std::string text;
    for (size_t table = 0; table < TABLE_COUNT; ++table) {
        const TableSnapshot& counts = snapshot.tables[table];
        text += fmt::format("{}{} {} (learnt {}, subscribed {})", table == 0 ? "" : ", ",
                            TABLE_TEXTS[table], counts.exchange, counts.learnt, counts.subscribed);
    }
    return text;
}

std::string SwitchText(const BoardSnapshot& snapshot) {
    return fmt::format("{:#x} (L1 {}, L5 {}){}", snapshot.switchWord,
                       OnOff((snapshot.switchWord & SWITCH_L1) != 0),
                       OnOff((snapshot.switchWord & SWITCH_L5) != 0),
                       snapshot.bHeldInReset ? ", held in reset" : "");
}

CTextTable ChannelTable(std::vector<std::string> more) {
    std::vector<std::string> titles{">channel", "state",    ">openings", ">type 2", ">type 17",
                                    ">type 18", ">type 19", ">type 20",  ">other",  ">dropped"};
    titles.insert(titles.end(), more.begin(), more.end());
    return CTextTable(titles);
}

std::vector<std::string> ChannelRow(size_t number, const ChannelSnapshot& channel) {
    std::vector<std::string> row{std::to_string(number), channel.bOpen ? "open" : "closed",
                                 std::to_string(channel.openings)};
    for (const uint64_t count : channel.sent) {
        row.push_back(std::to_string(count));
    }
    row.push_back(std::to_string(channel.other));
    row.push_back(std::to_string(channel.dropped));
    return row;
}

// The rows of the channels that were ever open, each ended by what `last` gives.
template <class Last>
std::string ChannelsText(const BoardSnapshot& snapshot, const std::vector<std::string>& titles,
                         Last last) {
    CTextTable table = ChannelTable(titles);
    bool bAny = false;
    for (size_t k = 0; k < CHANNELS; ++k) {
        const ChannelSnapshot& channel = snapshot.channels[k];
        if (channel.WasEverOpen()) {
            std::vector<std::string> row = ChannelRow(k, channel);
            for (const uint64_t value : last(channel)) {
                row.push_back(std::to_string(value));
            }
            table.Add(row);
            bAny = true;
        }
    }
    return bAny ? table.Text() : "no channel was ever open\n";
}

Json ChannelJson(size_t number, const ChannelSnapshot& channel) {
    Json json;
    json["channel"] = number;
    json["open"] = channel.bOpen;
    json["openings"] = channel.openings;
    for (size_t k = 0; k < MESSAGE_TYPES; ++k) {
        json[fmt::format("type{}", MESSAGE_TYPE_NUMBERS[k])] = channel.sent[k];
    }
    json["other"] = channel.other;
    json["total"] = channel.MarketData();
    json["dropped"] = channel.dropped;
    json["subscribed"] = channel.subscribed;
    json["back_pressure"] = channel.backPressure;
    json["fifo_errors"] = channel.fifoErrors;
    return json;
}

Json ChannelsJson(const BoardSnapshot& snapshot) {
    Json list = Json::array();
    for (size_t k = 0; k < CHANNELS; ++k) {
        if (snapshot.channels[k].WasEverOpen()) {
            list.push_back(ChannelJson(k, snapshot.channels[k]));
        }
    }
    return list;
}

Json ParseCountersJson(const BoardSnapshot& snapshot) {
    Json json;
    for (size_t group = 0; group < snapshot.parseCounters.size(); ++group) {
        Json& counters = json[group == 0 ? "a" : "b"];
        for (size_t k = 0; k < COUNTERS_PER_GROUP; ++k) {
            counters[fmt::format("type{}", MESSAGE_TYPE_NUMBERS[k + 1])] =
                snapshot.parseCounters[group][k];
        }
    }
    return json;
}

}  // namespace

std::string StatusText(const BoardSnapshot& snapshot) {
    std::string text;
    const auto line = [&text](const char* what, const std::string& is) {
        text += fmt::format("{:<13} {}\n", what, is);
    };
    line("board", fmt::format("bus {}, process {}", snapshot.bus, snapshot.pid));
    line("clock", MomentText(snapshot));
    line("traffic", SourceText(snapshot.source));
    line("instruments", InstrumentsText(snapshot));
    line("switch", SwitchText(snapshot));
    line("map transmit", OnOff(snapshot.bMapTransmit));
    line("link", fmt::format("{:#x} ({})", snapshot.linkStatus, LinkText(snapshot.linkStatus)));
    line("feeds",
         fmt::format("L5 {}, L1 {}", FeedText(snapshot.feeds[0]), FeedText(snapshot.feeds[1])));
    line("parsed", std::to_string(snapshot.parsed));
    line("requests", std::to_string(snapshot.requests));
    line("resets", fmt::format("board {}, core {}", snapshot.boardResets, snapshot.coreResets));
    line("faults", snapshot.faults.empty() ? "none" : snapshot.faults);
    return text + "\n" +
           ChannelsText(snapshot, {">instruments"}, [](const ChannelSnapshot& channel) {
               return std::array{channel.subscribed};
           });
}

Json StatusJson(const BoardSnapshot& snapshot, const Json& faults) {
    Json json = ClockJson(snapshot);
    json["pid"] = snapshot.pid;
    json["source"] = SourceText(snapshot.source);
    for (size_t table = 0; table < TABLE_COUNT; ++table) {
        const TableSnapshot& counts = snapshot.tables[table];
        json["instruments"][TABLE_KEYS[table]] = {{"exchange", counts.exchange},
                                                  {"learnt", counts.learnt},
                                                  {"subscribed", counts.subscribed}};
    }
    json["switch"] = {{"word", snapshot.switchWord},
                      {"L1", (snapshot.switchWord & SWITCH_L1) != 0},
                      {"L5", (snapshot.switchWord & SWITCH_L5) != 0}};
    json["map_transmit"] = snapshot.bMapTransmit;
    json["held_in_reset"] = snapshot.bHeldInReset;
    json["link"] = snapshot.linkStatus;
    json["feeds"] = {{"L5", FeedText(snapshot.feeds[0])}, {"L1", FeedText(snapshot.feeds[1])}};
    json["parsed"] = snapshot.parsed;
    json["requests"] = snapshot.requests;
    json["resets"] = {{"board", snapshot.boardResets}, {"core", snapshot.coreResets}};
    json["channels"] = ChannelsJson(snapshot);
    json["faults"] = faults;
    return json;
}

std::string CountersText(const BoardSnapshot& snapshot) {
    CTextTable parse({"parse counters", ">type 17", ">type 18", ">type 19", ">type 20"});
    for (size_t group = 0; group < snapshot.parseCounters.size(); ++group) {
        std::vector<std::string> row{group == 0 ? "group A" : "group B"};
        for (const uint32_t count : snapshot.parseCounters[group]) {
            row.push_back(std::to_string(count));
        }
        parse.Add(row);
    }
    return ChannelsText(snapshot, {">back pressure", ">FIFO errors"},
                        [](const ChannelSnapshot& channel) {
                            return std::array{channel.backPressure, channel.fifoErrors};
                        }) +
           "\n" + parse.Text() +
           fmt::format("\nparsed {}, requests {}, table writes ignored {}\n", snapshot.parsed,
                       snapshot.requests, snapshot.ignoredTableWrites);
}

Json CountersJson(const BoardSnapshot& snapshot) {
    Json json;
    json["bus"] = snapshot.bus;
    json["channels"] = ChannelsJson(snapshot);
    json["parse_counters"] = ParseCountersJson(snapshot);
    json["parsed"] = snapshot.parsed;
    json["requests"] = snapshot.requests;
    json["ignored_table_writes"] = snapshot.ignoredTableWrites;
    return json;
}

std::string ClockText(const BoardSnapshot& snapshot) {
    return fmt::format("bus {}: {}\n", snapshot.bus, MomentText(snapshot));
}

Json ClockJson(const BoardSnapshot& snapshot) {
    Json json;
    json["bus"] = snapshot.bus;
    json["date"] = DateText(snapshot.date);
    json["time"] = TimeText(snapshot.hhmmss, snapshot.millisecond);
    json["phase"] = PhaseText(snapshot.phase);
    json["paused"] = snapshot.bPaused;
    json["speed"] = static_cast<double>(snapshot.speedMilli) / SPEED_UNIT;
    return json;
}

}  // namespace ZceBoard
