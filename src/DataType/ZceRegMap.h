#pragma once

#include <array>
#include <cstdint>

// The board's registers: their numbers, as IDrv takes them, what is written to them, and the layout
// of the instrument tables behind them. Times of day are decimal numbers hhmmss, dates yyyymmdd.
namespace Vela2_U50 {

// Control registers.
constexpr unsigned long ZCE_REG_RESET = 0x10;         // 1 asserts the board's reset, 0 releases
constexpr unsigned long ZCE_REG_DECODE = 0x11;        // feed switch word; 0: not decoding
constexpr unsigned long ZCE_REG_MAP_TRANS = 0x12;     // 1: instrument-map packets are sent up
constexpr unsigned long ZCE_REG_LINK_STATUS = 0x103;  // bit n: fibre n connected
constexpr unsigned long ZCE_REG_TIME_A = 0x104;       // time of day, two copies
constexpr unsigned long ZCE_REG_TIME_B = 0x105;
constexpr unsigned long ZCE_REG_TRADE_DATE = 0x106;

constexpr unsigned int ZCE_RESET_ASSERT = 1;
constexpr unsigned int ZCE_RESET_RELEASE = 0;
constexpr unsigned int ZCE_MAP_TRANS_ON = 1;
constexpr unsigned int ZCE_MAP_TRANS_OFF = 0;
constexpr unsigned int ZCE_LINK_FIBRE_0 = 0x1;
constexpr unsigned int ZCE_LINK_ALL = 0xF;

// Bits of the feed switch word.
constexpr unsigned int ZCE_SWITCH_L5 = 0x1;
constexpr unsigned int ZCE_SWITCH_L1 = 0x2;

// Parse statistics: two groups of four counters, which move while the board parses market data.
constexpr std::array<unsigned long, 8> ZCE_REG_PARSE_COUNTERS = {0x200b, 0x200c, 0x200d, 0x200e,
                                                                 0x210b, 0x210c, 0x210d, 0x210e};

// Addresses of a feed's packets: a group of four registers from the MAC's upper two bytes on.
struct ZceNetAddrRegs_t {
    unsigned long macUpper;  // two bytes
    unsigned long macLower;  // four bytes
    unsigned long ip;
    unsigned long port;
};
constexpr ZceNetAddrRegs_t ZCE_REG_L5_DST = {0x301, 0x302, 0x303, 0x304};
constexpr ZceNetAddrRegs_t ZCE_REG_L5_SRC = {0x305, 0x306, 0x307, 0x308};
constexpr ZceNetAddrRegs_t ZCE_REG_L1_DST = {0x311, 0x312, 0x313, 0x314};
constexpr ZceNetAddrRegs_t ZCE_REG_L1_SRC = {0x315, 0x316, 0x317, 0x318};
// Net version switches: 1 lets the feed with the programmed addresses in.
constexpr unsigned long ZCE_REG_L5_NET_SWITCH = 0x300;
constexpr unsigned long ZCE_REG_L1_NET_SWITCH = 0x310;
constexpr unsigned int ZCE_NET_SWITCH_OPEN = 1;

// Registers of an instrument table. Writing `writeAddr` stores the value last written to
// `writeData` into that table word; `readData` gives the word at the address in `readAddr`.
struct ZceTableRegs_t {
    unsigned long writeAddr;
    unsigned long writeData;
    unsigned long readAddr;
    unsigned long readData;
};
constexpr ZceTableRegs_t ZCE_REG_SGL_TABLE = {0x11000, 0x11001, 0x11002, 0x11003};
constexpr ZceTableRegs_t ZCE_REG_CMB_TABLE = {0x12000, 0x12001, 0x12002, 0x12003};

// Table types: any other value than 0 means the combination table.
constexpr std::uint8_t ZCE_TYPE_SGL = 0;
constexpr std::uint8_t ZCE_TYPE_CMB = 1;

// A table word lies at index * ZCE_ENTRY_WORDS + word. Word 0 of an entry is the channel bit mask
// (bit n: channel n receives the instrument), words 1 to 4 are the name as the board learnt it.
constexpr unsigned int ZCE_ENTRY_WORDS = 64;
constexpr unsigned int ZCE_NAME_WORDS = 4;
constexpr unsigned int ZCE_NAME_BYTES = 16;
constexpr unsigned int ZCE_ENTRY_NAME_WORD = 1;

}  // namespace Vela2_U50
