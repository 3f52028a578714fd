#include "capture/InputFile.h"

#include <fcntl.h>
#include <unistd.h>
#include <zstd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace ZceCapture {

namespace {

constexpr size_t PIECE_BYTES = size_t{64} << 10;
// The first bytes of a zstd frame.
constexpr std::array<unsigned char, 4> ZSTD_MAGIC{0x28, 0xB5, 0x2F, 0xFD};

}  // namespace

void CInputFile::Closer::operator()(ZSTD_DCtx_s* zstd) const {
    ZSTD_freeDCtx(zstd);
}

CInputFile::~CInputFile() {
    if (m_fd >= 0) {
        close(m_fd);
    }
}

std::FILE* CInputFile::Open(const std::string& path) {
    m_fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (m_fd < 0) {
        return nullptr;
    }
    cookie_io_functions_t calls{};
    calls.read = &CInputFile::ReadFor;
    std::FILE* stream = fopencookie(this, "r", calls);
    if (stream != nullptr) {
        m_buffer.resize(PIECE_BYTES);
        setvbuf(stream, m_buffer.data(), _IOFBF, m_buffer.size());
    }
    return stream;
}

ssize_t CInputFile::ReadFor(void* file, char* to, size_t size) {
    return static_cast<CInputFile*>(file)->Read(to, size);
}

ssize_t CInputFile::ReadFile(char* to, size_t size) const {
    for (;;) {
        const ssize_t got = read(m_fd, to, size);
        if (got >= 0 || errno != EINTR) {
            return got;
        }
    }
}

// Looks at the first bytes. Below 0: they cannot be read.
ssize_t CInputFile::Begin() {
    m_taken.resize(ZSTD_MAGIC.size());
    size_t size = 0;
    while (size < m_taken.size()) {
        const ssize_t got = ReadFile(m_taken.data() + size, m_taken.size() - size);
        if (got < 0) {
            return got;
        }
        if (got == 0) {
            break;
        }
        size += static_cast<size_t>(got);
    }
    m_taken.resize(size);
    m_begun = true;
    if (size == ZSTD_MAGIC.size() && std::memcmp(m_taken.data(), ZSTD_MAGIC.data(), size) == 0) {
        m_zstd.reset(ZSTD_createDCtx());
        if (m_zstd == nullptr) {
            errno = ENOMEM;
            return -1;
        }
    }
    return 0;
}

ssize_t CInputFile::Read(char* to, size_t size) {
    if (!m_begun && Begin() < 0) {
        return -1;
    }
    return m_zstd != nullptr ? ReadZstd(to, size) : ReadPlain(to, size);
}

ssize_t CInputFile::ReadPlain(char* to, size_t size) {
    if (m_at == m_taken.size()) {
        return ReadFile(to, size);
    }
    const size_t given = std::min(size, m_taken.size() - m_at);
    std::memcpy(to, m_taken.data() + m_at, given);
    m_at += given;
    return static_cast<ssize_t>(given);
}

ssize_t CInputFile::ReadZstd(char* to, size_t size) {
    ZSTD_outBuffer output{to, size, 0};
    while (output.pos == 0 && m_fault.empty()) {
        ZSTD_inBuffer input{m_taken.data(), m_taken.size(), m_at};
        const size_t rest = ZSTD_decompressStream(m_zstd.get(), &output, &input);
        const bool moved = input.pos != m_at || output.pos != 0;
        m_at = input.pos;
        if (ZSTD_isError(rest) != 0) {
            m_fault = std::string("zstd: ") + ZSTD_getErrorName(rest);
            break;
        }
        // A call that had nothing to take says nothing of the frame.
        m_inFrame = moved ? rest != 0 : m_inFrame;
        if (output.pos != 0 || m_at != m_taken.size()) {
            continue;
        }
        m_taken.resize(PIECE_BYTES);
        const ssize_t got = ReadFile(m_taken.data(), m_taken.size());
        m_taken.resize(got > 0 ? static_cast<size_t>(got) : 0);
        m_at = 0;
        if (got <= 0) {
            m_cut = got == 0 && m_inFrame;
            return got;
        }
    }
    if (output.pos == 0) {
        errno = EIO;
        return -1;
    }
    return static_cast<ssize_t>(output.pos);
}

}  // namespace ZceCapture
