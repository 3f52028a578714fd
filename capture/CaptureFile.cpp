#include "capture/CaptureFile.h"

#include <pcap/pcap.h>
#include <zstd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "capture/ZceCapture.h"

namespace ZceCapture {

namespace {

constexpr int64_t NS_PER_SECOND = 1'000'000'000;

}  // namespace

void CCaptureFile::Closer::operator()(ZSTD_CCtx_s* zstd) const {
    ZSTD_freeCCtx(zstd);
}

CCaptureFile::~CCaptureFile() {
    CloseDumper();
}

void CCaptureFile::CloseDumper() {
    if (m_dumper != nullptr) {
        pcap_dump_close(m_dumper);
        m_dumper = nullptr;
    }
    if (m_format != nullptr) {
        pcap_close(m_format);
        m_format = nullptr;
    }
}

ssize_t CCaptureFile::Append(void* file, const char* data, size_t size) {
    std::vector<char>& pending = static_cast<CCaptureFile*>(file)->m_pending;
    pending.insert(pending.end(), data, data + size);
    return static_cast<ssize_t>(size);
}

bool CCaptureFile::Open(const std::string& path, std::string& error) {
    return m_output.Open(path, error) && Begin(0, error);
}

bool CCaptureFile::Begin(int zstdLevel, std::string& error) {
    CloseDumper();
    m_pending.clear();
    m_now = Content();
    m_marked = Content();
    m_rewound = false;
    m_compresses = zstdLevel != 0;
    if (m_compresses) {
        if (m_zstd == nullptr) {
            m_zstd.reset(ZSTD_createCCtx());
        }
        m_compressed.resize(ZSTD_CStreamOutSize());
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
    if (m_dumper == nullptr || (m_compresses && m_zstd == nullptr)) {
        error = std::strerror(ENOMEM);
        m_output.Close();
        return false;
    }
    if (m_compresses) {
        ZSTD_CCtx_reset(m_zstd.get(), ZSTD_reset_session_only);
        ZSTD_CCtx_setParameter(m_zstd.get(), ZSTD_c_compressionLevel, zstdLevel);
        ZSTD_CCtx_setParameter(m_zstd.get(), ZSTD_c_checksumFlag, 1);
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

bool CCaptureFile::Push(Amount amount, std::string& error) {
    if (m_rewound) {
        return true;
    }
    const bool written =
        m_compresses ? PushZstd(amount, error) : Write(m_pending.data(), m_pending.size(), error);
    m_now.uncompressed += m_pending.size();
    m_pending.clear();
    return written;
}

bool CCaptureFile::PushZstd(Amount amount, std::string& error) {
    const ZSTD_EndDirective directive = amount == Amount::Continue ? ZSTD_e_continue
                                        : amount == Amount::Block  ? ZSTD_e_flush
                                                                   : ZSTD_e_end;
    m_now.checksum.Add(m_pending.data(), m_pending.size());
    ZSTD_inBuffer input{m_pending.data(), m_pending.size(), 0};
    size_t rest = 0;
    do {
        ZSTD_outBuffer output{m_compressed.data(), m_compressed.size(), 0};
        rest = ZSTD_compressStream2(m_zstd.get(), &output, &input, directive);
        if (ZSTD_isError(rest) != 0) {
            error = std::string("zstd: ") + ZSTD_getErrorName(rest);
            return false;
        }
        if (!Write(m_compressed.data(), output.pos, error)) {
            return false;
        }
        // A continued block keeps what it likes once it has taken all.
    } while (directive == ZSTD_e_continue ? input.pos != input.size : rest != 0);
    return true;
}

bool CCaptureFile::Write(const char* data, size_t size, std::string& error) {
    const uint64_t before = m_output.Written();
    const bool written = m_output.Write(data, size, error);
    const size_t done = m_output.Written() - before;
    m_now.bytes += done;
    m_now.hash.Add(data, done);
    return written;
}

void CCaptureFile::Mark() {
    m_marked = m_now;
}

void CCaptureFile::Rewind() {
    m_pending.clear();
    m_rewound = true;
    if (!m_output.Truncate(m_marked.bytes)) {
        return;
    }
    m_now = m_marked;
    if (m_compresses && m_now.bytes != 0) {
        EndFrame();
    }
}

// The end of a frame behind a whole block. The library's would be one of what is not in the file.
void CCaptureFile::EndFrame() {
    constexpr unsigned int bitsOfByte = 8;
    std::array<char, 7> end{1, 0, 0};  // a last block without anything, and the checksum
    const uint32_t checksum = m_now.checksum.Value();
    for (size_t k = 0; k < sizeof(checksum); ++k) {
        end.at(3 + k) = static_cast<char>(checksum >> (bitsOfByte * k));
    }
    std::string ignored;  // without it the file is cut, and readers know what to do
    Write(end.data(), end.size(), ignored);
}

}  // namespace ZceCapture
