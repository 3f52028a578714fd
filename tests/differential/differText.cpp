#include "differText.h"

#include <array>
#include <cstdarg>
#include <cstdio>

// The linker's name of elog_write_line: the lines come here instead of the log service's file.
extern "C" void __wrap__Z15elog_write_linehPKcS0_S0_lS0_z(std::uint8_t level, const char* tag,
                                                          const char* file, const char* function,
                                                          std::int64_t line, const char* format,
                                                          ...)
    __attribute__((format(printf, 6, 7)));

namespace velatest {

namespace {

constexpr char digits[] = "0123456789abcdef";

void PutHex(std::string& text, unsigned char byte) {
    text += digits[byte >> 4U];
    text += digits[byte & 0xFU];
}

}  // namespace

std::string Bytes(const nlohmann::json& text) {
    // In UTF-8 a character beyond ASCII is a lead byte with its top bits and one byte with six
    // more.
    const auto& utf8 = text.get_ref<const std::string&>();
    std::string bytes;
    for (std::size_t at = 0; at < utf8.size(); ++at) {
        const auto lead = static_cast<unsigned char>(utf8[at]);
        if (lead < 0x80U) {
            bytes += utf8[at];
        } else {
            const auto next = static_cast<unsigned char>(utf8.at(++at));
            bytes += static_cast<char>((lead & 3U) << 6U | (next & 0x3FU));
        }
    }
    return bytes;
}

std::vector<std::uint8_t> FromHex(const std::string& text) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t at = 0; at + 1 < text.size(); at += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(at, 2), nullptr, 16)));
    }
    return bytes;
}

std::string ToHex(const std::string& bytes) {
    std::string text;
    for (const char byte : bytes) {
        PutHex(text, static_cast<unsigned char>(byte));
    }
    return text;
}

std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c >= ' ' && c <= '~' && c != '\\') {
            escaped += c;
        } else {
            escaped += "\\x";
            PutHex(escaped, static_cast<unsigned char>(c));
        }
    }
    return escaped;
}

std::vector<std::string>& LoggedLines() {
    static std::vector<std::string> lines;
    return lines;
}

}  // namespace velatest

void __wrap__Z15elog_write_linehPKcS0_S0_lS0_z(std::uint8_t level, const char* /*tag*/,
                                               const char* /*file*/, const char* /*function*/,
                                               std::int64_t /*line*/, const char* format, ...) {
    static std::array<char, 65536> text;
    constexpr char letters[] = "AEWVIDV";
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    velatest::LoggedLines().push_back(std::string{letters[level], ' '} +
                                      velatest::Escaped(text.data()));
}
