#pragma once

#include <cstdint>
#include <string>

#include "exchange/Broadcast.h"
#include "exchange/Exchange.h"
#include "exchange/Instruments.h"
#include "traffic/Pacer.h"
#include "traffic/Traffic.h"

namespace ZceBoard {

struct LiveOptions {
    uint64_t seed = 1;
    uint64_t rate = 20000;  // ticks a second of real time, over all instruments
    BroadcastPace pace{4'000'000'000, 60'000'000'000};
    ClockStart clock;
};

// The exchange by the host's clock, or by one that begins at a given time or passes at a speed of
// its own: its broadcast goes by the time of day, its ticks come at any
// hour, so that one can work with the board at any hour. Only the parse counters keep the
// exchange's hours, since hosts judge the board's life by them.
class CLiveTraffic : public CTraffic {
  public:
    // The list outlives this object.
    CLiveTraffic(const CInstrumentList& list, const LiveOptions& options);

    void Follow(const HostTime& now) override;
    void Hold(const HostTime& now) override;
    void Step(int64_t ns) override;
    int AdvanceTo(uint32_t hhmmss) override;
    void Play(CBoard& board) override;
    bool HasBacklog() const override { return m_pacer.HasBacklog(); }
    bool IsBehind() const override { return HasBacklog() || m_bPacketsLeft; }
    BoardTime Time() const override { return m_time; }
    Phase CurrentPhase() const override { return PhaseAt(m_time.hhmmss); }
    TrafficSource Source() const override { return TrafficSource::Live; }
    int64_t SpeedMilli() const override { return m_options.clock.speedMilli.value_or(1000); }
    std::string Describe() const override;
    size_t Instruments(uint32_t table) const override { return m_list.Count(table); }

  protected:
    void SetTime(const BoardTime& time) { m_time = time; }
    void PassRealTime(int64_t realNs, bool play);

  private:
    void MoveClock(const HostTime& now);
    void Broadcast(CBoard& board, Phase phase);
    void Decode(CBoard& board, Phase phase);

    const CInstrumentList& m_list;
    LiveOptions m_options;
    CBroadcast m_broadcast;
    CExchange m_exchange;
    CPacer m_pacer;
    BoardTime m_time{};
    int64_t m_aheadNs = 0;  // of the host's clock
    int64_t m_playNs = 0;   // real time in which the traffic was not held
    int64_t m_lastRealNs = 0;
    bool m_bStarted = false;
    bool m_bPacketsLeft = false;  // of the broadcast, since the core was locked
};

}  // namespace ZceBoard
