#include "Reporter.h"

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <string>

#include "Output.h"

void CReporter::Run() {
    const std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
    std::uint64_t ulBefore = 0;
    std::unique_lock<std::mutex> lock(m_mutex);
    for (long lSecond = 1;; ++lSecond) {
        if (m_wake.wait_until(lock, begin + std::chrono::seconds(lSecond),
                              [this] { return m_bEnd; })) {
            return;
        }
        const std::uint64_t ulNow = m_receiver.Total();
        if (ulNow != ulBefore && CanPrint(outputPatienceMs)) {
            Print("zce-recv rate=%llu/s total=%llu gaps=%llu\n",
                  static_cast<unsigned long long>(ulNow - ulBefore),
                  static_cast<unsigned long long>(ulNow),
                  static_cast<unsigned long long>(m_receiver.Gaps()));
        }
        ulBefore = ulNow;
        if (lSecond == m_lSeconds || IsOutputLost()) {
            kill(getpid(), SIGINT);
        }
    }
}

void PrintLastLine(long lChannel, const CReceiver& receiver) {
    if (!CanPrint(outputPatienceMs)) {
        return;
    }
    std::string bad;
    if (receiver.Bad() != 0) {
        bad = " bad=" + std::to_string(receiver.Bad());
    }
    Print(
        "zce-recv channel=%ld total=%llu type17=%llu type18=%llu type19=%llu type20=%llu "
        "gaps=%llu%s\n",
        lChannel, static_cast<unsigned long long>(receiver.Total()),
        static_cast<unsigned long long>(receiver.Count(0)),
        static_cast<unsigned long long>(receiver.Count(1)),
        static_cast<unsigned long long>(receiver.Count(2)),
        static_cast<unsigned long long>(receiver.Count(3)),
        static_cast<unsigned long long>(receiver.Gaps()), bad.c_str());
}
