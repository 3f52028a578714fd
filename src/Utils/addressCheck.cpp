#include <cstddef>
#include <cstdio>
#include <cstring>

#include "VelaZceUtils.h"

namespace {

constexpr std::size_t MAC_LENGTH = 17;
constexpr std::size_t MAC_GROUP = 3;  // two digits and the separator behind them
constexpr std::size_t IP_MIN_LENGTH = 7;
constexpr std::size_t IP_MAX_LENGTH = 15;
constexpr unsigned int IP_MAX_NUMBER = 255;
constexpr unsigned int IP_NUMBERS = 4;
constexpr std::size_t PARSED_CHARACTERS = 20;
constexpr unsigned int PARSED_NUMBERS = 5;
constexpr unsigned char REJECTED_BYTE = 34;

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
        if (numbers > IP_NUMBERS || value > IP_MAX_NUMBER) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool IsValidMac(const char* str) {
    const char* text = OrEmpty(str);
    if (std::strlen(text) != MAC_LENGTH) {
        return Reject(
            "Error: The MAC address should contain 17 characters, including 6 hex digits and 5 "
            "\":\" ");
    }
    for (std::size_t position = 0; position < MAC_LENGTH; ++position) {
        if (position % MAC_GROUP == MAC_GROUP - 1) {
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
    if (length < IP_MIN_LENGTH || length > IP_MAX_LENGTH) {
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
    char text[PARSED_CHARACTERS + 1] = "";
    std::strncpy(text, OrEmpty(ip), PARSED_CHARACTERS);
    const char* at = text;
    for (unsigned int number = 0; number < PARSED_NUMBERS && IsDigit(*at); ++number) {
        unsigned int value = 0;
        for (; IsDigit(*at); ++at) {
            value = value * 10 + static_cast<unsigned int>(*at - '0');
        }
        out[number] = static_cast<unsigned char>(value);
        if (out[number] == REJECTED_BYTE) {  // deliberate
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
