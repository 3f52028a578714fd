#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "relay-tool/InstrumentFile.h"
#include "relay/Publisher.h"

namespace ZceRelay {

// The second thread: publishes what the polling thread takes, tells each second how it goes, and
// looks after the instrument list.
class CPublishRun {
  public:
    struct Options {
        std::string instruments;  // the cache file; empty: no list is published
        int64_t restNs = 0;       // after a round that found nothing; 0: none
        bool bStatus = true;
        std::string name;  // "bus=0 channel=3", in its lines
    };

    // `publisher` is prepared, and this thread's from here on.
    CPublishRun(CPublisher& publisher, CTakenMessages& taken, const Options& options);
    ~CPublishRun() { Finish(); }
    CPublishRun(const CPublishRun&) = delete;
    CPublishRun& operator=(const CPublishRun&) = delete;

    // Nothing is taken any more: publishes what is left, for 5 s at most, and ends the thread.
    void Finish();
    // After Finish: the last line, and whether everything that was taken is confirmed.
    std::string LastLine() const;
    bool IsAllOut() const;

  private:
    void Run();
    void EverySecond(int64_t nowNs);
    uint64_t Unconfirmed() const;

    CPublisher& m_publisher;
    CTakenMessages& m_taken;
    const Options m_options;
    CInstrumentFile m_instruments;
    int64_t m_nextSecondNs = 0;
    std::atomic<bool> m_bEnd{false};
    std::thread m_thread;  // the last one: it uses all others
};

}  // namespace ZceRelay
