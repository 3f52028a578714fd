#pragma once

#include <cstdint>
#include <string>

#include "capture/CaptureReader.h"
#include "traffic/CaptureSummary.h"
#include "traffic/Traffic.h"

namespace ZceBoard {

// A recorded session as a board's traffic: each message as it was polled, to the channel that it
// was recorded from, whatever the host has subscribed. It begins when all channels of the capture
// are open, keeps the capture's pace or a multiple of it, and waits for a reader whose ring is full
// rather than drop a message. It is over when the readers have taken out the last one. The board's
// clock shows the time of the recording.
class CReplayTraffic : public CTraffic {
  public:
    static constexpr int64_t AS_FAST_AS_CAN_BE = 0;

    // The messages of one bus of a capture that ReadThrough found good; `speedMilli` is 1000 for
    // the capture's own pace. The summary outlives this object.
    CReplayTraffic(const std::string& path, const CaptureSummary& summary, uint32_t bus,
                   int64_t speedMilli);

    // Opens the capture; false with the reason in `error`.
    bool Open(std::string& error) { return m_reader.Open(m_path, error); }

    void Follow(const HostTime& now) override;
    void Hold(const HostTime& now) override { m_lastRealNs = now.realNs; }
    void Step(int64_t ns) override { m_playedNs += m_bBegun ? ns : 0; }
    int AdvanceTo(uint32_t hhmmss) override;
    void Play(CBoard& board) override;
    bool HasBacklog() const override { return m_bMore && !m_bBlocked; }
    bool IsOver() const override { return m_bEnd && m_bDrained; }
    bool IsBehind() const override { return m_bMore || m_bBlocked; }
    BoardTime Time() const override { return BoardTimeAt(m_summary.firstNs + m_playedNs); }
    Phase CurrentPhase() const override { return PhaseAt(Time().hhmmss); }
    TrafficSource Source() const override { return TrafficSource::Replay; }
    int64_t SpeedMilli() const override { return m_speedMilli; }
    std::string Describe() const override;
    std::string Status() const override;
    std::string LastWords() const override;
    size_t Instruments(uint32_t table) const override;

  private:
    bool AllOpen(CBoard& board);
    static bool AllDrained(CBoard& board);
    bool TakeNext();
    bool IsDue() const;

    std::string m_path;
    const CaptureSummary& m_summary;
    uint32_t m_bus;
    const CaptureSummary::Bus& m_content;
    int64_t m_speedMilli;
    ZceCapture::CCaptureReader m_reader;
    ZceCapture::CaptureMessage m_next;
    bool m_bHaveNext = false;
    bool m_bBegun = false;
    bool m_bMore = false;       // the last Play stopped at its limit
    bool m_bBlocked = false;    // at a full ring
    bool m_bEnd = false;        // of the capture
    bool m_bDrained = false;    // and all that was sent has been received
    std::string m_missing;      // channels that are not open yet
    int64_t m_playedNs = 0;     // capture time since its begin
    int64_t m_restMilliNs = 0;  // of it, what is not a whole ns yet
    int64_t m_lastRealNs = 0;
    bool m_bStarted = false;
    int64_t m_nextLearnNs = 0;
    uint64_t m_sent = 0;
    uint64_t m_unheard = 0;
};

}  // namespace ZceBoard
