#include "DataType/ZceNumbers.h"

#include <cstdlib>

namespace Vela2_U50 {

std::size_t ScanNumbers(const char* text, int base, char separator, long* values,
                        std::size_t count) {
    const char* at = text;
    for (std::size_t number = 0; number < count; ++number) {
        if (number != 0) {
            if (*at != separator) {
                return number;
            }
            ++at;
        }
        char* end = nullptr;
        const long value = std::strtol(at, &end, base);
        if (end == at) {
            return number;
        }
        values[number] = value;
        at = end;
    }
    return count;
}

}  // namespace Vela2_U50
