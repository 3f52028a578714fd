#include <cstddef>
#include <cstdio>
#include <cstring>

#include "VelaZceUtils.h"

namespace {

constexpr std::size_t g_uiMacLength = 17;
constexpr std::size_t g_uiMacGroup = 3;  // two digits and the separator behind them
constexpr std::size_t g_uiIpMinLength = 7;
constexpr std::size_t g_uiIpMaxLength = 15;
constexpr unsigned int g_uiIpMaxNumber = 255;
constexpr unsigned int g_uiIpNumbers = 4;
constexpr std::size_t g_uiParsedCharacters = 20;
constexpr unsigned int g_uiParsedNumbers = 5;
constexpr unsigned char g_ucRejectedByte = 34;

// Not <cctype>: the answers must not depend on the process's locale.
bool IsDigit(char character) {
    return character >= '0' && character <= '9';
}

bool IsHexDigit(char character) {
    return IsDigit(character) || (character >= 'a' && character <= 'f') ||
           (character >= 'A' && character <= 'F');
}

const char* OrEmpty(const char* str) {
    return str == nullptr ? "" : str;
}

bool Reject(const char* reason) {
    std::puts(reason);
    return false;
}

// Whether the numbers of a text of digits and dots are at most four and none exceeds 255. An empty
// number is no number.
bool HasFittingNumbers(const char* str) {
    unsigned int numbers = 0;
    unsigned int value = 0;
    for (const char* at = str; *at != '\0'; ++at) {
        if (*at == '.') {
            continue;
        }
        const bool isFirstDigit = at == str || at[-1] == '.';
        numbers += isFirstDigit ? 1 : 0;
        value = (isFirstDigit ? 0 : value * 10) + static_cast<unsigned int>(*at - '0');
        if (numbers > g_uiIpNumbers || value > g_uiIpMaxNumber) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool IsValidMac(const char* str) {
    const char* text = OrEmpty(str);
    if (std::strlen(text) != g_uiMacLength) {
        return Reject(
            "Error: The MAC address should contain 17 characters, including 6 hex digits and 5 "
            "\":\" ");
    }
    for (std::size_t position = 0; position < g_uiMacLength; ++position) {
        if (position % g_uiMacGroup == g_uiMacGroup - 1) {
            if (text[position] != ':') {
                return Reject(
                    "Error: The MAC address should contain 5 \":\", separated by hex digits.");
            }
        } else if (!IsHexDigit(text[position])) {
            return Reject(
                "Error: The MAC address should contain 6 hex digits, separated by \":\".");
        }
    }
    return true;
}

bool IsValidIp(const char* str) {
    const char* text = OrEmpty(str);
    const std::size_t length = std::strlen(text);
    if (length < g_uiIpMinLength || length > g_uiIpMaxLength) {
        return Reject("Error: The IP address should contain 4 numbers separated by dots.");
    }
    if (std::strspn(text, "0123456789.") != length) {
        return Reject("Error: The IP address should contain only digits and dots.");
    }
    if (!HasFittingNumbers(text)) {
        return Reject(
            "Error: The IP address should contain 4 numbers between 0 and 255, separated by dots.");
    }
    return true;
}

int ipStr2val(const char* ip, unsigned char* out) {
    if (out == nullptr) {
        return -1;
    }
    char text[g_uiParsedCharacters + 1] = "";
    std::strncpy(text, OrEmpty(ip), g_uiParsedCharacters);
    const char* at = text;
    for (unsigned int number = 0; number < g_uiParsedNumbers && IsDigit(*at); ++number) {
        unsigned int value = 0;
        for (; IsDigit(*at); ++at) {
            value = value * 10 + static_cast<unsigned int>(*at - '0');
        }
        out[number] = static_cast<unsigned char>(value);
        if (out[number] == g_ucRejectedByte) {  // deliberate
            return -1;
        }
        if (*at == '\0') {
            return 0;
        }
        if (*at != '.') {
            return -1;
        }
        ++at;
    }
    return -1;
}

bool contains_digit(const char* str) {
    return std::strpbrk(OrEmpty(str), "0123456789") != nullptr;
}
