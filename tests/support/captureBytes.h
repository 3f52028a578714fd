#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>

namespace velatest {

// An integer of `bytes` bytes, least significant first.
inline std::string Little(uint64_t value, size_t bytes) {
    std::string text;
    for (size_t k = 0; k < bytes; ++k) {
        text += static_cast<char>(value >> (8 * k) & 0xFF);
    }
    return text;
}

// The same, most significant byte first.
inline std::string Big(uint64_t value, size_t bytes) {
    const std::string text = Little(value, bytes);
    return {text.rbegin(), text.rend()};
}

// The prefix of a captured packet.
inline std::string Prefix(unsigned int kind, unsigned int channel, uint64_t number,
                          unsigned int bus = 0, unsigned int opening = 1,
                          unsigned int version = 1) {
    return Little(version, 1) + Little(kind, 1) + Little(bus, 2) + Little(channel, 2) +
           Little(opening, 2) + Little(number, 8);
}

// A libpcap file byte by byte, so that any file can be made, wrong ones too.
class CaptureBytes {
  public:
    static constexpr uint32_t NANO = 0xa1b23c4d;
    static constexpr uint32_t MICRO = 0xa1b2c3d4;

    explicit CaptureBytes(uint32_t magic = NANO, uint32_t linkType = 147)
        : m_bytes(Little(magic, 4) + Little(2, 2) + Little(4, 2) + Little(0, 8) +
                  Little(262144, 4) + Little(linkType, 4)) {}

    // `missing` bytes of the packet were not captured.
    CaptureBytes& Add(uint64_t seconds, uint64_t fraction, const std::string& packet,
                      size_t missing = 0) {
        m_bytes += Little(seconds, 4) + Little(fraction, 4) + Little(packet.size(), 4) +
                   Little(packet.size() + missing, 4) + packet;
        return *this;
    }

    const std::string& Bytes() const { return m_bytes; }
    const std::string& Write(const std::string& path) const {
        std::ofstream(path, std::ios::binary) << m_bytes;
        return path;
    }

  private:
    std::string m_bytes;
};

}  // namespace velatest
