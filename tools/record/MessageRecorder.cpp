#include "record/MessageRecorder.h"

#include <algorithm>
#include <cstring>

#include "capture/ZceCapture.h"

namespace ZceRecord {

namespace {

constexpr size_t FLUSH_BYTES = size_t{256} << 10;
constexpr uint64_t FLUSH_PASSES = 25;
constexpr uint64_t BLOCK_PASSES = 400;  // of a compressed file: about a second

std::string BusName(uint16_t bus) {
    return bus == ZCE_CAPTURE_BUS_UNKNOWN ? "x" : std::to_string(bus);
}

}  // namespace

CMessageRecorder::CMessageRecorder(const Settings& settings, const Surroundings& surroundings)
    : m_settings(settings), m_surroundings(surroundings), m_maker(settings, surroundings) {
    m_clock.Use(settings.counts);
    m_packet.resize(ZCE_CAPTURE_SNAPLEN);
}

CMessageQueue* CMessageRecorder::Opened(uint16_t bus, uint16_t channel, std::string& error) {
    error.clear();
    CCaptureSeries* series = m_failed ? nullptr : SeriesOf(bus, channel, error);
    if (series == nullptr) {
        return nullptr;
    }
    const uint16_t opening = ++m_openings[{bus, channel}];
    // Its memory takes some time, for which other streams' messages need not wait.
    auto queue =
        std::make_unique<CMessageQueue>(StreamId{bus, channel, opening}, m_settings.bufferBytes);
    CMessageQueue* opened = queue.get();
    const std::lock_guard guard(m_mutex);
    m_new.push_back({std::move(queue), series});
    return opened;
}

// What differs in the file's name has a file of its own.
CCaptureSeries* CMessageRecorder::SeriesOf(uint16_t bus, uint16_t channel, std::string& error) {
    const std::string busName = HasPattern(m_settings.name, 'b') ? BusName(bus) : "";
    const std::string channelName = HasPattern(m_settings.name, 'c') ? std::to_string(channel) : "";
    for (const std::unique_ptr<CCaptureSeries>& series : m_series) {
        if (series->IsOf(busName, channelName)) {
            return series.get();
        }
    }
    if (m_series.empty()) {
        m_clock.Note();  // before the first message; nothing is written yet
    }
    auto series = std::make_unique<CCaptureSeries>(m_settings, m_maker, busName, channelName);
    std::string taken;
    if (!series->Begin(m_surroundings.now(), taken, error)) {
        return nullptr;
    }
    if (!taken.empty()) {
        Say(taken + " is there already: recording to " + series->Name());
    }
    const std::lock_guard guard(m_mutex);
    m_series.push_back(std::move(series));
    return m_series.back().get();
}

void CMessageRecorder::BeginPass(bool last) {
    {
        const std::lock_guard guard(m_mutex);
        for (Source& source : m_new) {
            if (std::find(m_written.begin(), m_written.end(), source.series) == m_written.end()) {
                m_written.push_back(source.series);
            }
            m_sources.push_back(std::move(source));
        }
        m_new.clear();
    }
    for (Source& source : m_sources) {
        // In this order: a closed queue gets no more, and what was counted is in it or was lost.
        source.closed = source.queue->Closed();
        source.counted = source.queue->Counted();
        source.queue->BeginPass(last);
    }
    m_clock.Note();  // not before anything that is written now
    m_beat.microsecond.store(m_clock.Microsecond(), std::memory_order_relaxed);
    m_beat.passes.fetch_add(1, std::memory_order_relaxed);
}

CMessageRecorder::Source* CMessageRecorder::Earliest() {
    Source* earliest = nullptr;
    for (Source& source : m_sources) {
        if (source.queue->Waits() &&
            (earliest == nullptr || source.queue->Head().stamp < earliest->queue->Head().stamp)) {
            earliest = &source;
        }
    }
    return earliest;
}

void CMessageRecorder::Pass(bool last) {
    if (m_failed) {
        return;
    }
    BeginPass(last);
    bool wrote = false;
    for (Source* source = Earliest(); source != nullptr && source->queue->Released() && !m_failed;
         source = Earliest()) {
        WriteMessage(*source);
        wrote = true;
    }
    EndPass(last, wrote);
}

void CMessageRecorder::EndPass(bool last, bool wrote) {
    for (Source& source : m_sources) {
        if (source.queue->Empty() && source.written < source.counted && !m_failed) {
            WriteLost(source, source.counted, source.queue->LostStamp());
            wrote = true;
        }
    }
    RemoveClosed();
    ++m_passes;
    if (last || !wrote || m_passes % FLUSH_PASSES == 0) {
        FlushAll(last);
    }
    std::string error;
    const int64_t nowNs = m_settings.maxMinutes != 0 && !wrote ? m_surroundings.now() : 0;
    for (size_t k = 0; k < m_written.size() && nowNs != 0 && !m_failed; ++k) {
        Check(m_written[k]->EndIfOver(nowNs, error), error);
    }
}

void CMessageRecorder::RemoveClosed() {
    const std::lock_guard guard(m_mutex);
    m_sources.erase(std::remove_if(m_sources.begin(), m_sources.end(),
                                   [this](const Source& source) {
                                       const bool gone = source.closed && source.queue->Empty();
                                       m_countedBefore += gone ? source.counted : 0;
                                       return gone;
                                   }),
                    m_sources.end());
}

void CMessageRecorder::WriteMessage(Source& source) {
    CMessageQueue& queue = *source.queue;
    const RecordHead head = queue.Head();
    if (head.number != source.written + 1) {
        WriteLost(source, head.number - 1, head.stamp);
    }
    const StreamId& id = queue.Id();
    const ZceCapturePrefix_t prefix{
        ZCE_CAPTURE_VERSION, ZCE_CAPTURE_KIND_MESSAGE, id.bus, id.channel, id.opening, head.number};
    std::memcpy(m_packet.data(), &prefix, sizeof(prefix));
    queue.TakeBytes(m_packet.data() + sizeof(prefix));
    if (m_failed) {
        return;
    }
    std::string error;
    Check(source.series->Add(id, head.number, m_clock.TimeOf(head.stamp), m_packet.data(),
                             static_cast<uint32_t>(sizeof(prefix)) + head.size, error),
          error);
    source.written = head.number;
    ++m_recorded;
    if (source.series->Pending() >= FLUSH_BYTES) {
        Check(source.series->Flush(false, error), error);
    }
}

void CMessageRecorder::WriteLost(Source& source, uint64_t upTo, int64_t stamp) {
    const uint64_t lost = upTo - source.written;
    std::string error;
    Check(source.series->AddLost(source.queue->Id(), lost, m_clock.TimeOf(stamp), error), error);
    source.written = upTo;
    m_lost += lost;
}

void CMessageRecorder::FlushAll(bool last) {
    const bool all = last || m_passes % BLOCK_PASSES == 0;
    std::string error;
    for (size_t k = 0; k < m_written.size() && !m_failed; ++k) {
        Check(m_written[k]->Flush(all, error), error);
    }
    if (!m_failed && (all || m_settings.zstdLevel == 0)) {
        m_inFile = m_recorded;
    }
}

// What cannot be written ends the recording: the application goes on.
void CMessageRecorder::Check(bool done, const std::string& error) {
    if (done || m_failed.exchange(true)) {
        return;
    }
    for (CCaptureSeries* series : m_written) {
        series->Stop(error);
    }
    Say(error + ": the recording has ended");
}

void CMessageRecorder::End() {
    std::string error;
    for (size_t k = 0; k < m_written.size() && !m_failed; ++k) {
        Check(m_written[k]->End(error), error);
    }
}

std::string CMessageRecorder::Summary() const {
    if (m_failed) {
        return "";
    }
    uint64_t files = 0;
    for (const CCaptureSeries* series : m_written) {
        files += series->Files();
    }
    return (files == 1 ? m_written.front()->Name() : m_settings.name) + ": " +
           std::to_string(m_recorded) + " messages recorded, " + std::to_string(m_lost) + " lost" +
           (files == 1 ? "" : ", " + std::to_string(files) + " files");
}

std::string CMessageRecorder::Missing() {
    const std::lock_guard guard(m_mutex);
    uint64_t counted = m_countedBefore;
    for (const Source& source : m_sources) {
        counted += source.queue->Counted();
    }
    for (const Source& source : m_new) {
        counted += source.queue->Counted();
    }
    return m_failed ? "" : MissingLine(m_settings.name, counted, m_inFile, "messages");
}

uint64_t CMessageRecorder::Progress() {
    const std::lock_guard guard(m_mutex);
    uint64_t progress = 0;
    for (const std::unique_ptr<CCaptureSeries>& series : m_series) {
        progress += series->Progress();
    }
    return progress;
}

void CMessageRecorder::Abandon() {
    for (const std::unique_ptr<CCaptureSeries>& series : m_series) {
        series->Abandon();
    }
}

}  // namespace ZceRecord
