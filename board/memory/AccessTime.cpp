#include "memory/AccessTime.h"

#include "memory/HostClock.h"

namespace ZceBoard {

namespace {

// The processor's counter, which goes on evenly on any processor that servers have had for years.
// Not a clock's reading: that is a system call here, a tenth of the time that is to be kept.
uint64_t Ticks() {
#if defined(__x86_64__)
    return __builtin_ia32_rdtsc();
#elif defined(__aarch64__)
    uint64_t ticks = 0;
    asm volatile("mrs %0, cntvct_el0" : "=r"(ticks));
    return ticks;
#else
    return static_cast<uint64_t>(RealNs());
#endif
}

// A reading of the clock, and the counter just before and just after it: the closest of some, since
// others may have the processor in between.
struct Reading {
    int64_t ns = 0;
    uint64_t before = 0;
    uint64_t after = ~uint64_t{0};
};

Reading ReadBoth() {
    constexpr int TRIES = 20;
    Reading closest;
    for (int k = 0; k < TRIES; ++k) {
        Reading one;
        one.before = Ticks();
        one.ns = RealNs();
        one.after = Ticks();
        if (one.after - one.before < closest.after - closest.before) {
            closest = one;
        }
    }
    return closest;
}

struct Counter {
    double ticksPerNs;  // never less than they are
    uint64_t perReading;
};

// Takes a millisecond.
Counter MeasureCounter() {
    const Reading begin = ReadBoth();
    Reading end;
    do {
        end = ReadBoth();
    } while (end.ns - begin.ns < NS_PER_MS);
    Counter counter{};
    counter.ticksPerNs =
        static_cast<double>(end.after - begin.before) / static_cast<double>(end.ns - begin.ns);
    counter.perReading = ~uint64_t{0};
    for (int k = 0; k < 100; ++k) {
        const uint64_t one = Ticks();
        counter.perReading = std::min(counter.perReading, Ticks() - one);
    }
    return counter;
}

}  // namespace

CAccessBegin::CAccessBegin() : m_begin(Ticks()) {}

// Half of the first reading and half of the last one are outside of the ticks between them, and are
// part of the access all the same.
void CAccessBegin::KeepBusy(uint32_t ns) const {
    static const Counter counter = MeasureCounter();
    const auto wanted = static_cast<uint64_t>(ns * counter.ticksPerNs) + 1;
    while (Ticks() - m_begin + counter.perReading < wanted) {}
}

}  // namespace ZceBoard
