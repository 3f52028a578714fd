#include "capture/CaptureFile.h"

#include <pcap/pcap.h>

#include <cerrno>
#include <cstring>

#include "capture/ZceCapture.h"

namespace ZceCapture {

namespace {

constexpr int64_t NS_PER_SECOND = 1'000'000'000;

}  // namespace

CCaptureFile::~CCaptureFile() {
    if (m_dumper != nullptr) {
        pcap_dump_close(m_dumper);
    }
    if (m_format != nullptr) {
        pcap_close(m_format);
    }
}

ssize_t CCaptureFile::Append(void* file, const char* data, size_t size) {
    std::vector<char>& pending = static_cast<CCaptureFile*>(file)->m_pending;
    pending.insert(pending.end(), data, data + size);
    return static_cast<ssize_t>(size);
}

bool CCaptureFile::Open(const std::string& path, std::string& error) {
    if (!m_output.Open(path, error)) {
        return false;
    }
    m_format = pcap_open_dead_with_tstamp_precision(ZCE_CAPTURE_LINK_TYPE, ZCE_CAPTURE_SNAPLEN,
                                                    PCAP_TSTAMP_PRECISION_NANO);
    cookie_io_functions_t calls{};
    calls.write = &CCaptureFile::Append;
    std::FILE* stream = m_format != nullptr ? fopencookie(this, "w", calls) : nullptr;
    if (stream != nullptr) {
        setvbuf(stream, nullptr, _IONBF, 0);
        m_dumper = pcap_dump_fopen(m_format, stream);
    }
    if (m_dumper == nullptr) {
        error = std::strerror(ENOMEM);
        m_output.Close();
        return false;
    }
    return true;
}

void CCaptureFile::Add(int64_t timeNs, const unsigned char* packet, uint32_t size) {
    pcap_pkthdr header{};
    header.ts.tv_sec = timeNs / NS_PER_SECOND;
    header.ts.tv_usec = timeNs % NS_PER_SECOND;  // nanoseconds, by the file's precision
    header.caplen = size;
    header.len = size;
    pcap_dump(reinterpret_cast<unsigned char*>(m_dumper), &header, packet);
}

bool CCaptureFile::Flush(std::string& error) {
    const bool written = m_output.Write(m_pending.data(), m_pending.size(), error);
    m_pending.clear();
    return written;
}

}  // namespace ZceCapture
