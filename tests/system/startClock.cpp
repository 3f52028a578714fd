#include "startClock.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <ctime>
#include <stdexcept>

#include "startClockPage.h"

namespace velatest {

namespace {

constexpr unsigned int firstDate = 20261118;

long long WallNs(unsigned int date, unsigned int hhmmss) {
    std::tm utc{};
    utc.tm_year = static_cast<int>(date / 10000) - 1900;
    utc.tm_mon = static_cast<int>(date / 100 % 100) - 1;
    utc.tm_mday = static_cast<int>(date % 100);
    utc.tm_sec = static_cast<int>(DaySeconds(hhmmss));
    return timegm(&utc) * nsPerSecond;
}

std::tm Utc(const ClockPage& page) {
    const std::time_t seconds = ClockNs(page) / nsPerSecond;
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    return utc;
}

}  // namespace

AcceleratedClock::AcceleratedClock(const std::string& path) : m_path(path) {
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    void* address = MAP_FAILED;
    if (fd >= 0 && ftruncate(fd, sizeof(ClockPage)) == 0) {
        address = mmap(nullptr, sizeof(ClockPage), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    }
    if (fd >= 0) {
        close(fd);
    }
    if (address == MAP_FAILED) {
        throw std::runtime_error("no page for the clock: " + path);
    }
    m_pPage = static_cast<ClockPage*>(address);
    Put(WallNs(firstDate, 0), 0);
}

AcceleratedClock::~AcceleratedClock() {
    munmap(m_pPage, sizeof(ClockPage));
}

std::vector<std::string> AcceleratedClock::Environment() const {
    return {"TZ=UTC", std::string(clockPageVariable) + "=" + m_path,
            "LD_PRELOAD=" START_CLOCK_LIBRARY};
}

std::vector<std::string> AcceleratedClock::BoardEnvironment() const {
    std::vector<std::string> environment = Environment();
    environment.push_back(std::string(clockBoardVariable) + "=1");
    return environment;
}

void AcceleratedClock::Set(unsigned int date, unsigned int hhmmss) {
    Put(WallNs(date, hhmmss), 0);
    AwaitRounds(*m_pPage, roundsToFollow);
}

void AcceleratedClock::Run(double rate) {
    Put(ClockNs(*m_pPage), rate);
}

void AcceleratedClock::Put(long long wallNs, double rate) {
    const std::uint32_t uiNext = m_pPage->uiSetting.load() + 1;
    ClockPage::Setting& setting = m_pPage->aSetting[uiNext % 2];
    setting.wallNs = wallNs - m_pPage->sleptNs.load();
    setting.realNs = RealMonotonicNs();
    setting.ratePerMille = std::llround(rate * 1000);
    m_pPage->uiSetting = uiNext;
}

unsigned int AcceleratedClock::TimeOfDay() const {
    const std::tm utc = Utc(*m_pPage);
    return static_cast<unsigned int>(utc.tm_hour * 10000 + utc.tm_min * 100 + utc.tm_sec);
}

unsigned int AcceleratedClock::Date() const {
    const std::tm utc = Utc(*m_pPage);
    return static_cast<unsigned int>((utc.tm_year + 1900) * 10000 + (utc.tm_mon + 1) * 100 +
                                     utc.tm_mday);
}

bool AcceleratedClock::AwaitBoard(unsigned int rounds) const {
    for (int ms = 0; m_pPage->ulBoardRounds.load() == 0; ++ms) {
        if (ms == boardPatienceMs) {
            return false;
        }
        RealNapMs(1);
    }
    return AwaitRounds(*m_pPage, rounds);
}

unsigned int DaySeconds(unsigned int hhmmss) {
    return hhmmss / 10000 * 3600 + hhmmss / 100 % 100 * 60 + hhmmss % 100;
}

unsigned int TimeOfSeconds(unsigned int seconds) {
    constexpr unsigned int day = 86400;
    const unsigned int second = seconds % day;
    return second / 3600 * 10000 + second / 60 % 60 * 100 + second % 60;
}

}  // namespace velatest
