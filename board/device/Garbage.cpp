#include "device/Garbage.h"

#include <algorithm>
#include <cstddef>

#include "ZceBoardMsg.h"
#include "memory/ShmLayout.h"

namespace ZceBoard {

namespace {

// An instrument-map packet: the length of the record area, big-endian, and the area behind it. A
// record begins with its own length; the head of a packet's first record is four bytes longer.
constexpr size_t AREA_LENGTH = 12;
constexpr uint32_t RECORD_HEAD = 5;
constexpr uint32_t FIRST_RECORD_HEAD = 9;
constexpr uint32_t MOST_RECORDS = 12;
constexpr uint32_t LONGEST_NAME = 20;

// What is wrong with a packet.
enum Spoiling : uint32_t {
    NOTHING,
    LENGTH_ZERO,    // of a record
    LENGTH_SHORT,   // below its head's
    LENGTH_BEYOND,  // beyond the packet
    NAME_LONG,      // 64 bytes and more
    AREA_LONG,      // the area's length beyond the packet
    AREA_SHORT,     // or before its end
    CUT,            // the packet ends anywhere
    SPOILINGS
};

void PutBig16(unsigned char* at, uint32_t value) {
    at[0] = static_cast<unsigned char>(value >> 8);
    at[1] = static_cast<unsigned char>(value);
}

}  // namespace

const std::vector<unsigned char>& CGarbage::Next() {
    const uint32_t type = PickType();
    if (type == ZCE_BOARD_TYPE_INST_MAP && m_random.Below(2) == 0) {
        MakeMapPacket();
    } else {
        MakeWild(type);
    }
    return m_message;
}

// Of ten messages, on average: four market data, three map packets, two of the numbers near them,
// one of any number.
uint32_t CGarbage::PickType() {
    const uint32_t point = m_random.Below(10);
    if (point < 4) {
        return ZCE_BOARD_TYPE_L1_SINGLE + m_random.Below(4);
    }
    if (point < 7) {
        return ZCE_BOARD_TYPE_INST_MAP;
    }
    return point < 9 ? m_random.Below(33) : static_cast<uint32_t>(m_random.Next());
}

// Every second message is about as long as the heads that a reader looks for.
uint32_t CGarbage::PickLength() {
    constexpr uint32_t SHORT = 24;
    return 1 + m_random.Below(m_random.Below(2) == 0 ? SHORT : STREAM_MTU);
}

void CGarbage::MakeWild(uint32_t type) {
    m_message.resize(PickLength());
    for (unsigned char& byte : m_message) {
        byte = static_cast<unsigned char>(m_random.Next());
    }
    for (size_t k = 0; k < std::min(sizeof(type), m_message.size()); ++k) {
        m_message[k] = static_cast<unsigned char>(type >> 8 * k);
    }
}

void CGarbage::MakeMapPacket() {
    const uint32_t spoiling = m_random.Below(SPOILINGS);
    const uint32_t records = 1 + m_random.Below(MOST_RECORDS);
    const uint32_t spoilt = m_random.Below(records);
    m_message.assign(AREA_LENGTH + 2, 0);
    m_message[0] = ZCE_BOARD_TYPE_INST_MAP;
    for (uint32_t k = 0; k < records; ++k) {
        AppendRecord(k, k == spoilt ? spoiling : NOTHING);
    }
    uint32_t area = static_cast<uint32_t>(m_message.size() - AREA_LENGTH - 2);
    if (spoiling == AREA_LONG) {
        // By one byte no record begins there.
        area += m_random.Below(2) == 0 ? 1 : 2 + m_random.Below(0xFFFD - area);
    } else if (spoiling == AREA_SHORT) {
        area = m_random.Below(area);
    } else if (spoiling == CUT) {
        m_message.resize(4 + m_random.Below(static_cast<uint32_t>(m_message.size() - 4)));
    }
    if (m_message.size() >= AREA_LENGTH + 2) {
        PutBig16(m_message.data() + AREA_LENGTH, area);
    }
}

void CGarbage::AppendRecord(uint32_t number, uint32_t spoiling) {
    const uint32_t head = number == 0 ? FIRST_RECORD_HEAD : RECORD_HEAD;
    const uint32_t name =
        spoiling == NAME_LONG ? 64 + m_random.Below(64) : m_random.Below(LONGEST_NAME + 1);
    const size_t at = m_message.size();
    m_message.resize(at + head + name);
    for (size_t k = at; k < m_message.size(); ++k) {
        constexpr char CHARACTERS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-&";
        m_message[k] =
            k < at + head
                ? static_cast<unsigned char>(m_random.Next())
                : static_cast<unsigned char>(CHARACTERS[m_random.Below(sizeof(CHARACTERS) - 1)]);
    }
    uint32_t length = head + name;
    if (spoiling == LENGTH_ZERO) {
        length = 0;
    } else if (spoiling == LENGTH_SHORT) {
        length = 1 + m_random.Below(head - 1);
    } else if (spoiling == LENGTH_BEYOND) {
        length = STREAM_MTU + m_random.Below(0xFFFF - STREAM_MTU);
    }
    PutBig16(m_message.data() + at, length);
}

}  // namespace ZceBoard
