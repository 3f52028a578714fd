#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "capture/FileHash.h"
#include "capture/OutputFile.h"

struct pcap;
struct pcap_dumper;
struct ZSTD_CCtx_s;

namespace ZceCapture {

// A capture that is being written (ZceCapture.h), one after the other. libpcap writes into memory,
// so that neither a flush of all of the program's files by another thread nor the end of a forked
// child gets near the capture; Flush brings it to the file, and compresses it on the way if it was
// begun so.
class CCaptureFile {
  public:
    static constexpr int LOWEST_LEVEL = 1;
    static constexpr int HIGHEST_LEVEL = 19;
    static constexpr int USUAL_LEVEL = 3;
    // What stands in the file before the bytes of each packet.
    static constexpr uint64_t PACKET_HEAD = 16;

    CCaptureFile() = default;
    ~CCaptureFile();
    CCaptureFile(const CCaptureFile&) = delete;
    CCaptureFile& operator=(const CCaptureFile&) = delete;

    // Makes or empties the file, and begins a capture in it. False with the reason.
    bool Open(const std::string& path, std::string& error);
    // Begins a capture in the file that Output() has open; compressed with a zstd level other than
    // 0. False with the reason; the file is then closed.
    bool Begin(int zstdLevel, std::string& error);
    // Adds a packet: its bytes with the prefix.
    void Add(int64_t timeNs, const unsigned char* packet, uint32_t size);
    // The bytes that Flush has not got yet.
    size_t Pending() const { return m_pending.size(); }
    // Writes them; false with the reason. A compressed file keeps some of them back, so that they
    // compress well, and has all of them only after a flush of its block.
    bool Flush(std::string& error) { return Push(Amount::Continue, error); }
    bool FlushBlock(std::string& error) { return Push(Amount::Block, error); }
    // Writes all that there is, and the end of a compressed file; false with the reason. The file
    // is then still open.
    bool End(std::string& error) { return Push(Amount::End, error); }
    void Close() { m_output.Close(); }

    COutputFile& Output() { return m_output; }
    const COutputFile& Output() const { return m_output; }
    // The bytes written so far, for any thread.
    uint64_t Written() const { return m_output.Written(); }
    // What is in the file now stays; all behind it goes at Rewind, after a write that failed. Right
    // after a flush, of the block if it is compressed: a regular file then is a whole capture,
    // which nothing is added to any more.
    void Mark();
    void Rewind();
    // Of this capture: the bytes in the file, those of the same capture uncompressed, and the
    // XXH3-128 of the first.
    uint64_t Bytes() const { return m_now.bytes; }
    uint64_t UncompressedBytes() const { return m_now.uncompressed + m_pending.size(); }
    std::string Hash() const { return m_now.hash.Text(); }

  private:
    enum class Amount { Continue, Block, End };
    struct Closer {
        void operator()(ZSTD_CCtx_s* zstd) const;
    };

    static ssize_t Append(void* file, const char* data, size_t size);
    void CloseDumper();
    bool Push(Amount amount, std::string& error);
    bool PushZstd(Amount amount, std::string& error);
    bool Write(const char* data, size_t size, std::string& error);
    void EndFrame();

    COutputFile m_output;
    std::vector<char> m_pending;
    pcap* m_format = nullptr;
    pcap_dumper* m_dumper = nullptr;
    std::unique_ptr<ZSTD_CCtx_s, Closer> m_zstd;
    bool m_compresses = false;
    bool m_rewound = false;
    std::vector<char> m_compressed;
    // What this capture has in the file.
    struct Content {
        uint64_t bytes = 0;
        uint64_t uncompressed = 0;
        CFileHash hash;
        CFrameChecksum checksum;  // of a compressed one
    };
    Content m_now;
    Content m_marked;
};

}  // namespace ZceCapture
