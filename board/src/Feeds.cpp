#include "Feeds.h"

#include <fmt/format.h>

#include <algorithm>

#include "FeedAddress.h"

namespace ZceBoard {

namespace {

struct Feed {
    const char* name;
    uint32_t bit;
    uint32_t switchRegister;  // its addresses are in the registers behind it
};

constexpr std::array<Feed, CFeeds::COUNT> FEEDS = {{
    {"L5", SWITCH_L5, REG_NET_L5},
    {"L1", SWITCH_L1, REG_NET_L1},
}};

struct Item {
    const char* name;
    size_t word;  // its first one among a feed's
    AddressKind kind;
};

constexpr Item ITEMS[] = {
    {"DSTMAC", 0, AddressKind::Mac},   {"DSTIP", 2, AddressKind::Ip},
    {"DSTPORT", 3, AddressKind::Port}, {"SRCMAC", 4, AddressKind::Mac},
    {"SRCIP", 6, AddressKind::Ip},     {"SRCPORT", 7, AddressKind::Port},
};

constexpr const char* SECTION = "config";

// Of the values of FeedState.
constexpr const char* STATE_NAMES[] = {"any", "ok", "closed", "wrong"};

std::string KeyOf(const Feed& feed, const Item& item) {
    return fmt::format("{}_{}", feed.name, item.name);
}

CFeeds::Words Programmed(const CRegisterFile& registers, const Feed& feed) {
    CFeeds::Words words{};
    for (uint32_t k = 0; k < CFeeds::WORDS; ++k) {
        words[k] = registers.Peek(feed.switchRegister + 1 + k);
    }
    return words;
}

bool IsSwitchOpen(const CRegisterFile& registers, const Feed& feed) {
    return registers.Peek(feed.switchRegister) == NET_SWITCH_OPEN;
}

AddressWords ItemOf(const CFeeds::Words& words, const Item& item) {
    AddressWords address{};
    std::copy_n(words.begin() + static_cast<std::ptrdiff_t>(item.word), WordsOf(item.kind),
                address.begin());
    return address;
}

// The first item that is not as expected, programmed against expected; empty if there is none.
std::string FirstDifference(const CFeeds::Words& programmed, const CFeeds::Words& expected) {
    for (const Item& item : ITEMS) {
        const AddressWords is = ItemOf(programmed, item);
        const AddressWords wanted = ItemOf(expected, item);
        if (is != wanted) {
            return fmt::format("{} {}, expected {}", item.name, FormatAddress(item.kind, is),
                               FormatAddress(item.kind, wanted));
        }
    }
    return {};
}

FeedState StateOf(const CRegisterFile& registers, const Feed& feed,
                  const std::optional<CFeeds::Words>& expected) {
    if (!expected) {
        return FeedState::Any;
    }
    if (!IsSwitchOpen(registers, feed)) {
        return FeedState::Closed;
    }
    return Programmed(registers, feed) == *expected ? FeedState::Ok : FeedState::Wrong;
}

std::string TextOf(const CRegisterFile& registers, const Feed& feed,
                   const std::optional<CFeeds::Words>& expected) {
    const FeedState state = StateOf(registers, feed, expected);
    std::string text = STATE_NAMES[static_cast<size_t>(state)];
    if (state == FeedState::Any || state == FeedState::Ok) {
        return text;
    }
    const CFeeds::Words programmed = Programmed(registers, feed);
    const std::string difference = FirstDifference(programmed, *expected);
    // A feed that the host left alone has nothing to be compared.
    const bool untouched = state == FeedState::Closed && programmed == CFeeds::Words{};
    return untouched || difference.empty() ? text : text + ":" + difference;
}

// A key that begins like a feed's and is none, which would be a feed's left-out key otherwise. The
// other keys are a host's: its own file may be given too.
std::string ForeignKey(const CIniFile& ini, const std::string& section) {
    for (const std::string& entry : ini.Keys(section)) {
        std::string key = entry;
        std::transform(key.begin(), key.end(), key.begin(),
                       [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
        for (const Feed& feed : FEEDS) {
            const bool known =
                std::any_of(std::begin(ITEMS), std::end(ITEMS),
                            [&key, &feed](const Item& item) { return key == KeyOf(feed, item); });
            if (!known && key.rfind(std::string(feed.name) + "_", 0) == 0) {
                return entry;
            }
        }
    }
    return {};
}

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return text;
}

// A feed's addresses, none if no key of it is there. False: `error` says what is wrong.
bool ReadFeed(const CIniFile& ini, const std::string& section, const Feed& feed,
              std::optional<CFeeds::Words>& expected, std::string& error) {
    CFeeds::Words words{};
    std::string missing;
    size_t found = 0;
    for (const Item& item : ITEMS) {
        const std::string key = KeyOf(feed, item);
        const char* value = ini.Get(section, key);
        if (value == nullptr) {
            missing = missing.empty() ? key : missing;
            continue;
        }
        AddressWords address{};
        if (!ParseAddress(item.kind, value, address)) {
            error = fmt::format("{} = {}: {}", ini.Where(section, Lower(key)), value,
                                FormOf(item.kind));
            return false;
        }
        std::copy_n(address.begin(), WordsOf(item.kind),
                    words.begin() + static_cast<std::ptrdiff_t>(item.word));
        ++found;
    }
    if (found != 0 && found != std::size(ITEMS)) {
        error = fmt::format("{} {} is missing: a feed has all of its six addresses or none",
                            ini.Where(section), missing);
        return false;
    }
    expected = found != 0 ? std::optional(words) : std::nullopt;
    return true;
}

}  // namespace

bool CFeeds::ReadFile(const std::string& path, std::string& error) {
    CIniFile ini;
    if (!ini.Load(path, error)) {
        return false;
    }
    if (!ini.HasSection(SECTION)) {
        error = fmt::format("{}: there is no section [{}]", path, SECTION);
        return false;
    }
    return Read(ini, SECTION, error);
}

bool CFeeds::Read(const CIniFile& ini, const std::string& section, std::string& error) {
    if (const std::string key = ForeignKey(ini, section); !key.empty()) {
        error = fmt::format("{}: there is no such address of a feed", ini.Where(section, key));
        return false;
    }
    std::array<std::optional<Words>, COUNT> expected;
    for (size_t k = 0; k < COUNT; ++k) {
        if (!ReadFeed(ini, section, FEEDS[k], expected[k], error)) {
            return false;
        }
    }
    if (std::none_of(expected.begin(), expected.end(), [](const auto& feed) { return feed; })) {
        error = fmt::format("{} names no feed", ini.Where(section));
        return false;
    }
    m_expected = expected;
    return true;
}

uint32_t CFeeds::Received(const CRegisterFile& registers) const {
    uint32_t received = 0;
    for (size_t k = 0; k < COUNT; ++k) {
        const Feed& feed = FEEDS[k];
        const FeedState state = StateOf(registers, feed, m_expected[k]);
        received |= state == FeedState::Any || state == FeedState::Ok ? feed.bit : 0;
    }
    return received;
}

std::array<FeedState, CFeeds::COUNT> CFeeds::States(const CRegisterFile& registers) const {
    std::array<FeedState, COUNT> states{};
    for (size_t k = 0; k < COUNT; ++k) {
        states[k] = StateOf(registers, FEEDS[k], m_expected[k]);
    }
    return states;
}

std::string CFeeds::Status(const CRegisterFile& registers) const {
    std::string status;
    if (!m_expected[0] && !m_expected[1]) {
        return status;
    }
    for (size_t k = 0; k < COUNT; ++k) {
        status += fmt::format(" {}={}", FEEDS[k].name, TextOf(registers, FEEDS[k], m_expected[k]));
    }
    return status;
}

}  // namespace ZceBoard
