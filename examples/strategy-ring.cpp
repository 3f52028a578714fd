// strategy-ring: hands the messages to a strategy on a thread of its own, through a ring of fixed
// size. The thread that polls copies a body into the ring and goes on: it never waits. A message
// that finds the ring full is dropped and counted, so that a strategy that is too slow loses the
// newest messages and knows how many, instead of holding up the board.
//
//     strategy-ring CONFIG [WORK]
//
// WORK: microseconds that the strategy takes for each message, for trying what a slow one does.
// The last line is "strategy-ring received=R handled=H dropped=D instruments=I"; R = H + D.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <thread>

#include "IVelaZceMdApi.h"
#include "ZceBoardMsg.h"

namespace {

struct Message {
    std::uint32_t uiType;
    // The body of any type, as long as its type says.
    alignas(8) std::array<unsigned char, sizeof(ZceBoardL5_t)> aucBody;
};

// One thread puts in, one takes out. Each has a counter of its own, on a cache line of its own, and
// a copy of the other's, which it looks up only when the ring seems full or empty.
class CMessageRing {
  public:
    // The polling thread's. False: the ring is full, and the message is not in it.
    bool Put(std::uint32_t uiType, const unsigned char* body) {
        const std::uint64_t ulPut = m_ulPut.load(std::memory_order_relaxed);
        if (ulPut - m_ulSeenTaken == size) {
            m_ulSeenTaken = m_ulTaken.load(std::memory_order_acquire);
            if (ulPut - m_ulSeenTaken == size) {
                return false;
            }
        }
        Message& message = m_aMessages[ulPut % size];
        message.uiType = uiType;
        std::memcpy(message.aucBody.data(), body, ZceBoardBodySize(uiType));
        m_ulPut.store(ulPut + 1, std::memory_order_release);
        return true;
    }

    // The strategy's: the oldest message, which stays until Pop; null if there is none.
    const Message* Front() {
        const std::uint64_t ulTaken = m_ulTaken.load(std::memory_order_relaxed);
        if (ulTaken == m_ulSeenPut) {
            m_ulSeenPut = m_ulPut.load(std::memory_order_acquire);
            if (ulTaken == m_ulSeenPut) {
                return nullptr;
            }
        }
        return &m_aMessages[ulTaken % size];
    }
    void Pop() {
        m_ulTaken.store(m_ulTaken.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }

  private:
    static const std::uint64_t size = 1024;
    static const std::size_t cacheLine = 64;

    alignas(cacheLine) std::atomic<std::uint64_t> m_ulPut{0};
    std::uint64_t m_ulSeenTaken = 0;
    alignas(cacheLine) std::atomic<std::uint64_t> m_ulTaken{0};
    std::uint64_t m_ulSeenPut = 0;
    alignas(cacheLine) std::array<Message, size> m_aMessages;
};

// In static memory: C++11's `new` knows nothing of cache lines.
CMessageRing g_ring;

// The callbacks, on the polling thread.
class CFeed final : public IVelaZceMdSpi {
  public:
    explicit CFeed(CMessageRing& ring) : m_ring(ring) {}

    void OnDmaType17Msg(const unsigned char* body) override { Take(17, body); }
    void OnDmaType18Msg(const unsigned char* body) override { Take(18, body); }
    void OnDmaType19Msg(const unsigned char* body) override { Take(19, body); }
    void OnDmaType20Msg(const unsigned char* body) override { Take(20, body); }

    std::uint64_t Received() const { return m_ulReceived; }
    std::uint64_t Dropped() const { return m_ulDropped; }

  private:
    void Take(std::uint32_t uiType, const unsigned char* body) {
        ++m_ulReceived;
        if (!m_ring.Put(uiType, body)) {
            ++m_ulDropped;
        }
    }

    CMessageRing& m_ring;
    std::uint64_t m_ulReceived = 0;
    std::uint64_t m_ulDropped = 0;
};

// The strategy. Its place is Handle; here it notes which instruments there are.
class CStrategy {
  public:
    CStrategy(CMessageRing& ring, std::chrono::microseconds work)
        : m_ring(ring), m_work(work), m_thread(&CStrategy::Run, this) {}
    ~CStrategy() { End(); }
    CStrategy(const CStrategy&) = delete;
    CStrategy& operator=(const CStrategy&) = delete;

    // Nothing is put into the ring any more: handles what is in it, and ends the thread. The counts
    // may be read then.
    void End() {
        if (m_thread.joinable()) {
            m_bEnd.store(true, std::memory_order_release);
            m_thread.join();
        }
    }
    std::uint64_t Handled() const { return m_ulHandled; }
    std::size_t Instruments() const { return m_instruments.size(); }

  private:
    void Run() {
        for (;;) {
            // Looked at before the ring: what was put in before the end is then seen.
            const bool bEnd = m_bEnd.load(std::memory_order_acquire);
            const Message* message = m_ring.Front();
            if (message != nullptr) {
                Handle(*message);
                ++m_ulHandled;
                m_ring.Pop();
                if (!bEnd) {
                    std::this_thread::sleep_for(m_work);
                }
            } else if (bEnd) {
                return;
            } else {
                std::this_thread::yield();
            }
        }
    }

    void Handle(const Message& message) {
        ZceBoardQuote_t quote;
        ZceBoardReadQuote(message.aucBody.data(), &quote);
        char szName[ZCE_BOARD_NAME_SIZE + 1];
        m_instruments.insert(ZceBoardName(&quote, szName));
    }

    CMessageRing& m_ring;
    const std::chrono::microseconds m_work;
    std::uint64_t m_ulHandled = 0;
    std::set<std::string> m_instruments;
    std::atomic<bool> m_bEnd{false};
    std::thread m_thread;  // the last one: it uses all others
};

// From the first message on the library has SIGINT and SIGTERM, and VelaRecv returns -1 then.
volatile std::sig_atomic_t g_bStop = 0;

void OnSignal(int /*signal*/) {
    g_bStop = 1;
}

}  // namespace

int main(int argc, char** argv) {
    char* end = nullptr;
    const long lWorkUs = argc == 3 ? std::strtol(argv[2], &end, 10) : 0;
    if (argc < 2 || argc > 3 || lWorkUs < 0 ||
        (end != nullptr && (end == argv[2] || *end != '\0'))) {
        std::fputs("usage: strategy-ring CONFIG [WORK]\n", stderr);
        return 2;
    }
    CFeed feed(g_ring);
    IVelaZceMdApi* api = IVelaZceMdApi::CreateVelaZceMdApi();
    // The two signals end a start at once; a start that fails ends the process, too.
    if (api == nullptr || api->VelaStart(feed, argv[1]) != 0) {
        return 1;
    }
    std::signal(SIGINT, OnSignal);
    std::signal(SIGTERM, OnSignal);
    CStrategy strategy(g_ring, std::chrono::microseconds(lWorkUs));
    while (g_bStop == 0 && api->VelaRecv() != -1) {}
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);
    strategy.End();
    std::printf("strategy-ring received=%llu handled=%llu dropped=%llu instruments=%zu\n",
                static_cast<unsigned long long>(feed.Received()),
                static_cast<unsigned long long>(strategy.Handled()),
                static_cast<unsigned long long>(feed.Dropped()), strategy.Instruments());
    if (std::fflush(stdout) != 0) {
        std::perror("strategy-ring: standard output");
        return 1;
    }
    return 0;
}
