#pragma once

#include <cstddef>
#include <cstdint>

// The board's register map, by 32-bit register index (byte offset = 4 x index).
namespace ZceBoard {

constexpr uint32_t REG_RESET = 0x10;         // bit 0: the board is held in reset
constexpr uint32_t REG_SWITCH = 0x11;        // what is decoded: bit 1 L1, bit 0 L5
constexpr uint32_t REG_MAP_TRANSMIT = 0x12;  // 1: the instrument broadcast goes up channel 0
constexpr uint32_t REG_LINK_STATUS = 0x103;
constexpr uint32_t REG_TIME_A = 0x104;  // time of day hhmmss, two copies
constexpr uint32_t REG_TIME_B = 0x105;
constexpr uint32_t REG_DATE = 0x106;  // yyyymmdd, the host's to write

constexpr uint32_t REG_NET_FIRST = 0x300;  // network functions
constexpr uint32_t REG_NET_LAST = 0x31F;

// A feed's network function: its net version switch, and behind it, for destination and then
// source: MAC address (upper 2 bytes, lower 4 bytes), IP address, port.
constexpr uint32_t REG_NET_L5 = 0x300;
constexpr uint32_t REG_NET_L1 = 0x310;
constexpr uint32_t NET_SWITCH_OPEN = 1;

// Parse counters: two groups, one counter for each message type 17 to 20.
constexpr uint32_t REG_COUNTER_A = 0x200b;
constexpr uint32_t REG_COUNTER_B = 0x210b;
constexpr uint32_t COUNTERS_PER_GROUP = 4;

// An instrument table's window: four registers from its base.
constexpr uint32_t REG_SINGLE_TABLE = 0x11000;
constexpr uint32_t REG_COMBINE_TABLE = 0x12000;
constexpr uint32_t WINDOW_WRITE_ADDRESS = 0;  // writing it stores the write data there
constexpr uint32_t WINDOW_WRITE_DATA = 1;
constexpr uint32_t WINDOW_READ_ADDRESS = 2;
constexpr uint32_t WINDOW_READ_DATA = 3;
constexpr uint32_t WINDOW_SIZE = 4;

constexpr uint32_t SWITCH_L1 = 2;
constexpr uint32_t SWITCH_L5 = 1;
constexpr uint32_t LINK_ALL_CONNECTED = 0xF;

constexpr size_t REGISTER_COUNT = 0x20000;
constexpr size_t REGISTER_SPACE_BYTES = REGISTER_COUNT * 4;

// The instrument tables: a word is addressed by index * 64 + word.
constexpr uint32_t TABLE_SINGLE = 0;
constexpr uint32_t TABLE_COMBINE = 1;
constexpr size_t TABLE_COUNT = 2;
constexpr uint32_t TABLE_ENTRIES = 4096;
constexpr uint32_t TABLE_ENTRY_WORDS = 64;
constexpr uint32_t TABLE_WORDS = TABLE_ENTRIES * TABLE_ENTRY_WORDS;
constexpr uint32_t TABLE_USABLE_ENTRIES = 4095;  // hosts read the names of entries 0 to 4094
constexpr uint32_t TABLE_MASK_WORD = 0;
constexpr uint32_t TABLE_NAME_WORDS = 4;  // words 4, 3, 2, 1 hold the name, in this order
constexpr size_t NAME_SIZE = 16;

constexpr uint32_t MAX_BUSES = 10;  // bus indices 0 to 9

constexpr uint32_t ROOT_CORE_ID = 1;
constexpr uint32_t REGISTER_CORE_ID = 474;

}  // namespace ZceBoard
