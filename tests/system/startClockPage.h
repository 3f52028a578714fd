#pragma once

#include <sys/syscall.h>
#include <time.h>  // NOLINT(modernize-deprecated-headers): timespec in C's namespace
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>

namespace velatest {

// What the processes on one AcceleratedClock share. Begins as zeroes.
struct ClockPage {
    struct Setting {
        std::atomic<std::int64_t> wallNs;  // less what had been slept when it was made
        std::atomic<std::int64_t> realNs;  // of the real monotonic clock
        std::atomic<std::int64_t> ratePerMille;
    };

    // The setting that holds is aSetting[uiSetting % 2]; the other one is being written, if any.
    std::atomic<std::uint32_t> uiSetting;
    std::array<Setting, 2> aSetting;
    std::atomic<std::int64_t> sleptNs;
    // How often the board has read the clock: once in each of its rounds.
    std::atomic<std::uint64_t> ulBoardRounds;
};

inline constexpr std::int64_t nsPerSecond = 1'000'000'000;
inline constexpr const char* clockPageVariable = "VELATEST_CLOCK";
inline constexpr const char* clockBoardVariable = "VELATEST_CLOCK_BOARD";

// A change of the time is in the board's registers when the board has begun its next round but one.
inline constexpr unsigned int roundsToFollow = 3;
inline constexpr int boardPatienceMs = 10'000;

// The system calls themselves: the C library's functions are the moved ones.
inline std::int64_t RealMonotonicNs() {
    timespec now{};
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    return now.tv_sec * nsPerSecond + now.tv_nsec;
}

inline void RealNapMs(int ms) {
    const timespec nap{0, ms * 1'000'000L};
    syscall(SYS_clock_nanosleep, CLOCK_MONOTONIC, 0, &nap, nullptr);
}

inline std::int64_t ClockNs(const ClockPage& page) {
    for (;;) {
        const std::uint32_t uiSetting = page.uiSetting.load();
        const ClockPage::Setting& setting = page.aSetting[uiSetting % 2];
        const std::int64_t passed = RealMonotonicNs() - setting.realNs.load();
        const std::int64_t wallNs =
            setting.wallNs.load() + passed / 1000 * setting.ratePerMille.load();
        if (page.uiSetting.load() == uiSetting) {
            return wallNs + page.sleptNs.load();
        }
    }
}

// Until the board has made so many rounds more. A board that was never there is not waited for.
inline bool AwaitRounds(const ClockPage& page, unsigned int rounds) {
    const std::uint64_t ulBefore = page.ulBoardRounds.load();
    for (int ms = 0; ulBefore != 0 && page.ulBoardRounds.load() < ulBefore + rounds; ++ms) {
        if (ms == boardPatienceMs) {
            return false;
        }
        RealNapMs(1);
    }
    return true;
}

}  // namespace velatest
