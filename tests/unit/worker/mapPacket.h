#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velatest {

using Bytes_t = std::vector<std::uint8_t>;

// An instrument-map packet, put together by hand: type, 8 bytes of the board's, the length of the
// record area, records.
class MapPacket {
  public:
    MapPacket& Add(std::string_view name, unsigned int index) {
        const unsigned int head = m_records == 0 ? 9 : 5;
        return AddOfLength(static_cast<unsigned int>(head + name.size()), name, index);
    }
    // A record that announces this length, whatever stands in it.
    MapPacket& AddOfLength(unsigned int length, std::string_view name, unsigned int index) {
        Put16(length);
        if (m_records == 0) {
            m_area.insert(m_area.end(), {0xAA, 0xBB, 0xCC, 0xDD});
        }
        m_area.push_back(0x77);
        Put16(index);
        m_area.insert(m_area.end(), name.begin(), name.end());
        ++m_records;
        return *this;
    }
    MapPacket& AddRaw(const Bytes_t& bytes) {
        m_area.insert(m_area.end(), bytes.begin(), bytes.end());
        return *this;
    }
    std::size_t AreaSize() const { return m_area.size(); }
    Bytes_t Packet() const { return PacketOfLength(static_cast<unsigned int>(m_area.size())); }
    // With this length of the record area announced.
    Bytes_t PacketOfLength(unsigned int areaLen) const {
        Bytes_t packet = {2, 0, 0, 0, 0xFF, 0xFE, 0xFD, 0xFC, 0xFB, 0xFA, 0xF9, 0xF8};
        packet.push_back(static_cast<std::uint8_t>(areaLen >> 8));
        packet.push_back(static_cast<std::uint8_t>(areaLen));
        packet.insert(packet.end(), m_area.begin(), m_area.end());
        return packet;
    }

  private:
    void Put16(unsigned int value) {
        m_area.push_back(static_cast<std::uint8_t>(value >> 8));
        m_area.push_back(static_cast<std::uint8_t>(value));
    }

    Bytes_t m_area;
    int m_records = 0;
};

}  // namespace velatest
