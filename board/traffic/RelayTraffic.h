#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "exchange/Broadcast.h"
#include "exchange/Instruments.h"
#include "relay/Order.h"
#include "relay/Received.h"
#include "traffic/Traffic.h"

namespace ZceBoard {

// The sequence numbers of one channel's bodies, counted anew from each opening of the stream here:
// a number left out is a message that was lost on the way or that the reader was too slow for.
class CRelayNumbers {
  public:
    // The number here of a message that had `number` where it was received first, in a publisher's
    // session; `opening` is the channel's here.
    uint64_t NumberHere(uint64_t number, uint64_t session, uint32_t opening);

  private:
    uint32_t m_opening = 0;
    uint64_t m_session = 0;
    uint64_t m_before = 0;  // numbers there in front of the first one here
    uint64_t m_last = 0;
};

// What another machine's board received, as this board's traffic: each message to the channel that
// it came from, whatever the host has subscribed here. A reader that is too slow loses messages, as
// with any board that lives; what comes from a stream can wait there, and waits for it up to 0.2 s.
// The clock is the host's. The instruments of the list that is published with the messages are in
// the tables, and the broadcast tells them, so that a master starts and learns here as it does
// there.
class CRelayTraffic : public CTraffic {
  public:
    // `messages` outlives this object; `server` is for the board's lines.
    CRelayTraffic(ZceRelay::CReceivedMessages& messages, std::string server, BroadcastPace pace,
                  bool bStream)
        : m_messages(messages), m_server(std::move(server)), m_pace(pace), m_bStream(bStream) {}

    void Follow(const HostTime& now) override;
    void Hold(const HostTime& now) override;
    void Step(int64_t ns) override;
    int AdvanceTo(uint32_t hhmmss) override;
    void Play(CBoard& board) override;
    bool HasBacklog() const override { return m_bMore; }
    bool IsBehind() const override { return m_bMore || m_bHave; }
    BoardTime Time() const override { return m_time; }
    Phase CurrentPhase() const override { return PhaseAt(m_time.hhmmss); }
    TrafficSource Source() const override { return TrafficSource::Relay; }
    std::string Describe() const override { return "relay=" + m_server; }
    std::string Status() const override;
    std::string LastWords() const override;
    size_t Instruments(uint32_t table) const override;

  private:
    void TakeList(std::string_view text);
    void PlayList(CBoard& board);
    void PlayMessages(CBoard& board);
    bool TakeNext();
    void Renumber(uint32_t opening);
    bool Send(CBoard& board);

    ZceRelay::CReceivedMessages& m_messages;
    std::string m_server;
    BroadcastPace m_pace;
    bool m_bStream;
    BoardTime m_time{};
    int64_t m_realNs = 0;
    int64_t m_nextLearnNs = 0;
    std::vector<Instrument> m_instruments;
    std::optional<CBroadcast> m_broadcast;
    std::array<ZceRelay::CStreamOrder, CHANNELS> m_orders;
    std::array<CRelayNumbers, CHANNELS> m_numbers;
    ZceRelay::ReceivedHead m_head;
    std::vector<unsigned char> m_bytes;
    bool m_bHave = false;  // a message of market data that has not been sent
    bool m_bNumbered = false;
    bool m_bMore = false;  // the last Play stopped at its limit
    // By channel: since when its ring has been full, 0: it is not.
    std::array<int64_t, CHANNELS> m_fullSinceNs{};
    uint64_t m_unheard = 0;
};

}  // namespace ZceBoard
