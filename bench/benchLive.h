#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "benchBoard.h"
#include "benchClock.h"
#include "benchMessage.h"
#include "benchProcess.h"
#include "device/ChannelSender.h"

// A message's one way, taken from the clock that both processors share: the sender notes when it
// begins to send and the callback when it is called, each in memory that the other looks at only
// when the stretch is over.
namespace velabench {

constexpr std::size_t liveMessagesOfAStretch = 500;
using Stamps = std::array<std::uint64_t, liveMessagesOfAStretch>;

// What the two sides share.
struct Live {
    alignas(ZceBoard::CACHE_LINE) std::atomic<int> wanted{0};  // stretches; negative: the end
    alignas(ZceBoard::CACHE_LINE) std::atomic<int> sent{0};    // stretches
    alignas(ZceBoard::CACHE_LINE) Stamps sentAt{};
    CMeeting start;  // the receiver's first, before it wants a stretch
};

// The callback of a live message.
class CStampSink final : public IVelaZceMdSpi {
  public:
    void OnDmaType17Msg(const unsigned char* body) override { Take(body); }
    void OnDmaType18Msg(const unsigned char* body) override { Take(body); }
    void OnDmaType19Msg(const unsigned char* body) override { Take(body); }
    void OnDmaType20Msg(const unsigned char* body) override { Take(body); }

    void Begin() { m_ulCount = 0; }
    std::size_t Count() const { return m_ulCount; }
    const Stamps& At() const { return m_at; }
    // Messages that did not have the sequence number after the last one's.
    std::uint64_t Wrong() const { return m_ulWrong; }

  private:
    void Take(const unsigned char* body) {
        m_at[m_ulCount++ % liveMessagesOfAStretch] = Ticks();
        std::uint64_t ulSeq = 0;
        std::memcpy(&ulSeq, body, sizeof(ulSeq));
        m_ulWrong += ulSeq != ++m_ulSeq ? 1 : 0;
    }

    Stamps m_at{};
    std::size_t m_ulCount = 0;
    std::uint64_t m_ulSeq = 0;
    std::uint64_t m_ulWrong = 0;
};

// The board's side: sends stretches of single messages with pauses of meanPauseNs on average, each
// when it is wanted, until `live.wanted` is negative.
inline bool SendLive(Live& live, int cpu, const CBenchBoard& board, const Kind& kind,
                     double meanPauseNs) {
    Pin(cpu);
    const Bodies& bodies = BodiesOf(kind);
    ZceBoard::CChannelSender channel(ZceBoard::ViewOf(board.Shm().a2c[libraryChannel]),
                                     libraryChannel);
    // From half to one and a half of the mean, so that no rhythm meets the polls'.
    const auto mean = static_cast<std::uint64_t>(meanPauseNs / NsOfTick());
    std::uint64_t random = 1;
    const auto pause = [&] {
        random = random * 6364136223846793005U + 1442695040888963407U;
        SpinFor(mean / 2 + (random >> 33) % mean);
    };
    live.start.Meet();
    if (!channel.IsOpen()) {
        return false;
    }
    for (int stretch = 1;; ++stretch) {
        CPatience patience;
        int wanted = 0;
        while ((wanted = live.wanted.load()) >= 0 && wanted < stretch) {
            patience.Wait();
            std::this_thread::sleep_for(std::chrono::microseconds(20));  // others want to run too
        }
        if (wanted < 0) {
            return channel.Total().dropped == 0;
        }
        for (std::size_t n = 0; n < liveMessagesOfAStretch; ++n) {
            pause();
            live.sentAt[n] = Ticks();
            channel.SendMarketData(kind.type, bodies[n % bodyCount], kind.bodySize);
        }
        live.sent.store(stretch);
    }
}

// A stretch on the application's side: polls until all its messages have come, and adds their ways
// in ticks to `ways`. `stretch` counts from 1.
template <class Poll>
void ReceiveLive(Live& live, CStampSink& sink, int stretch, std::vector<std::uint64_t>& ways,
                 Poll poll) {
    sink.Begin();
    live.wanted.store(stretch);
    CPatience patience;
    while (sink.Count() < liveMessagesOfAStretch) {
        if (poll() == 0) {
            patience.Wait();
        } else {
            patience.Success();
        }
    }
    while (live.sent.load() < stretch) {
        patience.Wait();
    }
    if (sink.Wrong() != 0) {
        Die("messages are missing or in a wrong order");
    }
    for (std::size_t n = 0; n < liveMessagesOfAStretch; ++n) {
        const std::uint64_t sent = live.sentAt[n];
        ways.push_back(sink.At()[n] > sent ? sink.At()[n] - sent : 0);
    }
}

// Of values that get sorted: the one that this part (0 to 1) of all does not exceed.
inline double Quantile(std::vector<std::uint64_t>& values, double part) {
    const auto at = static_cast<std::size_t>(part * static_cast<double>(values.size() - 1));
    const auto place = values.begin() + static_cast<std::ptrdiff_t>(at);
    std::nth_element(values.begin(), place, values.end());
    return static_cast<double>(*place);
}

}  // namespace velabench
