#pragma once

#include <cstddef>

namespace Vela2_U50 {

// Reads `count` numbers with one `separator` character between them, as sscanf reads "%d:%d" (base
// 10) or "%x:%x" (base 16): blanks and a sign may stand before a number, what follows the last one
// is ignored. A number too large for `long` is cut to its limit. Returns how many were read; the
// rest of `values` is unchanged.
std::size_t ScanNumbers(const char* text, int base, char separator, long* values,
                        std::size_t count);

// Number of entries as the log texts print it.
template <typename Container>
unsigned int Count(const Container& entries) {
    return static_cast<unsigned int>(entries.size());
}

}  // namespace Vela2_U50
