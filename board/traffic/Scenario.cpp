#include "traffic/Scenario.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <string_view>

#include "exchange/BoardClock.h"
#include "memory/FaultText.h"
#include "memory/Values.h"
#include "traffic/FeedFile.h"
#include "traffic/IniFile.h"

namespace ZceBoard {

namespace {

constexpr uint32_t MAX_BUS = MAX_BUSES - 1;
constexpr uint64_t MAX_RATE = 10'000'000;
constexpr double MIN_SPEED = 0.001;
constexpr double MAX_SPEED = 1000;
constexpr double MIN_CYCLE = 0.01;
constexpr double MAX_CYCLE = 3600;
constexpr double MAX_BURST_EVERY = 86400;
constexpr std::string_view FAULT_SECTION = "fault";

// Why a value is refused; empty: it is not.
using Refusal = std::string;

// Reads one file: each Take... leaves its target alone if the key is not there, and remembers the
// first error.
class CScenarioReader {
  public:
    CScenarioReader(const CIniFile& ini, const ClockStart& clock, Scenario& scenario,
                    std::string& error)
        : m_ini(ini), m_clock(clock), m_scenario(scenario), m_error(error) {}

    bool Read() {
        return CheckNames() && ReadBoard() && ReadInstruments() && ReadClock() && ReadDay() &&
               ReadBroadcast() && ReadLevel("level1", m_scenario.levels[0]) &&
               ReadLevel("level2", m_scenario.levels[1]) && ReadFeeds() && ReadFaults();
    }

  private:
    bool CheckNames();
    bool CheckFeedKeys();
    bool ReadBoard();
    bool ReadInstruments();
    bool ReadClock();
    bool ReadDay();
    bool ReadBroadcast();
    bool ReadLevel(const std::string& section, LevelPlan& level);
    bool ReadFeeds();
    bool ReadFaults();
    bool ReadFault(const std::string& section);
    bool AddFault(const std::string& section, const FaultPlan& plan);
    Refusal AddWindows(std::string_view list, Phase phase);
    bool ReadSkips();
    Refusal MomentOf(std::string_view text, int64_t& ns) const;

    bool Fail(const std::string& section, const std::string& key, std::string_view value,
              const std::string& why) {
        m_error = fmt::format("{} = {}: {}", m_ini.Where(section, key), value, why);
        return false;
    }
    bool Missing(const std::string& section, const std::string& key) {
        m_error = fmt::format(
            "{}: {} is missing",
            m_ini.HasSection(section) ? m_ini.Where(section) : m_ini.Path() + ": [" + section + "]",
            key);
        return false;
    }
    // Gives the key's value, if it is there, to `take`.
    template <class Take>
    bool With(const std::string& section, const std::string& key, Take take) {
        const char* value = m_ini.Get(section, key);
        if (value == nullptr) {
            return true;
        }
        const Refusal why = take(std::string_view(value));
        return why.empty() || Fail(section, key, value, why);
    }
    // The same for a list. Items behind a ';' are a comment for the parser, and would be missing.
    template <class Take, class IsItem>
    bool WithList(const std::string& section, const std::string& key, Take take, IsItem isItem) {
        const std::string comment = m_ini.Comment(section, key);
        std::string rest = comment.substr(std::min(comment.size(), size_t{1}));
        std::replace(rest.begin(), rest.end(), ';', ',');
        const auto items = SplitList(rest);
        if (comment.empty() || !std::all_of(items.begin(), items.end(), isItem)) {
            return With(section, key, take);
        }
        const char* value = m_ini.Get(section, key);
        return Fail(section, key, fmt::format("{}{}", value != nullptr ? value : "", comment),
                    fmt::format("{} begins a comment: commas go between the items", comment[0]));
    }
    bool TakeNumber(const std::string& section, const std::string& key, uint64_t most,
                    uint64_t& number) {
        return With(section, key, [&](std::string_view text) -> Refusal {
            return ParseNumber(text, most, number)
                       ? ""
                       : fmt::format("a whole number from 0 to {} is needed", most);
        });
    }
    bool TakeDecimal(const std::string& section, const std::string& key, double least, double most,
                     double& number) {
        return With(section, key, [&](std::string_view text) -> Refusal {
            return ParseDecimal(text, least, most, number)
                       ? ""
                       : fmt::format("a number from {} to {} is needed", least, most);
        });
    }
    bool TakeTime(const std::string& section, const std::string& key,
                  std::optional<uint32_t>& hhmmss) {
        return With(section, key, [&](std::string_view text) -> Refusal {
            hhmmss = ParseTimeOfDay(text);
            return hhmmss ? "" : "a time of day hh:mm:ss is needed";
        });
    }
    std::string Beside(std::string_view name) const {
        const std::filesystem::path path(name);
        return path.is_absolute()
                   ? path.string()
                   : (std::filesystem::path(m_ini.Path()).parent_path() / path).string();
    }

