#include "traffic/ReplayTraffic.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>

namespace ZceBoard {

namespace {

constexpr int MESSAGES_AT_ONCE = 4096;
constexpr int64_t LEARN_NS = NS_PER_SECOND / 4;
constexpr int64_t MILLI = 1000;
// A process that was stopped goes on where it was, but for so much.
constexpr int64_t LONGEST_PASS_NS = NS_PER_SECOND;

}  // namespace

CReplayTraffic::CReplayTraffic(const std::string& path, const CaptureSummary& summary, uint32_t bus,
                               int64_t speedMilli)
    : m_path(path),
      m_summary(summary),
      m_bus(bus),
      m_content(summary.buses.at(bus)),
      m_speedMilli(speedMilli) {}

void CReplayTraffic::Follow(const HostTime& now) {
    // While a reader does not take its messages the capture's time stands still.
    if (m_bBegun && m_bStarted && !m_bBlocked) {
        m_restMilliNs += std::min(now.realNs - m_lastRealNs, LONGEST_PASS_NS) * m_speedMilli;
        m_playedNs += m_restMilliNs / MILLI;
        m_restMilliNs %= MILLI;
    }
    m_bStarted = true;
    m_lastRealNs = now.realNs;
}

int CReplayTraffic::AdvanceTo(uint32_t /*hhmmss*/) {
    return ENOTSUP;
}

void CReplayTraffic::Play(CBoard& board) {
    board.SetTime(Time());
    // The names are there from the beginning, and again after a reset of the board.
    if (m_lastRealNs >= m_nextLearnNs) {
        board.Learn(m_content.instruments);
        m_nextLearnNs = m_lastRealNs + LEARN_NS;
    }
    if (!m_bBegun && !AllOpen(board)) {
        return;
    }
    m_bBegun = true;
    board.PlayGarbage();
    m_bBlocked = false;
    m_bMore = false;
    for (int k = 0; TakeNext() && IsDue(); ++k) {
        if (k == MESSAGES_AT_ONCE) {
            m_bMore = true;
            break;
        }
        const bool open = board.Channels()[m_next.channel].IsOpen();
        if (!board.HearDecoded(m_next.channel, m_next.bytes.data(),
                               static_cast<uint32_t>(m_next.bytes.size()))) {
            m_bBlocked = true;
            break;
        }
        ++(open ? m_sent : m_unheard);
        m_bHaveNext = false;
        if (m_speedMilli == AS_FAST_AS_CAN_BE) {
            m_playedNs = std::max(m_playedNs, m_next.timeNs - m_summary.firstNs);
        }
    }
    board.PublishCounters(true);
    m_bDrained = m_bEnd && AllDrained(board);
}

bool CReplayTraffic::AllDrained(CBoard& board) {
    auto& channels = board.Channels();
    return std::all_of(channels.begin(), channels.end(), [](CChannelSender& channel) {
        return !channel.IsOpen() || channel.IsDrained();
    });
}

bool CReplayTraffic::AllOpen(CBoard& board) {
    m_missing.clear();
    for (const uint32_t channel : m_content.channels) {
        if (!board.Channels()[channel].IsOpen()) {
            m_missing += (m_missing.empty() ? "" : ",") + std::to_string(channel);
        }
    }
    return m_missing.empty();
}

// False at the end of the capture.
bool CReplayTraffic::TakeNext() {
    while (!m_bHaveNext && !m_bEnd) {
        m_bEnd = m_reader.Read(m_next) != ZceCapture::CCaptureReader::Next::Message;
        m_bHaveNext = !m_bEnd && BusOf(m_next) == m_bus;
    }
    return m_bHaveNext;
}

bool CReplayTraffic::IsDue() const {
    return m_speedMilli == AS_FAST_AS_CAN_BE || m_next.timeNs - m_summary.firstNs <= m_playedNs;
}

size_t CReplayTraffic::Instruments(uint32_t table) const {
    return static_cast<size_t>(
        std::count_if(m_content.instruments.begin(), m_content.instruments.end(),
                      [table](const Instrument& instrument) { return instrument.table == table; }));
}

std::string CReplayTraffic::Describe() const {
    const std::string speed = m_speedMilli == AS_FAST_AS_CAN_BE
                                  ? "max"
                                  : fmt::format("{}", static_cast<double>(m_speedMilli) / MILLI);
    return fmt::format("replay={} messages={} channels={} speed={}", m_path, m_content.messages,
                       fmt::join(m_content.channels, ","), speed);
}

std::string CReplayTraffic::Status() const {
    if (!m_bBegun) {
        return " waiting-for-channels=" + m_missing;
    }
    return fmt::format(" replayed={}/{} unheard={}{}", m_sent, m_content.messages, m_unheard,
                       m_bBlocked ? fmt::format(" waiting-for-reader={}", m_next.channel) : "");
}

std::string CReplayTraffic::LastWords() const {
    std::string words = fmt::format("replay bus={} sent={} of={} unheard={} recorder-lost={}\n",
                                    m_bus, m_sent, m_content.messages, m_unheard, m_summary.lost);
    return m_summary.cut.empty() ? words : words + "replay " + m_summary.cut + "\n";
}

}  // namespace ZceBoard
