#pragma once

// What zce-recv tells of its messages: the rate once a second, and the last line.

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "Receiver.h"
#include "ZceBoardState.h"

// Prints the rate once a second, and tells when the board has gone and when another one has come.
// Ends the program after `lSeconds` (0: never), when what is printed is lost, or, with
// `bEndWithBoard` and with status 1, when the board has gone.
class CReporter {
  public:
    CReporter(const CReceiver& receiver, long lSeconds, bool bEndWithBoard)
        : m_receiver(receiver),
          m_lSeconds(lSeconds),
          m_bEndWithBoard(bEndWithBoard),
          m_thread(&CReporter::Run, this) {}
    ~CReporter() {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_bEnd = true;
        }
        m_wake.notify_one();
        m_thread.join();
    }
    CReporter(const CReporter&) = delete;
    CReporter& operator=(const CReporter&) = delete;

  private:
    void Run();
    void PrintRate();
    void PrintBoard(int state);

    const CReceiver& m_receiver;
    const long m_lSeconds;
    const bool m_bEndWithBoard;
    std::uint64_t m_ulBefore = 0;   // what had come a second ago
    int m_iBoard = ZCE_BOARD_RUNS;  // what has been told of it
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_bEnd = false;
    std::thread m_thread;
};

// "zce-recv channel=C total=...", what the whole run has received.
void PrintLastLine(long lChannel, const CReceiver& receiver);
