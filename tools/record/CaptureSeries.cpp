#include "record/CaptureSeries.h"

#include <unistd.h>

#include <filesystem>
#include <limits>
#include <utility>

#include "capture/FileStatus.h"
#include "capture/ZceCapture.h"

namespace ZceRecord {

namespace {

using ZceCapture::Sidecar;

// A message can be polled so long before the thread that writes has it.
constexpr int64_t LATE_NS = 100'000'000;

std::string NameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// The path of a file as it is seen from the folder of another one.
std::string SeenFrom(const std::string& from, const std::string& path) {
    namespace fs = std::filesystem;
    return fs::path(path).lexically_relative(fs::path(from).parent_path()).string();
}

}  // namespace

CCaptureSeries::CCaptureSeries(const Settings& settings, CFileMaker& maker, std::string bus,
                               std::string channel)
    : m_settings(settings), m_maker(maker), m_bus(std::move(bus)), m_channel(std::move(channel)) {}

NameParts CCaptureSeries::Parts(int64_t timeNs) const {
    NameParts parts;
    parts.timeNs = timeNs;
    parts.bus = m_bus;
    parts.channel = m_channel;
    parts.number = m_number;
    parts.processId = std::to_string(getpid());
    return parts;
}

bool CCaptureSeries::Fail(std::string& error, const std::string& reason) const {
    error = m_made.name + ": " + reason;
    return false;
}

bool CCaptureSeries::Begin(int64_t timeNs, std::string& taken, std::string& error) {
    std::string reason;
    ++m_number;
    if (!m_maker.Make(Parts(timeNs), m_file.Output(), m_made, taken, reason) ||
        !m_file.Begin(m_settings.zstdLevel, reason)) {
        return Fail(error, reason);
    }
    m_open = true;
    m_regular = m_file.Output().IsRegular();
    m_endNs = m_settings.maxMinutes != 0 ? EndOfStretch(timeNs, m_settings.maxMinutes)
                                         : std::numeric_limits<int64_t>::max();
    m_sidecar = Sidecar();
    m_sidecar.file = NameOf(m_made.path);
    m_sidecar.compression = m_settings.zstdLevel != 0 ? "zstd" : "none";
    m_sidecar.number = m_number;
    m_stream = 0;
    if (!m_previousPath.empty()) {
        m_sidecar.previous = SeenFrom(m_made.path, m_previousPath);
        TellPrevious();
    }
    m_marked = m_sidecar;
    return WriteSidecar(error);
}

// The name of the file that follows it, unless it was moved away with its sidecar.
void CCaptureSeries::TellPrevious() {
    std::string ignored;  // it has one, without the name
    m_previous.next = SeenFrom(m_previousPath, m_made.path);
    if (ZceCapture::StatusOf(ZceCapture::SidecarPath(m_previousPath))) {
        ZceCapture::WriteSidecar(m_previousPath, m_previous, ignored);
    }
}

bool CCaptureSeries::WriteSidecar(std::string& error) {
    std::string reason;
    return !m_regular || ZceCapture::WriteSidecar(m_made.path, m_sidecar, reason) ||
           Fail(error, "its sidecar cannot be written: " + reason);
}

// Ends the file before a message that does not belong into it, and makes one if there is none.
bool CCaptureSeries::MakeRoomFor(int64_t timeNs, uint32_t size, std::string& error) {
    if (m_open && m_regular && m_sidecar.messages + m_sidecar.lost != 0) {
        const uint64_t bytes =
            m_settings.zstdLevel != 0
                ? m_file.Bytes()
                : m_file.UncompressedBytes() + ZceCapture::CCaptureFile::PACKET_HEAD + size;
        const bool isFull = m_settings.maxBytes != 0 && bytes > m_settings.maxBytes;
        if ((isFull || timeNs >= m_endNs) &&
            !EndFile(Sidecar::State::Complete, isFull ? "size" : "time", error)) {
            return false;
        }
    }
    std::string taken;
    return m_open || Begin(timeNs, taken, error);
}

Sidecar::Stream& CCaptureSeries::StreamOf(const StreamId& id) {
    const auto is = [&id](const Sidecar::Stream& stream) {
        return stream.channel == id.channel && stream.opening == id.opening && stream.bus == id.bus;
    };
    std::vector<Sidecar::Stream>& streams = m_sidecar.streams;
    if (m_stream < streams.size() && is(streams[m_stream])) {
        return streams[m_stream];
    }
    for (m_stream = 0; m_stream < streams.size(); ++m_stream) {
        if (is(streams[m_stream])) {
            return streams[m_stream];
        }
    }
    streams.push_back({id.bus, id.channel, id.opening});
    return streams.back();
}

bool CCaptureSeries::Add(const StreamId& id, uint64_t number, int64_t timeNs,
                         const unsigned char* packet, uint32_t size, std::string& error) {
    if (!MakeRoomFor(timeNs, size, error)) {
        return false;
    }
    m_file.Add(timeNs, packet, size);
    Sidecar::Stream& stream = StreamOf(id);
    if (++stream.messages == 1) {
        stream.first = number;
    }
    stream.last = number;
    if (++m_sidecar.messages == 1) {
        m_sidecar.firstTimeNs = timeNs;
    }
    m_sidecar.lastTimeNs = timeNs;
    return true;
}

bool CCaptureSeries::AddLost(const StreamId& id, uint64_t lost, int64_t timeNs,
                             std::string& error) {
    const ZceCapturePrefix_t prefix{
        ZCE_CAPTURE_VERSION, ZCE_CAPTURE_KIND_LOST, id.bus, id.channel, id.opening, lost};
    if (!MakeRoomFor(timeNs, sizeof(prefix), error)) {
        return false;
    }
    m_file.Add(timeNs, reinterpret_cast<const unsigned char*>(&prefix), sizeof(prefix));
    StreamOf(id).lost += lost;
    m_sidecar.lost += lost;
    return true;
}

bool CCaptureSeries::Flush(bool all, std::string& error) {
    std::string reason;
    if (!m_open || (m_file.Pending() == 0 && !all)) {
        return true;
    }
    if (!(all ? m_file.FlushBlock(reason) : m_file.Flush(reason))) {
        Rewind();
        return Fail(error, "cannot write: " + reason);
    }
    if (all || m_settings.zstdLevel == 0) {
        Mark();
    }
    return !m_regular || CheckDisk(error);
}

void CCaptureSeries::Mark() {
    m_file.Mark();
    m_marked = m_sidecar;
}

// What could be written in part is not kept: the file ends with a message, and the sidecar knows
// which.
void CCaptureSeries::Rewind() {
    m_file.Rewind();
    m_sidecar = m_marked;
}

bool CCaptureSeries::CheckDisk(std::string& error) {
    if (m_file.Output().IsRemoved()) {
        // Nobody will find what is in it: a new one for what comes.
        Say(m_made.name + ": it was removed: the next message begins another file");
        m_file.Close();
        m_open = false;
        m_previousPath.clear();
        return true;
    }
    const std::string fault = m_maker.SpaceFault(m_made.path);
    return fault.empty() || Fail(error, fault);
}

bool CCaptureSeries::EndFile(Sidecar::State state, const std::string& ended, std::string& error) {
    std::string reason;
    if (!m_open) {
        return true;
    }
    const bool written = m_file.End(reason);
    if (!written) {
        Rewind();
    }
    m_sidecar.state = state;
    m_sidecar.ended = ended;
    if (!written) {
        m_sidecar.state = Sidecar::State::Stopped;
        m_sidecar.ended = reason = "cannot write: " + reason;
    }
    m_sidecar.bytes = m_file.Bytes();
    m_sidecar.uncompressedBytes = m_file.UncompressedBytes();
    m_sidecar.xxh128 = m_file.Hash();
    const bool told = WriteSidecar(error);
    m_file.Close();  // not before: unlocked and without its end it would be an interrupted one
    m_open = false;
    m_previousPath = m_regular ? m_made.path : "";
    m_previous = m_sidecar;
    return written ? told : Fail(error, reason);
}

bool CCaptureSeries::EndIfOver(int64_t nowNs, std::string& error) {
    const bool isOver = m_open && m_regular && m_settings.maxMinutes != 0 &&
                        m_sidecar.messages + m_sidecar.lost != 0 && nowNs - LATE_NS >= m_endNs;
    return !isOver || EndFile(Sidecar::State::Complete, "time", error);
}

bool CCaptureSeries::End(std::string& error) {
    return EndFile(Sidecar::State::Complete, "application", error);
}

void CCaptureSeries::Stop(const std::string& reason) {
    std::string ignored;  // why it stops was told
    EndFile(Sidecar::State::Stopped, reason, ignored);
}

}  // namespace ZceRecord
