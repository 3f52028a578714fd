#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace ZceBoard {

enum class AddressKind : uint8_t { Mac, Ip, Port };

// How many network registers an address takes: a MAC address two (its upper 2 bytes, its lower 4),
// the others one.
constexpr size_t WordsOf(AddressKind kind) {
    return kind == AddressKind::Mac ? 2 : 1;
}

// An address as the network registers hold it. The words beyond WordsOf() are 0.
using AddressWords = std::array<uint32_t, 2>;

// Reads "01:00:5e:01:01:05", "239.1.1.5" or "30005", and nothing that a host might read otherwise:
// no blanks, no further characters, no port in another base. False: `words` is untouched.
bool ParseAddress(AddressKind kind, std::string_view text, AddressWords& words);

// The same way round. Bits that no address has are not hidden: a port above 65535 is printed as it
// is, and the first byte of a MAC address with all that is in its register.
std::string FormatAddress(AddressKind kind, const AddressWords& words);

// What an address of a kind looks like, for messages.
const char* FormOf(AddressKind kind);

}  // namespace ZceBoard
