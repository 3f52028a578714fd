#include "DataType/ZceNumbers.h"

#include <cstdlib>
#include <ctime>

#include "Utils/clockSeam.h"
#include "log/elog.h"

namespace Vela2_U50 {

namespace {

constexpr int yearBase = 1900;

bool LocalNow(std::tm& local) {
    if (!VORBA2::Clock::LocalTime(VORBA2::Clock::WallSeconds(), local)) {
        LOG_WARN("Unable to determine the local time.");
        return false;
    }
    return true;
}

// Three numbers written one after the other, two digits each from the second on.
unsigned int Decimal(int first, int second, int third) {
    return static_cast<unsigned int>(first * 10000 + second * 100 + third);
}

}  // namespace

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

unsigned int LocalDate() {
    std::tm local{};
    return LocalNow(local) ? Decimal(local.tm_year + yearBase, local.tm_mon + 1, local.tm_mday) : 0;
}

unsigned int LocalTimeOfDay() {
    std::tm local{};
    return LocalNow(local) ? Decimal(local.tm_hour, local.tm_min, local.tm_sec) : 0;
}

}  // namespace Vela2_U50
