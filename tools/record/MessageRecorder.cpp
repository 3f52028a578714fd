#include "record/MessageRecorder.h"

#include <algorithm>
#include <cstring>

#include "record/Settings.h"

namespace ZceRecord {

namespace {

constexpr size_t FLUSH_BYTES = size_t{256} << 10;
constexpr uint64_t FLUSH_PASSES = 25;

}  // namespace

bool CMessageRecorder::Open(const std::string& name, const std::string& path, size_t bufferBytes,
                            std::string& error) {
    m_name = name;
    m_bufferBytes = bufferBytes;
    m_packet.resize(ZCE_CAPTURE_SNAPLEN);
    return m_file.Open(path, error);
}

CMessageQueue* CMessageRecorder::Opened(uint16_t bus, uint16_t channel) {
    const std::lock_guard guard(m_mutex);
    const uint16_t opening = ++m_openings[{bus, channel}];
    m_new.push_back(
        std::make_unique<CMessageQueue>(StreamId{bus, channel, opening}, m_bufferBytes));
    return m_new.back().get();
}

void CMessageRecorder::BeginPass(bool last) {
    {
        const std::lock_guard guard(m_mutex);
        for (std::unique_ptr<CMessageQueue>& queue : m_new) {
            m_sources.push_back({std::move(queue)});
        }
        m_new.clear();
    }
    for (Source& source : m_sources) {
        // In this order: a closed queue gets no more, and what was counted is in it or was lost.
        source.closed = source.queue->Closed();
        source.counted = source.queue->Counted();
        source.queue->BeginPass(last);
    }
}

CMessageRecorder::Source* CMessageRecorder::Earliest() {
    Source* earliest = nullptr;
    for (Source& source : m_sources) {
        if (source.queue->Waits() &&
            (earliest == nullptr || source.queue->Head().timeNs < earliest->queue->Head().timeNs)) {
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
        if (source.queue->Empty() && source.written < source.counted) {
            WriteLost(source, source.counted, source.queue->LostTimeNs());
            wrote = true;
        }
    }
    RemoveClosed();
    ++m_passes;
    if (last || !wrote || m_passes % FLUSH_PASSES == 0) {
        Flush();
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
        WriteLost(source, head.number - 1, head.timeNs);
    }
    const StreamId& id = queue.Id();
    const ZceCapturePrefix_t prefix{
        ZCE_CAPTURE_VERSION, ZCE_CAPTURE_KIND_MESSAGE, id.bus, id.channel, id.opening, head.number};
    std::memcpy(m_packet.data(), &prefix, sizeof(prefix));
    queue.TakeBytes(m_packet.data() + sizeof(prefix));
    m_file.Add(head.timeNs, m_packet.data(), static_cast<uint32_t>(sizeof(prefix)) + head.size);
    source.written = head.number;
    ++m_recorded;
    if (m_file.Pending() >= FLUSH_BYTES) {
        Flush();
    }
}

void CMessageRecorder::WriteLost(Source& source, uint64_t upTo, int64_t timeNs) {
    const uint64_t lost = upTo - source.written;
    const StreamId& id = source.queue->Id();
    const ZceCapturePrefix_t prefix{
        ZCE_CAPTURE_VERSION, ZCE_CAPTURE_KIND_LOST, id.bus, id.channel, id.opening, lost};
    m_file.Add(timeNs, reinterpret_cast<const unsigned char*>(&prefix), sizeof(prefix));
    source.written = upTo;
    m_lost += lost;
}

void CMessageRecorder::Flush() {
    std::string error;
    if (m_failed) {
        return;
    }
    if (m_file.Pending() == 0 || m_file.Flush(error)) {
        m_inFile = m_recorded;
    } else {
        m_failed = true;
        m_file.Close();
        Say(m_name + ": cannot write: " + error + ": the recording has ended");
    }
}

std::string CMessageRecorder::Summary() const {
    if (m_failed) {
        return "";
    }
    return m_name + ": " + std::to_string(m_recorded) + " messages recorded, " +
           std::to_string(m_lost) + " lost";
}

std::string CMessageRecorder::Missing() {
    const std::lock_guard guard(m_mutex);
    uint64_t counted = m_countedBefore;
    for (const Source& source : m_sources) {
        counted += source.queue->Counted();
    }
    for (const std::unique_ptr<CMessageQueue>& queue : m_new) {
        counted += queue->Counted();
    }
    return m_failed ? "" : MissingLine(m_name, counted, m_inFile, "messages");
}

}  // namespace ZceRecord
