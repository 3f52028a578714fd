#include "benchClock.h"

namespace velabench {

double NsOfTick() {
    static const double nsOfTick = [] {
        constexpr std::int64_t calibrationNs = 20'000'000;
        const std::int64_t begin = NowNs();
        const std::uint64_t ticksBegin = Ticks();
        std::int64_t now = begin;
        while (now - begin < calibrationNs) {
            now = NowNs();
        }
        const std::uint64_t ticks = Ticks() - ticksBegin;
        return static_cast<double>(now - begin) / static_cast<double>(ticks);
    }();
    return nsOfTick;
}

}  // namespace velabench
