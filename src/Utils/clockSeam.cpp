#include "Utils/clockSeam.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace VORBA2::Clock {

namespace {

std::uint64_t ReadNs(clockid_t clock) {
    constexpr std::uint64_t nsPerSecond = 1'000'000'000;
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * nsPerSecond +
           static_cast<std::uint64_t>(now.tv_nsec);
}

// The last conversion. What asks for the local time asks for the same second again and again, and
// the C library looks at the zone's file each time. The zone itself is compared at every call; a
// file that is exchanged under the name that it has counts from the next second on.
class CLastConversion {
  public:
    bool Recall(std::time_t at, const char* zone, std::tm& result) {
        if (m_busy.test_and_set(std::memory_order_acquire)) {
            return false;  // whoever finds another at it converts: nobody waits
        }
        const bool known = m_known && m_at == at && IsZone(zone);
        if (known) {
            result = m_local;
        }
        m_busy.clear(std::memory_order_release);
        return known;
    }

    void Keep(std::time_t at, const char* zone, const std::tm& local) {
        const std::size_t size = zone == nullptr ? 0 : std::strlen(zone) + 1;
        if (size > sizeof(m_zone) || m_busy.test_and_set(std::memory_order_acquire)) {
            return;
        }
        m_at = at;
        m_local = local;
        m_zoned = zone != nullptr;
        if (m_zoned) {
            std::memcpy(m_zone, zone, size);
        }
        m_known = true;
        m_busy.clear(std::memory_order_release);
    }

  private:
    bool IsZone(const char* zone) const {
        return zone == nullptr ? !m_zoned : m_zoned && std::strcmp(zone, m_zone) == 0;
    }

    std::atomic_flag m_busy;
    bool m_known = false;
    bool m_zoned = false;  // TZ was set, to m_zone
    char m_zone[64] = {};
    std::time_t m_at = 0;
    std::tm m_local{};
};

constinit CLastConversion s_lastConversion;

}  // namespace

std::time_t WallSeconds() {
    return std::time(nullptr);
}

bool LocalTime(std::time_t at, std::tm& result) {
    const char* const zone = std::getenv("TZ");
    if (s_lastConversion.Recall(at, zone, result)) {
        return true;
    }
    tzset();  // localtime() does; localtime_r() need not
    std::tm local{};
    if (localtime_r(&at, &local) == nullptr) {
        return false;
    }
    s_lastConversion.Keep(at, zone, local);
    result = local;
    return true;
}

std::uint64_t RealtimeNs() {
    return ReadNs(CLOCK_REALTIME);
}

std::uint64_t MonotonicNs() {
    return ReadNs(CLOCK_MONOTONIC);
}

void SleepSeconds(unsigned int seconds) {
    // Not sleep(): what that returns under an accelerated clock (faketime) is not to be relied on.
    timespec left{static_cast<std::time_t>(seconds), 0};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {}
}

}  // namespace VORBA2::Clock
