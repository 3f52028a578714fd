#include "relay-tool/Received.h"

#include <fmt/format.h>

#include <cstring>
#include <iterator>

#include "ZceBoardMsg.h"
#include "capture/ZceCapture.h"

namespace ZceRelay {

namespace {

ZceCapturePrefix_t PrefixOf(const Incoming& incoming, const CStreamOrder& order) {
    ZceCapturePrefix_t prefix{};
    prefix.ucVersion = ZCE_CAPTURE_VERSION;
    prefix.usBus = incoming.subject.bus;
    prefix.usChannel = incoming.subject.channel;
    prefix.usOpening = static_cast<uint16_t>(order.Sessions());
    return prefix;
}

}  // namespace

bool CReceived::OpenCapture(const std::string& path, std::string& error) {
    m_capture = std::make_unique<ZceCapture::CCaptureFile>();
    return m_capture->Open(path, error);
}

void CReceived::Take(const Incoming& incoming) {
    const Subject& subject = incoming.subject;
    if (subject.kind == Kind::Instruments) {
        return;
    }
    CStreamOrder& order = m_streams[{subject.bus, subject.channel}];
    if (subject.kind == Kind::Mark) {
        order.Mark(incoming.sequence);
        WriteLost(incoming, order);
        return;
    }
    if (order.Judge(incoming.sequence) == CStreamOrder::Verdict::Next) {
        m_lastTimeNs = incoming.timeNs;
        WriteLost(incoming, order);
        WriteMessage(incoming, order);
    }
}

void CReceived::WriteLost(const Incoming& incoming, const CStreamOrder& order) {
    if (m_capture == nullptr || order.LostBefore() == 0) {
        return;
    }
    ZceCapturePrefix_t prefix = PrefixOf(incoming, order);
    prefix.ucKind = ZCE_CAPTURE_KIND_LOST;
    prefix.ulNumber = order.LostBefore();
    m_capture->Add(m_lastTimeNs, reinterpret_cast<const unsigned char*>(&prefix), sizeof(prefix));
}

// The head in front of the body is put together again, as the board sends it.
void CReceived::WriteMessage(const Incoming& incoming, const CStreamOrder& order) {
    if (m_capture == nullptr) {
        return;
    }
    ZceCapturePrefix_t prefix = PrefixOf(incoming, order);
    prefix.ucKind = ZCE_CAPTURE_KIND_MESSAGE;
    prefix.ulNumber = incoming.sequence.number;
    const ZceBoardHead_t head{incoming.subject.type, incoming.subject.channel,
                              static_cast<uint16_t>(incoming.body.size()), 0};
    m_packet.resize(sizeof(prefix) + sizeof(head) + incoming.body.size());
    std::memcpy(m_packet.data(), &prefix, sizeof(prefix));
    std::memcpy(m_packet.data() + sizeof(prefix), &head, sizeof(head));
    std::memcpy(m_packet.data() + sizeof(prefix) + sizeof(head), incoming.body.data(),
                incoming.body.size());
    m_capture->Add(incoming.timeNs, m_packet.data(), static_cast<uint32_t>(m_packet.size()));
}

bool CReceived::Flush(std::string& error) {
    return m_capture == nullptr || m_capture->Flush(error);
}

uint64_t CReceived::Lost() const {
    return Total().lost;
}

StreamCounts CReceived::Total() const {
    StreamCounts total;
    for (const auto& [place, order] : m_streams) {
        total += order.Counts();
    }
    return total;
}

std::string CReceived::StatusLine() const {
    return "zce-relay status " + CountsText(Total());
}

std::string CReceived::Lines() const {
    std::string lines;
    for (const auto& [place, order] : m_streams) {
        fmt::format_to(std::back_inserter(lines), "zce-relay subscribe bus={} channel={} {}\n",
                       place.first, place.second, order.Text());
    }
    return lines;
}

}  // namespace ZceRelay
