#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "exchange/Exchange.h"
#include "traffic/Scenario.h"
#include "traffic/Traffic.h"

namespace ZceBoard {

// What a scenario plays, in slices of one millisecond of board time. What happens in a slice
// depends on its number and on the scenario alone: the same scenario gives the same messages with
// the same time stamps in the same order, whatever the machine's speed. If the machine is too slow
// the board's clock falls behind; nothing is left out.
class CScenarioTraffic : public CTraffic {
  public:
    // The scenario outlives this object. `today` is the date for one that names none.
    CScenarioTraffic(const Scenario& scenario, uint32_t today);

    void Follow(const HostTime& now) override;
    void Hold(const HostTime& now) override;
    void Step(int64_t ns) override;
    int AdvanceTo(uint32_t hhmmss) override;
    void Play(CBoard& board) override;
    bool HasBacklog() const override {
        return m_bInSlice || (!IsOver() && NextSliceNs() <= m_targetNs);
    }
    bool IsOver() const override {
        return !m_bInSlice && m_scenario.lengthNs != 0 && NextSliceNs() >= m_scenario.lengthNs;
    }
    BoardTime Time() const override { return TimeAt(m_playedNs); }
    Phase CurrentPhase() const override { return m_scenario.day.At(Time().hhmmss); }
    TrafficSource Source() const override { return TrafficSource::Scenario; }
    int64_t SpeedMilli() const override { return m_scenario.speedMilli; }
    std::string Describe() const override;
    std::string Status() const override;
    size_t Instruments(uint32_t table) const override {
        return m_scenario.instruments.Count(table);
    }

  private:
    // A fault that begins or ends.
    struct Event {
        int64_t ns;
        bool bBegins;
        const FaultPlan* pPlan;
    };
    // A slice that is under way: what is still to be done in it.
    struct Slice {
        size_t packets;
        std::array<uint64_t, 2> ticks;  // level 1, level 2
        uint64_t done;                  // ticks of both
    };

    int64_t NextSliceNs() const { return m_playedNs + NS_PER_MS; }
    static std::vector<Event> EventsOf(const Scenario& scenario);
    BoardTime TimeAt(int64_t sinceStartNs) const;
    void BeginSlice(CBoard& board);
    bool FinishSlice(CBoard& board);
    void Skip();
    void SwitchFaults(CBoard& board);
    uint64_t TicksOf(const LevelPlan& level, Phase phase) const;
    void HearTicks(CBoard& board, BoardTime time);

    const Scenario& m_scenario;
    std::vector<Event> m_events;  // in their order
    size_t m_nextEvent = 0;
    CBroadcast m_broadcast;
    CExchange m_exchange;
    int64_t m_startNs;           // of the day
    int64_t m_startDay;          // days since 1970
    int64_t m_playedNs = 0;      // board time since the start; moved by advances
    int64_t m_targetNs = 0;      // what it should be by now
    uint64_t m_slices = 0;       // played
    int64_t m_aheadMilliNs = 0;  // real time x speed that has not become whole ns yet
    int64_t m_lastRealNs = 0;
    bool m_bStarted = false;
    bool m_bInSlice = false;
    Slice m_slice{};
};

}  // namespace ZceBoard
