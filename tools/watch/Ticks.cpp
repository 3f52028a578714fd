#include "watch/Ticks.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <limits>

namespace ZceWatch {

namespace {

constexpr int64_t LEAST_MEASURED_NS = 5'000'000;

int64_t KernelNs() {
    timespec now{};
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    return now.tv_sec * NS_PER_SECOND + now.tv_nsec;
}

}  // namespace

TickSource FindTickSource() {
    return ZcePreload::HasSteadyCounter() ? TickSource::Counter : TickSource::Monotonic;
}

CTickRate::CTickRate(TickSource source) : m_source(source), m_begin(Now()) {}

// The reading that took the least time: the process may have been interrupted in another one.
CTickRate::Moment CTickRate::Now() const {
    Moment best{};
    uint64_t least = std::numeric_limits<uint64_t>::max();
    for (int attempt = 0; attempt < 5; ++attempt) {
        const uint64_t before = ReadTicks(m_source);
        const int64_t ns = KernelNs();
        const uint64_t took = ReadTicks(m_source) - before;
        if (took < least) {
            least = took;
            best = {before + took / 2, ns};
        }
    }
    return best;
}

uint64_t CTickRate::PerSecond() const {
    if (m_source == TickSource::Monotonic) {
        return NS_PER_SECOND;
    }
    Moment now = Now();
    while (now.ns - m_begin.ns < LEAST_MEASURED_NS) {
        now = Now();
    }
    const double seconds =
        static_cast<double>(now.ns - m_begin.ns) / static_cast<double>(NS_PER_SECOND);
    const double perSecond = static_cast<double>(now.ticks - m_begin.ticks) / seconds;
    return perSecond >= 1 ? static_cast<uint64_t>(perSecond) : 1;
}

uint64_t TicksToNs(uint64_t ticks, uint64_t perSecond) {
    // The remainder is below some 10^10: its product fits.
    return ticks / perSecond * NS_PER_SECOND + ticks % perSecond * NS_PER_SECOND / perSecond;
}

uint64_t NsToTicks(uint64_t ns, uint64_t perSecond) {
    return ns / NS_PER_SECOND * perSecond + ns % NS_PER_SECOND * perSecond / NS_PER_SECOND;
}

}  // namespace ZceWatch
