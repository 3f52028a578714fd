#include "traffic/LiveTraffic.h"

#include <fmt/format.h>

namespace ZceBoard {

CLiveTraffic::CLiveTraffic(const CInstrumentList& list, const LiveOptions& options)
    : m_list(list),
      m_options(options),
      m_broadcast(list.All(), options.pace),
      m_exchange(list.All(), options.seed),
      m_pacer(options.rate) {}

void CLiveTraffic::PassRealTime(int64_t realNs, bool play) {
    if (play && m_bStarted) {
        m_playNs += realNs - m_lastRealNs;
    }
    m_bStarted = true;
    m_lastRealNs = realNs;
}

// Before the real time has been told: how far the board's clock is ahead of the host's.
void CLiveTraffic::MoveClock(const HostTime& now) {
    const ClockStart& clock = m_options.clock;
    if (m_bStarted) {
        m_aheadNs += (now.realNs - m_lastRealNs) * (SpeedMilli() - 1000) / 1000;
    } else if (clock.hhmmss) {
        const uint32_t date = clock.date.value_or(BoardTimeAt(now.wallNs).date);
        m_aheadNs = MomentAt(date, *clock.hhmmss) - now.wallNs;
    }
}

void CLiveTraffic::Follow(const HostTime& now) {
    MoveClock(now);
    PassRealTime(now.realNs, true);
    SetTime(BoardTimeAt(now.wallNs + m_aheadNs));
}

void CLiveTraffic::Hold(const HostTime& now) {
    PassRealTime(now.realNs, false);
    m_aheadNs = m_time.wallNs - now.wallNs;
}

void CLiveTraffic::Step(int64_t ns) {
    m_playNs += ns;
    m_aheadNs += ns;
    SetTime(BoardTimeAt(m_time.wallNs + ns));
}

int CLiveTraffic::AdvanceTo(uint32_t hhmmss) {
    int64_t jump = DayNsOf(hhmmss) - static_cast<int64_t>(m_time.dayNs);
    jump += jump < 0 ? NS_PER_DAY : 0;
    m_aheadNs += jump;
    SetTime(BoardTimeAt(m_time.wallNs + jump));
    return 0;
}

void CLiveTraffic::Play(CBoard& board) {
    const Phase phase = CurrentPhase();
    board.SetTime(m_time);
    board.PlayGarbage();
    Broadcast(board, phase);
    Decode(board, phase);
}

void CLiveTraffic::Broadcast(CBoard& board, Phase phase) {
    for (size_t due = m_broadcast.Due(phase, m_time.wallNs); due != 0; --due) {
        if (!board.HearMapPacket(m_broadcast.Next(), m_list.All())) {
            m_bPacketsLeft = true;
            return;  // the core is locked: this packet comes with the next pass
        }
        m_broadcast.Advance();
    }
    m_bPacketsLeft = false;
}

void CLiveTraffic::Decode(CBoard& board, Phase phase) {
    uint64_t due = m_pacer.Due(m_playNs);
    if (!board.IsDecoding()) {
        m_pacer.Forget();
        return;
    }
    board.NoticeFeeds();
    for (; due != 0; --due) {
        board.HearTick(m_exchange, m_exchange.Next(), m_time, phase);
    }
    board.PublishCounters(IsMarketOpen(phase));
}

std::string CLiveTraffic::Describe() const {
    return fmt::format("instruments={}+{} seed={} rate={}", m_list.Count(TABLE_SINGLE),
                       m_list.Count(TABLE_COMBINE), m_options.seed, m_options.rate);
}

}  // namespace ZceBoard
