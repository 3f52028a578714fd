#include "device/FeedAddress.h"

#include <fmt/format.h>

#include <charconv>

namespace ZceBoard {

namespace {

constexpr size_t MAC_BYTES = 6;
constexpr size_t MAC_UPPER_BYTES = 2;  // the others are in the second register
constexpr size_t IP_BYTES = 4;
constexpr uint32_t MAX_BYTE = 255;
constexpr uint32_t MAX_PORT = 65535;

// A whole text as a number of at most `most` and at most `digits` digits; no sign, no blank.
bool ParseNumber(std::string_view text, int base, size_t digits, uint32_t most, uint32_t& value) {
    if (text.empty() || text.size() > digits) {
        return false;
    }
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return error == std::errc() && end == text.data() + text.size() && value <= most;
}

// Exactly `Count` numbers of one byte with a separator between them.
template <size_t Count>
bool ParseBytes(std::string_view text, char separator, int base, size_t digits,
                std::array<uint32_t, Count>& bytes) {
    for (size_t k = 0; k < Count; ++k) {
        const size_t end = k + 1 < Count ? text.find(separator) : text.size();
        if (end == std::string_view::npos ||
            !ParseNumber(text.substr(0, end), base, digits, MAX_BYTE, bytes[k])) {
            return false;
        }
        text.remove_prefix(k + 1 < Count ? end + 1 : end);
    }
    return true;
}

bool ParseMac(std::string_view text, AddressWords& words) {
    std::array<uint32_t, MAC_BYTES> bytes{};
    if (!ParseBytes(text, ':', 16, 2, bytes)) {
        return false;
    }
    words = {};
    for (size_t k = 0; k < MAC_BYTES; ++k) {
        uint32_t& word = words[k < MAC_UPPER_BYTES ? 0 : 1];
        word = word << 8 | bytes[k];
    }
    return true;
}

bool ParseIp(std::string_view text, AddressWords& words) {
    std::array<uint32_t, IP_BYTES> bytes{};
    if (!ParseBytes(text, '.', 10, 3, bytes)) {
        return false;
    }
    words = {bytes[0] << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3], 0};
    return true;
}

// A leading 0 makes the number an octal one for a host.
bool ParsePort(std::string_view text, AddressWords& words) {
    uint32_t port = 0;
    if (!ParseNumber(text, 10, 5, MAX_PORT, port) || text.front() == '0') {
        return false;
    }
    words = {port, 0};
    return true;
}

uint32_t ByteOf(uint32_t word, unsigned shift) {
    return word >> shift & MAX_BYTE;
}

}  // namespace

bool ParseAddress(AddressKind kind, std::string_view text, AddressWords& words) {
    switch (kind) {
        case AddressKind::Mac:
            return ParseMac(text, words);
        case AddressKind::Ip:
            return ParseIp(text, words);
        case AddressKind::Port:
            return ParsePort(text, words);
    }
    return false;
}

std::string FormatAddress(AddressKind kind, const AddressWords& words) {
    const auto [first, second] = words;
    switch (kind) {
        case AddressKind::Mac:
            return fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", first >> 8,
                               ByteOf(first, 0), ByteOf(second, 24), ByteOf(second, 16),
                               ByteOf(second, 8), ByteOf(second, 0));
        case AddressKind::Ip:
            return fmt::format("{}.{}.{}.{}", ByteOf(first, 24), ByteOf(first, 16),
                               ByteOf(first, 8), ByteOf(first, 0));
        case AddressKind::Port:
            return fmt::format("{}", first);
    }
    return {};
}

const char* FormOf(AddressKind kind) {
    constexpr const char* FORMS[] = {
        "a MAC address is six hexadecimal bytes, like 01:00:5e:01:01:05",
        "an IP address is four numbers from 0 to 255, like 239.1.1.5",
        "a port is a decimal number from 1 to 65535, without leading 0",
    };
    return FORMS[static_cast<size_t>(kind)];
}

}  // namespace ZceBoard
