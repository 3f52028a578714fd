#include "capturetool/Scan.h"

#include <fmt/format.h>

#include <cstring>
#include <filesystem>
#include <system_error>

#include "ZceBoardMsg.h"
#include "capturetool/BoardBody.h"

namespace ZceCaptureTool {

using ZceCapture::CaptureMessage;
using ZceCapture::CCaptureReader;

bool CScan::Read(const std::string& path) {
    m_path = path;
    CCaptureReader reader;
    if (!OpenCapture(path, reader, m_error)) {
        return false;
    }
    std::error_code unknown;
    m_fileBytes = std::filesystem::file_size(path, unknown);
    CaptureMessage message;
    CCaptureReader::Next next = reader.Read(message);
    for (; next == CCaptureReader::Next::Message; next = reader.Read(message)) {
        if (!Take(message)) {
            return false;
        }
    }
    m_bursts.Finish();
    m_packets = reader.Packets();
    m_lostTold = reader.Lost();
    m_ending = EndingOf(next);
    m_error = reader.Error();
    return true;
}

bool CScan::Take(const CaptureMessage& message) {
    StreamScan* stream = StreamOf({message.bus, message.channel, message.opening});
    if (stream == nullptr) {
        m_error =
            fmt::format("{}: packet {}: more than {} openings of streams: no recorder wrote this",
                        m_path, message.packet, MAX_STREAMS);
        return false;
    }
    if (m_all.messages == 0) {
        m_firstNs = message.timeNs;
    }
    m_lastNs = message.timeNs;
    ++m_all.messages;
    m_all.bytes += message.bytes.size();
    TakeNumber(message, *stream);
    TakeBody(message, *stream);
    for (CPeakWindow& peak : m_peaks) {
        peak.Add(message.timeNs);
    }
    m_bursts.Add(message.timeNs);
    return true;
}

StreamScan* CScan::StreamOf(const StreamId& id) {
    if (m_lastId != id) {
        auto found = m_streams.find(id);
        if (found == m_streams.end()) {
            if (m_streams.size() >= MAX_STREAMS) {
                return nullptr;
            }
            found = m_streams.try_emplace(id).first;
        }
        m_lastId = id;
        m_lastStream = &found->second;
    }
    return m_lastStream;
}

void CScan::TakeGap(const Gap& gap, Missing& missing) {
    ++missing.places;
    missing.numbers += gap.missing;
    ++m_gapCount;
    if (m_gaps.size() < MAX_GAPS) {
        m_gaps.push_back(gap);
    }
}

void CScan::TakeNumber(const CaptureMessage& message, StreamScan& stream) {
    if (stream.all.messages == 0) {
        stream.firstNs = message.timeNs;
        stream.firstNumber = message.number;
    } else if (message.number <= stream.lastNumber) {
        ++stream.notRising;
    } else if (const uint64_t missing = message.number - stream.lastNumber - 1; missing != 0) {
        stream.unseen += missing;
        TakeGap({Gap::Kind::Recorder, *m_lastId, message.packet, message.timeNs, stream.lastNumber,
                 message.number, missing},
                stream.recorder);
    }
    ++stream.all.messages;
    stream.all.bytes += message.bytes.size();
    stream.lastNs = message.timeNs;
    stream.lastNumber = message.number;
}

void CScan::TakeBody(const CaptureMessage& message, StreamScan& stream) {
    const uint32_t type = TypeOf(message.bytes);
    const bool bKnown = stream.types.size() < MAX_TYPES || stream.types.count(type) != 0;
    Count& count = bKnown ? stream.types[type] : stream.otherTypes;
    ++count.messages;
    count.bytes += message.bytes.size();
    if (!IsMarketType(type)) {
        return;
    }
    ++m_market;
    if (!IsBoardMessage(message.bytes, message.channel)) {
        return;
    }
    ++m_bodies;
    uint64_t seq = 0;
    std::memcpy(&seq, message.bytes.data() + ZCE_BOARD_HEAD_SIZE, sizeof(seq));
    if (stream.bodies == 0) {
        stream.firstSeq = seq;
    } else if (seq <= stream.lastSeq) {
        ++stream.seqNotRising;
    } else if (const uint64_t missing = seq - stream.lastSeq - 1; missing > stream.unseen) {
        // What the recorder left out there was polled: it is not missing a second time.
        TakeGap({Gap::Kind::Board, *m_lastId, message.packet, message.timeNs, stream.lastSeq, seq,
                 missing - stream.unseen},
                stream.board);
    }
    ++stream.bodies;
    stream.lastSeq = seq;
    stream.unseen = 0;
}

}  // namespace ZceCaptureTool
