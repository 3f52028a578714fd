#include <unistd.h>

#include <cstddef>
#include <cstdio>

#include "VelaZceUtils.h"

unsigned int g_uiPktCnt = 0;

namespace {

constexpr char g_szHexDigits[] = "0123456789ABCDEF";
constexpr unsigned int g_uiEndBytes = 2;  // the line end and the zero
constexpr unsigned int g_uiPairBytes = 2;
constexpr unsigned int g_uiKeyMask = 255;
constexpr std::size_t g_uiCounterBytes = 16;

// Not dprintf(): where the write fails, that of glibc loses the memory of its buffer.
void WriteCounter(int fd) {
    char text[g_uiCounterBytes];
    const int length = std::snprintf(text, sizeof(text), "%d--", static_cast<int>(g_uiPktCnt));
    if (write(fd, text, static_cast<std::size_t>(length)) != length) {
        return;  // a debug file that cannot be written holds nobody up
    }
}

// Puts pairs for as many of the bytes into `buf` as leave room for the end; returns their number.
unsigned int FillPairs(char* buf, unsigned int bufLen, const unsigned char* data,
                       unsigned int dataLen) {
    const unsigned int room = bufLen < g_uiEndBytes ? 0 : (bufLen - g_uiEndBytes) / g_uiPairBytes;
    const unsigned int count = dataLen < room ? dataLen : room;
    for (unsigned int at = 0; at < count; ++at) {
        *buf++ = g_szHexDigits[data[at] >> 4U];
        *buf++ = g_szHexDigits[data[at] & 0xFU];
    }
    return count;
}

}  // namespace

void FillDebugFileHex(char* buf, unsigned int bufLen, int fd, const unsigned char* data,
                      unsigned int dataLen) {
    WriteCounter(fd);
    const unsigned int room = buf == nullptr ? 0 : bufLen;
    const unsigned int total = data == nullptr ? 0 : dataLen;
    const unsigned int written = FillPairs(buf, room, data, total);
    const unsigned int end = written * g_uiPairBytes;
    if (room >= g_uiEndBytes) {
        buf[end] = '\n';
        buf[end + 1] = '\0';
    } else if (room == 1) {
        buf[0] = '\0';
    }
    if (written < total) {
        std::printf("Left %u bytes not write into file. totalSizes:%u, writed:%u.\n",
                    total - written, total, written);
    }
}

void CheckSeqNumIncre(unsigned int* table, unsigned int seq, unsigned int key) {
    if (table == nullptr) {
        return;
    }
    unsigned int& last = table[key & g_uiKeyMask];
    if (last != 0 && seq != last + 1) {
        std::printf("ERROR! not equal!! old_seq %u, current seq %u. \n", last, seq);
    }
    last = seq;
}
