#include "Reporter.h"

#include <chrono>
#include <cstdint>
#include <string>

#include "Board.h"
#include "Ending.h"
#include "Output.h"
#include "ZceBoardState.h"

void CReporter::Run() {
    const std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
    std::unique_lock<std::mutex> lock(m_mutex);
    for (long lSecond = 1;; ++lSecond) {
        if (m_wake.wait_until(lock, begin + std::chrono::seconds(lSecond),
                              [this] { return m_bEnd; })) {
            return;
        }
        PrintRate();
        const int board = BoardState();
        PrintBoard(board);
        if (m_bEndWithBoard && board != ZCE_BOARD_RUNS) {
            EndWith(1);
        } else if (lSecond == m_lSeconds || IsOutputLost()) {
            EndWith(0);
        }
    }
}

// From the first message on: what comes before it, the library's log tells.
void CReporter::PrintRate() {
    const std::uint64_t ulNow = m_receiver.Total();
    if (ulNow != 0 && CanPrint(outputPatienceMs)) {
        Print("zce-recv rate=%llu/s total=%llu gaps=%llu\n",
              static_cast<unsigned long long>(ulNow - m_ulBefore),
              static_cast<unsigned long long>(ulNow),
              static_cast<unsigned long long>(m_receiver.Gaps()));
    }
    m_ulBefore = ulNow;
}

void CReporter::PrintBoard(int state) {
    if (state == m_iBoard || !CanPrint(outputPatienceMs)) {
        return;
    }
    m_iBoard = state;
    if (state == ZCE_BOARD_GONE) {
        Print("zce-recv board=gone: nothing more comes from it\n");
    } else if (state == ZCE_BOARD_NEW) {
        Print("zce-recv board=new: it has ended and another one runs: start zce-recv anew\n");
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
