#include "traffic/ScenarioTraffic.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

namespace ZceBoard {

namespace {

constexpr uint64_t TICKS_AT_ONCE = 4096;
constexpr int SLICES_AT_ONCE = 256;
constexpr int64_t MS_PER_SECOND = 1000;
// A process that was stopped goes on where it was, but for so much.
constexpr int64_t LONGEST_PASS_NS = 60 * NS_PER_SECOND;
constexpr int64_t LAG_TOLD_NS = NS_PER_SECOND;
constexpr std::array<uint32_t, 2> LEVEL_FEEDS = {SWITCH_L1, SWITCH_L5};

int64_t DaysOf(uint32_t date) {
    const std::chrono::year_month_day day{std::chrono::year(static_cast<int>(date / 10000)),
                                          std::chrono::month(date / 100 % 100),
                                          std::chrono::day(date % 100)};
    return std::chrono::sys_days(day).time_since_epoch().count();
}

uint32_t DateOf(int64_t days) {
    const std::chrono::year_month_day day{std::chrono::sys_days(std::chrono::days(days))};
    return static_cast<uint32_t>(static_cast<int>(day.year()) * 10000) +
           static_cast<unsigned>(day.month()) * 100 + static_cast<unsigned>(day.day());
}

}  // namespace

CScenarioTraffic::CScenarioTraffic(const Scenario& scenario, uint32_t today)
    : m_scenario(scenario),
      m_events(EventsOf(scenario)),
      m_broadcast(scenario.instruments.All(), scenario.pace),
      m_exchange(scenario.instruments.All(), scenario.seed),
      m_startNs(DayNsOf(scenario.start)),
      m_startDay(DaysOf(scenario.date != 0 ? scenario.date : today)) {}

// Board time has no zone: its days are 24 hours long.
BoardTime CScenarioTraffic::TimeAt(int64_t sinceStartNs) const {
    const int64_t ns = m_startNs + sinceStartNs;
    const int64_t dayNs = ns % NS_PER_DAY;
    return {DateOf(m_startDay + ns / NS_PER_DAY), HhmmssOf(dayNs), static_cast<uint64_t>(dayNs),
            m_startDay * NS_PER_DAY + ns};
}

void CScenarioTraffic::Follow(const HostTime& now) {
    if (m_bStarted) {
        const int64_t passed = std::min(now.realNs - m_lastRealNs, LONGEST_PASS_NS);
        m_aheadMilliNs += passed * m_scenario.speedMilli;
        m_targetNs += m_aheadMilliNs / 1000;
        m_aheadMilliNs %= 1000;
    }
    Hold(now);
}

void CScenarioTraffic::Hold(const HostTime& now) {
    m_bStarted = true;
    m_lastRealNs = now.realNs;
}

void CScenarioTraffic::Step(int64_t ns) {
    m_targetNs = m_playedNs + ns;
}

int CScenarioTraffic::AdvanceTo(uint32_t hhmmss) {
    int64_t jump = DayNsOf(hhmmss) - static_cast<int64_t>(Time().dayNs);
    jump += jump < 0 ? NS_PER_DAY : 0;
    m_playedNs += jump;
    m_targetNs = m_playedNs;
    return 0;
}

void CScenarioTraffic::Play(CBoard& board) {
    SwitchFaults(board);  // those that are there from the start, or that an advance passed over
    board.SetTime(Time());
    for (int k = 0; k < SLICES_AT_ONCE && HasBacklog(); ++k) {
        if (!m_bInSlice) {
            BeginSlice(board);
        }
        if (!FinishSlice(board)) {
            return;
        }
    }
}

void CScenarioTraffic::BeginSlice(CBoard& board) {
    m_playedNs = NextSliceNs();
    Skip();
    ++m_slices;
    m_bInSlice = true;
    const BoardTime time = Time();
    const Phase phase = m_scenario.day.At(time.hhmmss);
    board.SetTime(time);
    SwitchFaults(board);
    m_slice = {m_broadcast.Due(phase, time.wallNs),
               {TicksOf(m_scenario.levels[0], phase), TicksOf(m_scenario.levels[1], phase)},
               0};
}

void CScenarioTraffic::Skip() {
    for (const Span& span : m_scenario.skips) {
        if (m_playedNs >= span.fromNs && m_playedNs < span.toNs) {
            m_targetNs += span.toNs - m_playedNs;
            m_playedNs = span.toNs;
        }
    }
}

// False if the slice goes on in the next pass.
bool CScenarioTraffic::FinishSlice(CBoard& board) {
    for (; m_slice.packets != 0; --m_slice.packets) {
        if (!board.HearMapPacket(m_broadcast.Next(), m_scenario.instruments.All())) {
            return false;  // the core is locked
        }
        m_broadcast.Advance();
    }
    HearTicks(board, Time());
    if (m_slice.ticks[0] + m_slice.ticks[1] != 0) {
        return false;
    }
    board.PlayGarbage();
    board.PublishCounters(IsMarketOpen(CurrentPhase()));
    m_bInSlice = false;
    return true;
}

std::vector<CScenarioTraffic::Event> CScenarioTraffic::EventsOf(const Scenario& scenario) {
    std::vector<Event> events;
    for (const FaultPlan& plan : scenario.faults) {
        events.push_back({plan.atNs, true, &plan});
        if (plan.untilNs) {
            events.push_back({*plan.untilNs, false, &plan});
        }
    }
    // At one moment what ends does so before what begins.
    std::stable_sort(events.begin(), events.end(), [](const Event& one, const Event& other) {
        return one.ns != other.ns ? one.ns < other.ns : !one.bBegins && other.bBegins;
    });
    return events;
}

// Faults whose time has come, in its order; an advance brings about all that it passed over.
void CScenarioTraffic::SwitchFaults(CBoard& board) {
    if (m_nextEvent == m_events.size() || m_events[m_nextEvent].ns > m_playedNs) {
        return;
    }
    CFaults faults(board.Shm());
    for (; m_nextEvent < m_events.size() && m_events[m_nextEvent].ns <= m_playedNs; ++m_nextEvent) {
        const Event& event = m_events[m_nextEvent];
        if (event.bBegins) {
            faults.Set(event.pPlan->setting);
        } else {
            faults.Clear(event.pPlan->setting.kind);
        }
    }
    board.PlayFaults();
}

// The messages of a level that are due in the slice that has just begun.
uint64_t CScenarioTraffic::TicksOf(const LevelPlan& level, Phase phase) const {
    if (!level.phases[static_cast<size_t>(phase)]) {
        return 0;
    }
    const uint64_t steady =
        level.rate * m_slices / MS_PER_SECOND - level.rate * (m_slices - 1) / MS_PER_SECOND;
    const bool burst = level.burstEveryMs != 0 && m_slices % level.burstEveryMs == 0;
    return steady + (burst ? level.burst : 0);
}

// The exchange ticks whether the board listens or not; the levels take turns by their numbers.
void CScenarioTraffic::HearTicks(CBoard& board, BoardTime time) {
    const bool decoding = board.IsDecoding();
    if (decoding) {
        board.NoticeFeeds();
    }
    const Phase phase = m_scenario.day.At(time.hhmmss);
    auto& left = m_slice.ticks;
    const uint64_t all = m_slice.done + left[0] + left[1];
    const uint64_t end = std::min(all, m_slice.done + TICKS_AT_ONCE);
    for (; m_slice.done < end; ++m_slice.done) {
        const size_t level = left[1] > left[0] ? 1 : 0;
        --left[level];
        const Tick tick = m_exchange.NextOn(LEVEL_FEEDS[level]);
        if (decoding) {
            time.dayNs = static_cast<uint64_t>(m_playedNs + m_startNs) % NS_PER_DAY +
                         m_slice.done * NS_PER_MS / all;
            board.HearTick(m_exchange, tick, time, phase);
        }
    }
}

std::string CScenarioTraffic::Describe() const {
    return fmt::format("instruments={}+{} seed={} speed={}",
                       m_scenario.instruments.Count(TABLE_SINGLE),
                       m_scenario.instruments.Count(TABLE_COMBINE), m_scenario.seed,
                       static_cast<double>(m_scenario.speedMilli) / 1000);
}

std::string CScenarioTraffic::Status() const {
    const int64_t lag = m_targetNs - m_playedNs;
    return lag >= LAG_TOLD_NS ? fmt::format(" lag={}ms", lag / NS_PER_MS) : "";
}

}  // namespace ZceBoard
