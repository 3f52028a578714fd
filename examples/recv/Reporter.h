#pragma once

// What zce-recv tells of its messages: the rate once a second, and the last line.

#include <condition_variable>
#include <mutex>
#include <thread>

#include "Receiver.h"

// Prints the rate once a second while messages come, and ends the program after `--seconds`, or
// when what is printed is lost, the way Ctrl-C does.
class CReporter {
  public:
    CReporter(const CReceiver& receiver, long lSeconds)
        : m_receiver(receiver), m_lSeconds(lSeconds), m_thread(&CReporter::Run, this) {}
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

    const CReceiver& m_receiver;
    const long m_lSeconds;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_bEnd = false;
    std::thread m_thread;
};

// "zce-recv channel=C total=...", what the whole run has received.
void PrintLastLine(long lChannel, const CReceiver& receiver);
