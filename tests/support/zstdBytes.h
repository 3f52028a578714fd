#pragma once

#include <zstd.h>

#include <cstddef>
#include <string>

namespace velatest {

// One zstd frame with a checksum. With `blockBytes` a block ends behind each so many bytes, as a
// writer makes it that flushes.
inline std::string ZstdFrame(const std::string& bytes, size_t blockBytes = 0) {
    ZSTD_CCtx* zstd = ZSTD_createCCtx();
    ZSTD_CCtx_setParameter(zstd, ZSTD_c_checksumFlag, 1);
    std::string frame(ZSTD_compressBound(bytes.size()) + bytes.size() + 1024, '\0');
    ZSTD_outBuffer output{frame.data(), frame.size(), 0};
    ZSTD_inBuffer input{bytes.data(), bytes.size(), 0};
    while (blockBytes != 0 && input.pos + blockBytes < bytes.size()) {
        input.size = input.pos + blockBytes;
        ZSTD_compressStream2(zstd, &output, &input, ZSTD_e_flush);
    }
    input.size = bytes.size();
    ZSTD_compressStream2(zstd, &output, &input, ZSTD_e_end);
    ZSTD_freeCCtx(zstd);
    frame.resize(output.pos);
    return frame;
}

}  // namespace velatest
