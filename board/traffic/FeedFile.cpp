#include "traffic/FeedFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>

#include "device/FeedAddress.h"

namespace ZceBoard {

namespace {

constexpr const char* SECTION = "config";

std::string KeyOf(const Feed& feed, const FeedItem& item) {
    return fmt::format("{}_{}", feed.name, item.name);
}

// A key that begins like a feed's and is none, which would be a feed's left-out key otherwise. The
// other keys are a host's: its own file may be given too.
std::string ForeignKey(const CIniFile& ini, const std::string& section) {
    for (const std::string& entry : ini.Keys(section)) {
        std::string key = entry;
        std::transform(key.begin(), key.end(), key.begin(),
                       [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
        for (const Feed& feed : FEEDS) {
            const bool known = std::any_of(
                FEED_ITEMS.begin(), FEED_ITEMS.end(),
                [&key, &feed](const FeedItem& item) { return key == KeyOf(feed, item); });
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
    for (const FeedItem& item : FEED_ITEMS) {
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
    if (found != 0 && found != FEED_ITEMS.size()) {
        error = fmt::format("{} {} is missing: a feed has all of its six addresses or none",
                            ini.Where(section), missing);
        return false;
    }
    expected = found != 0 ? std::optional(words) : std::nullopt;
    return true;
}

}  // namespace

bool ReadFeedFile(const std::string& path, CFeeds& feeds, std::string& error) {
    CIniFile ini;
    if (!ini.Load(path, error)) {
        return false;
    }
    if (!ini.HasSection(SECTION)) {
        error = fmt::format("{}: there is no section [{}]", ini.Path(), SECTION);
        return false;
    }
    return ReadFeedSection(ini, SECTION, feeds, error);
}

bool ReadFeedSection(const CIniFile& ini, const std::string& section, CFeeds& feeds,
                     std::string& error) {
    if (const std::string key = ForeignKey(ini, section); !key.empty()) {
        error = fmt::format("{}: there is no such address of a feed", ini.Where(section, key));
        return false;
    }
    CFeeds::Expected expected;
    for (size_t k = 0; k < CFeeds::COUNT; ++k) {
        if (!ReadFeed(ini, section, FEEDS[k], expected[k], error)) {
            return false;
        }
    }
    if (std::none_of(expected.begin(), expected.end(), [](const auto& feed) { return feed; })) {
        error = fmt::format("{} names no feed", ini.Where(section));
        return false;
    }
    feeds = CFeeds(expected);
    return true;
}

}  // namespace ZceBoard