    const CIniFile& m_ini;
    const ClockStart& m_clock;
    Scenario& m_scenario;
    std::string& m_error;
};

// The keys of each section; [feeds] has those of ReadFeedSection, and each [fault...] the last
// row's.
const std::map<std::string, std::vector<std::string_view>, std::less<>>& KnownKeys() {
    static const std::map<std::string, std::vector<std::string_view>, std::less<>> known = {
        {"board", {"bus"}},
        {"exchange", {"products", "instruments", "seed"}},
        {"clock", {"date", "start", "end", "speed", "skip", "file"}},
        {"day", {"auction", "trading", "break"}},
        {"broadcast", {"auction_cycle", "trading_cycle"}},
        {"level1", {"rate", "burst", "burst_every", "phases"}},
        {"level2", {"rate", "burst", "burst_every", "phases"}},
        {std::string(FAULT_SECTION), {"fault", "at", "until"}},
    };
    return known;
}

// "09:00:00-10:15:00", at a glance.
bool IsSpan(std::string_view item) {
    const size_t dash = item.find('-');
    return dash != std::string_view::npos && ParseTimeOfDay(item.substr(0, dash)) &&
           ParseTimeOfDay(item.substr(dash + 1), true);
}

bool IsFaultSection(std::string_view section) {
    return section.substr(0, FAULT_SECTION.size()) == FAULT_SECTION;
}

bool CScenarioReader::CheckNames() {
    for (const std::string& section : m_ini.Sections()) {
        if (section.empty()) {
            m_error = m_ini.StrayLine() + ": a key stands in front of any section";
            return false;
        }
        if (section == "feeds") {
            if (!CheckFeedKeys()) {
                return false;
            }
            continue;
        }
        const auto known =
            KnownKeys().find(IsFaultSection(section) ? FAULT_SECTION : std::string_view(section));
        if (known == KnownKeys().end() || section.find(':') != std::string::npos) {
            m_error = fmt::format("{}: there is no such section", m_ini.Where(section));
            return false;
        }
        for (const std::string& key : m_ini.Keys(section)) {
            const auto& keys = known->second;
            if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
                m_error = fmt::format("{}: there is no such key; there are {}",
                                      m_ini.Where(section, key), fmt::join(keys, ", "));
                return false;
            }
        }
    }
    return true;
}

bool CScenarioReader::CheckFeedKeys() {
    for (const std::string& key : m_ini.Keys("feeds")) {
        if (key.rfind("l5_", 0) != 0 && key.rfind("l1_", 0) != 0) {
            m_error =
                fmt::format("{}: there is no such address of a feed", m_ini.Where("feeds", key));
            return false;
        }
    }
    return true;
}

bool CScenarioReader::ReadBoard() {
    const auto isBus = [](std::string_view item) {
        uint64_t bus = 0;
        return ParseNumber(item, MAX_BUS, bus);
    };
    const auto take = [this](std::string_view text) -> Refusal {
        m_scenario.buses.clear();
        for (const std::string_view item : SplitList(text)) {
            uint64_t bus = 0;
            if (!ParseNumber(item, MAX_BUS, bus)) {
                return fmt::format("a list of bus indices from 0 to {} is needed", MAX_BUS);
            }
            const auto bus32 = static_cast<uint32_t>(bus);
            auto& buses = m_scenario.buses;
            if (std::find(buses.begin(), buses.end(), bus32) != buses.end()) {
                return fmt::format("bus {} is there twice", bus);
            }
            buses.push_back(bus32);
        }
        return "";
    };
    return WithList("board", "bus", take, isBus);
}

bool CScenarioReader::ReadInstruments() {
    const char* products = m_ini.Get("exchange", "products");
    const char* file = m_ini.Get("exchange", "instruments");
    if ((products == nullptr) == (file == nullptr)) {
        m_error =
            fmt::format("{}: [exchange]: one of products and instruments is needed", m_ini.Path());
        return false;
    }
    if (products != nullptr) {
        if (std::string_view(products) != "all") {
            return Fail("exchange", "products", products, "only \"all\" is known");
        }
        m_scenario.instruments.AddAllProducts();
    } else if (std::string why; !m_scenario.instruments.ReadFile(Beside(file), why)) {
        return Fail("exchange", "instruments", file, why);
    }
    return TakeNumber("exchange", "seed", UINT64_MAX, m_scenario.seed);
}

bool CScenarioReader::ReadClock() {
    std::optional<uint32_t> start;
    std::optional<uint32_t> end;
    double speed = 1;
    const bool good = With("clock", "date",
                           [this](std::string_view text) -> Refusal {
                               const auto date = ParseDate(text);
                               m_scenario.date = date.value_or(0);
                               return date ? "" : "a date yyyymmdd is needed";
                           }) &&
                      TakeTime("clock", "start", start) && TakeTime("clock", "end", end) &&
                      TakeDecimal("clock", "speed", MIN_SPEED, MAX_SPEED, speed) &&
                      With("clock", "file", [this](std::string_view text) -> Refusal {
                          m_scenario.clockFile = text;
                          m_scenario.clockFileAt =
                              fmt::format("{} = {}", m_ini.Where("clock", "file"), text);
                          return text.empty() ? "a file's name is needed" : "";
                      });
    if (!good) {
        return false;
    }
    start = m_clock.hhmmss ? m_clock.hhmmss : start;
    if (!start) {
        return Missing("clock", "start");
    }
    m_scenario.start = *start;
    m_scenario.date = m_clock.date.value_or(m_scenario.date);
    m_scenario.speedMilli = m_clock.speedMilli.value_or(std::lround(speed * 1000));
    if (end) {
        const int64_t length = DayNsOf(*end) - DayNsOf(*start);
        m_scenario.lengthNs = length > 0 ? length : length + NS_PER_DAY;
    }
    return ReadSkips();
}

bool CScenarioReader::ReadSkips() {
    const auto take = [this](std::string_view text) -> Refusal {
        for (const std::string_view item : SplitList(text)) {
            const size_t dash = item.find('-');
            if (dash == std::string_view::npos) {
                return fmt::format("\"{}\" is no span of times hh:mm:ss-hh:mm:ss", item);
            }
            Span span{};
            Refusal why = MomentOf(item.substr(0, dash), span.fromNs);
            why = why.empty() ? MomentOf(item.substr(dash + 1), span.toNs) : why;
            if (why.empty() && span.fromNs >= span.toNs) {
                why = fmt::format("{} is empty", item);
            }
            if (!why.empty()) {
                return why;
            }
            m_scenario.skips.push_back(span);
        }
        std::sort(m_scenario.skips.begin(), m_scenario.skips.end(),
                  [](const Span& one, const Span& other) { return one.fromNs < other.fromNs; });
        return "";
    };
    return WithList("clock", "skip", take, IsSpan);
}

Refusal CScenarioReader::AddWindows(std::string_view list, Phase phase) {
    for (const std::string_view item : SplitList(list)) {
        const size_t dash = item.find('-');
        const auto first = ParseTimeOfDay(item.substr(0, dash));
        const auto end = dash == std::string_view::npos
                             ? std::nullopt
                             : ParseTimeOfDay(item.substr(dash + 1), true);
        if (!first || !end) {
            return fmt::format("\"{}\" is no span of times hh:mm:ss-hh:mm:ss", item);
        }
        if (!m_scenario.day.Add(*first, *end, phase)) {
            return fmt::format("{} is empty, runs over midnight or meets another span", item);
        }
    }
    return "";
}

bool CScenarioReader::ReadDay() {
    if (!m_ini.HasSection("day")) {
        return true;
    }
    m_scenario.day.Clear();
    for (const Phase phase : {Phase::Auction, Phase::Trading, Phase::Break}) {
        const auto take = [this, phase](std::string_view text) { return AddWindows(text, phase); };
        if (!WithList("day", PhaseName(phase), take, IsSpan)) {
            return false;
        }
    }
    return true;
}

bool CScenarioReader::ReadBroadcast() {
    double auction = 4;
    double trading = 60;
    if (!TakeDecimal("broadcast", "auction_cycle", MIN_CYCLE, MAX_CYCLE, auction) ||
        !TakeDecimal("broadcast", "trading_cycle", MIN_CYCLE, MAX_CYCLE, trading)) {
        return false;
    }
    m_scenario.pace = {std::llround(auction * static_cast<double>(NS_PER_SECOND)),
                       std::llround(trading * static_cast<double>(NS_PER_SECOND))};
    return true;
}

bool CScenarioReader::ReadLevel(const std::string& section, LevelPlan& level) {
    double every = 0;
    const auto takePhases = [&level](std::string_view text) -> Refusal {
        level.phases = {};
        for (const std::string_view item : SplitList(text)) {
            const auto phase = PhaseOf(item);
            if (!phase) {
                return fmt::format("\"{}\" is none of auction, trading, break, closed", item);
            }
            level.phases[static_cast<size_t>(*phase)] = true;
        }
        return "";
    };
    const bool good = TakeNumber(section, "rate", MAX_RATE, level.rate) &&
                      TakeNumber(section, "burst", MAX_RATE, level.burst) &&
                      TakeDecimal(section, "burst_every", 0.001, MAX_BURST_EVERY, every) &&
                      WithList(section, "phases", takePhases,
                               [](std::string_view item) { return PhaseOf(item).has_value(); });
    if (!good) {
        return false;
    }
    level.burstEveryMs = static_cast<uint64_t>(std::llround(every * 1000));
    if ((level.burst != 0) != (level.burstEveryMs != 0)) {
        return Missing(section, level.burst != 0 ? "burst_every" : "burst");
    }
    return true;
}

bool CScenarioReader::ReadFeeds() {
    return !m_ini.HasSection("feeds") || ReadFeedSection(m_ini, "feeds", m_scenario.feeds, m_error);
}

// "start", or a time of day, which is the first one after the start.
Refusal CScenarioReader::MomentOf(std::string_view text, int64_t& ns) const {
    text = Trimmed(text);
    if (text == "start") {
        ns = 0;
        return "";
    }
    const auto hhmmss = ParseTimeOfDay(text);
    if (!hhmmss) {
        return "\"start\" or a time of day hh:mm:ss is needed";
    }
    ns = DayNsOf(*hhmmss) - DayNsOf(m_scenario.start);
    ns += ns < 0 ? NS_PER_DAY : 0;
    if (m_scenario.lengthNs != 0 && ns >= m_scenario.lengthNs) {
        return "the first such time after the start is not before the end";
    }
    return "";
}

bool CScenarioReader::ReadFault(const std::string& section) {
    const char* words = m_ini.Get(section, "fault");
    if (words == nullptr) {
        return Missing(section, "fault");
    }
    FaultPlan plan{};
    if (std::string why; !ParseFault(std::string_view(words), plan.setting, why)) {
        return Fail(section, "fault", words, why);
    }
    const bool good =
        With(section, "at",
             [this, &plan](std::string_view text) { return MomentOf(text, plan.atNs); }) &&
        With(section, "until", [this, &plan](std::string_view text) -> Refusal {
            int64_t ns = 0;
            const Refusal why = MomentOf(text, ns);
            plan.untilNs = ns;
            return why.empty() && ns <= plan.atNs ? "this is not after the fault's beginning" : why;
        });
    return good && AddFault(section, plan);
}

// Only one fault of a kind can be there at a time.
bool CScenarioReader::AddFault(const std::string& section, const FaultPlan& plan) {
    constexpr int64_t EVER = INT64_MAX;
    for (const FaultPlan& other : m_scenario.faults) {
        if (other.setting.kind == plan.setting.kind && plan.atNs < other.untilNs.value_or(EVER) &&
            other.atNs < plan.untilNs.value_or(EVER)) {
            m_error = fmt::format("{}: another {} of this file is on at the time",
                                  m_ini.Where(section), InfoOf(plan.setting.kind).name);
            return false;
        }
    }
    m_scenario.faults.push_back(plan);
    return true;
}

bool CScenarioReader::ReadFaults() {
    const auto& sections = m_ini.Sections();
    return std::all_of(sections.begin(), sections.end(), [this](const std::string& section) {
        return !IsFaultSection(section) || ReadFault(section);
    });
}

}  // namespace

bool ReadScenario(const std::string& path, Scenario& scenario, std::string& error,
                  const ClockStart& clock) {
    CIniFile ini;
    return ini.Load(path, error) && CScenarioReader(ini, clock, scenario, error).Read();
}

}  // namespace ZceBoard
