#include "device/Feeds.h"

#include <fmt/format.h>

#include <algorithm>

namespace ZceBoard {

namespace {

// Of the values of FeedState.
constexpr const char* STATE_NAMES[] = {"any", "ok", "closed", "wrong"};

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

AddressWords ItemOf(const CFeeds::Words& words, const FeedItem& item) {
    AddressWords address{};
    std::copy_n(words.begin() + static_cast<std::ptrdiff_t>(item.word), WordsOf(item.kind),
                address.begin());
    return address;
}

// The first item that is not as expected, programmed against expected; empty if there is none.
std::string FirstDifference(const CFeeds::Words& programmed, const CFeeds::Words& expected) {
    for (const FeedItem& item : FEED_ITEMS) {
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

}  // namespace

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
