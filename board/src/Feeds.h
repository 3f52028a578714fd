#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "Control.h"
#include "IniFile.h"
#include "RegisterFile.h"

namespace ZceBoard {

// Where the exchange's two feeds really come from and go to, and so which of them the board
// receives with what the host has programmed.
//
// A feed whose addresses are known here is received while its net version switch is 1 and all its
// network registers hold these addresses. A feed whose addresses are not known is received whatever
// the registers hold, as both are without ReadFile(). The instrument broadcast is on neither feed.
class CFeeds {
  public:
    // Reads the addresses from an INI file with the keys of a host's section [config]. A feed is
    // there with all of its six keys or not at all. False: `error` names the file, the line, the
    // key and the value, and this object is unchanged.
    bool ReadFile(const std::string& path, std::string& error);
    // The same from a section of a file that is read already.
    bool Read(const CIniFile& ini, const std::string& section, std::string& error);

    // The received feeds, SWITCH_L5 and SWITCH_L1. Reads up to 18 registers: once a batch of ticks.
    uint32_t Received(const CRegisterFile& registers) const;

    static constexpr size_t COUNT = 2;
    // L5, then L1.
    std::array<FeedState, COUNT> States(const CRegisterFile& registers) const;
    // Both feeds for the status line, each with a blank in front; empty without ReadFile():
    //   L5=any     its addresses are not known here
    //   L5=ok      received
    //   L5=closed  its switch is not open; if addresses were programmed that are not complete or
    //              not right, followed by the first such one, as below
    //   L5=wrong:DSTIP 239.1.1.6, expected 239.1.1.5
    std::string Status(const CRegisterFile& registers) const;

    // The words of a feed's network registers, in their order.
    static constexpr size_t WORDS = 8;
    using Words = std::array<uint32_t, WORDS>;

  private:
    std::array<std::optional<Words>, COUNT> m_expected;
};

}  // namespace ZceBoard
