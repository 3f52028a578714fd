#include "capture/CaptureReader.h"

#include <fmt/format.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "capture/ZceCapture.h"

namespace ZceCapture {

namespace {

constexpr uint64_t NS_PER_SECOND = 1'000'000'000;

std::string LinkTypeName(int linkType) {
    if (linkType >= DLT_USER0 && linkType <= DLT_USER15) {  // libpcap has no name for these
        return fmt::format("USER{} ({})", linkType - DLT_USER0, linkType);
    }
    const char* name = pcap_datalink_val_to_name(linkType);
    return fmt::format("{} ({})", name != nullptr ? name : "unknown", linkType);
}

// Unsigned arithmetic: a file may hold any number.
int64_t NsOf(const timeval& time) {
    return static_cast<int64_t>(static_cast<uint64_t>(time.tv_sec) * NS_PER_SECOND +
                                static_cast<uint64_t>(time.tv_usec));
}

}  // namespace

uint32_t TypeOf(std::span<const unsigned char> message) {
    uint32_t type = 0;
    std::memcpy(&type, message.data(), std::min(message.size(), sizeof(type)));
    return type;
}

void CCaptureReader::Closer::operator()(pcap* file) const {
    pcap_close(file);
}

bool CCaptureReader::Open(const std::string& path, std::string& error) {
    m_file.reset();  // before what it reads from
    *this = CCaptureReader();
    m_path = path;
    m_input = std::make_unique<CInputFile>();
    std::FILE* stream = m_input->Open(path);
    if (stream == nullptr) {
        error = fmt::format("{}: {}", path, std::strerror(errno));
        return false;
    }
    std::array<char, PCAP_ERRBUF_SIZE> reason{};
    m_file.reset(pcap_fopen_offline_with_tstamp_precision(stream, PCAP_TSTAMP_PRECISION_NANO,
                                                          reason.data()));
    if (m_file == nullptr) {
        std::fclose(stream);
        const std::string& fault = m_input->Fault();
        error = fmt::format("{}: not a capture: {}", path, fault.empty() ? reason.data() : fault);
        return false;
    }
    const int linkType = pcap_datalink(m_file.get());
    if (linkType != ZCE_CAPTURE_LINK_TYPE) {
        m_file.reset();
        error = fmt::format("{}: link type {}, expected {}", path, LinkTypeName(linkType),
                            LinkTypeName(ZCE_CAPTURE_LINK_TYPE));
        return false;
    }
    m_state = Next::Message;
    return true;
}

CCaptureReader::Next CCaptureReader::Stop(Next result, uint64_t packet, const std::string& reason) {
    m_state = result;
    m_error = fmt::format("{}: packet {}: {}", m_path, packet, reason);
    return result;
}

// Where libpcap gave no packet.
CCaptureReader::Next CCaptureReader::StopAt(int result) {
    const uint64_t packet = m_packets + 1;
    if (!m_input->Fault().empty()) {
        return Stop(Next::Error, packet, m_input->Fault());
    }
    if (result == PCAP_ERROR_BREAK) {
        return m_input->IsCut() ? Stop(Next::Cut, packet, "truncated zstd frame")
                                : m_state = Next::End;
    }
    // Only a read that the file was too short for has met its end.
    const bool cut = std::feof(pcap_file(m_file.get())) != 0;
    return Stop(cut ? Next::Cut : Next::Error, packet, pcap_geterr(m_file.get()));
}

std::string CCaptureReader::Fault(const unsigned char* data, size_t captured, size_t original) {
    if (captured < original) {
        return fmt::format("only {} of its {} bytes were captured", captured, original);
    }
    if (captured < ZCE_CAPTURE_PREFIX_SIZE) {
        return fmt::format("{} bytes are too few for the prefix of {}", captured,
                           +ZCE_CAPTURE_PREFIX_SIZE);
    }
    ZceCapturePrefix_t prefix;
    ZceCaptureReadPrefix(data, &prefix);
    const size_t size = captured - ZCE_CAPTURE_PREFIX_SIZE;
    if (prefix.ucVersion != ZCE_CAPTURE_VERSION) {
        return fmt::format("version {}, expected {}", prefix.ucVersion, +ZCE_CAPTURE_VERSION);
    }
    if (prefix.ucKind != ZCE_CAPTURE_KIND_MESSAGE && prefix.ucKind != ZCE_CAPTURE_KIND_LOST) {
        return fmt::format("kind {}, expected {} (message) or {} (lost)", prefix.ucKind,
                           +ZCE_CAPTURE_KIND_MESSAGE, +ZCE_CAPTURE_KIND_LOST);
    }
    if (prefix.usChannel >= ZCE_CAPTURE_CHANNELS) {
        return fmt::format("channel {}, expected 0 to {}", prefix.usChannel,
                           ZCE_CAPTURE_CHANNELS - 1);
    }
    if (prefix.ucKind == ZCE_CAPTURE_KIND_LOST) {
        return size == 0 ? "" : fmt::format("{} bytes behind a note of lost messages", size);
    }
    if (size == 0 || size > LARGEST_MESSAGE) {
        return fmt::format("message of {} bytes, expected 1 to {}", size, LARGEST_MESSAGE);
    }
    return "";
}

CCaptureReader::Next CCaptureReader::Read(CaptureMessage& message) {
    uint64_t lostBefore = 0;
    while (m_state == Next::Message) {
        pcap_pkthdr* header = nullptr;
        const unsigned char* data = nullptr;
        const int result = pcap_next_ex(m_file.get(), &header, &data);
        if (result != 1) {
            return StopAt(result);
        }
        ++m_packets;
        const std::string fault = Fault(data, header->caplen, header->len);
        if (!fault.empty()) {
            return Stop(Next::Error, m_packets, fault);
        }
        ZceCapturePrefix_t prefix;
        ZceCaptureReadPrefix(data, &prefix);
        if (prefix.ucKind == ZCE_CAPTURE_KIND_LOST) {
            m_lost += prefix.ulNumber;
            lostBefore += prefix.ulNumber;
            continue;
        }
        message = {NsOf(header->ts),
                   prefix.usBus,
                   prefix.usChannel,
                   prefix.usOpening,
                   prefix.ulNumber,
                   m_packets,
                   lostBefore,
                   {data + ZCE_CAPTURE_PREFIX_SIZE, header->caplen - ZCE_CAPTURE_PREFIX_SIZE}};
        return Next::Message;
    }
    return m_state;
}

}  // namespace ZceCapture
