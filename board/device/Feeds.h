#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "device/FeedAddress.h"
#include "memory/Control.h"
#include "memory/RegisterFile.h"

namespace ZceBoard {

// A feed: its name, its bit in the switch word, and its net version switch, behind which its
// addresses are.
struct Feed {
    const char* name;
    uint32_t bit;
    uint32_t switchRegister;
};

// One of a feed's six addresses: its name and its first word among the feed's.
struct FeedItem {
    const char* name;
    size_t word;
    AddressKind kind;
};

// L5, then L1.
inline constexpr std::array<Feed, 2> FEEDS = {{
    {"L5", SWITCH_L5, REG_NET_L5},
    {"L1", SWITCH_L1, REG_NET_L1},
}};

inline constexpr std::array<FeedItem, 6> FEED_ITEMS = {{
    {"DSTMAC", 0, AddressKind::Mac},
    {"DSTIP", 2, AddressKind::Ip},
    {"DSTPORT", 3, AddressKind::Port},
    {"SRCMAC", 4, AddressKind::Mac},
    {"SRCIP", 6, AddressKind::Ip},
    {"SRCPORT", 7, AddressKind::Port},
}};

// Where the exchange's two feeds really come from and go to, and so which of them the board
// receives with what the host has programmed.
//
// A feed whose addresses are known here is received while its net version switch is 1 and all its
// network registers hold these addresses. A feed whose addresses are not known is received whatever
// the registers hold, as both are by default. The instrument broadcast is on neither feed.
class CFeeds {
  public:
    static constexpr size_t COUNT = FEEDS.size();
    // The words of a feed's network registers, in their order.
    static constexpr size_t WORDS = 8;
    using Words = std::array<uint32_t, WORDS>;
    // The addresses of L5, then L1; none for a feed whose addresses are not known.
    using Expected = std::array<std::optional<Words>, COUNT>;

    CFeeds() = default;
    explicit CFeeds(const Expected& expected) : m_expected(expected) {}

    // The received feeds, SWITCH_L5 and SWITCH_L1. Reads up to 18 registers: once a batch of ticks.
    uint32_t Received(const CRegisterFile& registers) const;

    // L5, then L1.
    std::array<FeedState, COUNT> States(const CRegisterFile& registers) const;
    // Both feeds for the status line, each with a blank in front; empty if neither's addresses are
    // known here:
    //   L5=any     its addresses are not known here
    //   L5=ok      received
    //   L5=closed  its switch is not open; if addresses were programmed that are not complete or
    //              not right, followed by the first such one, as below
    //   L5=wrong:DSTIP 239.1.1.6, expected 239.1.1.5
    std::string Status(const CRegisterFile& registers) const;

  private:
    Expected m_expected;
};

}  // namespace ZceBoard
