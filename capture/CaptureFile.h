#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "capture/OutputFile.h"

struct pcap;
struct pcap_dumper;

namespace ZceCapture {

// A capture that is being written (ZceCapture.h). libpcap writes into memory, so that neither a
// flush of all of the program's files by another thread nor the end of a forked child gets near the
// capture; Flush brings it to the file.
class CCaptureFile {
  public:
    CCaptureFile() = default;
    ~CCaptureFile();
    CCaptureFile(const CCaptureFile&) = delete;
    CCaptureFile& operator=(const CCaptureFile&) = delete;

    // False with the reason.
    bool Open(const std::string& path, std::string& error);
    // Adds a packet: its bytes with the prefix.
    void Add(int64_t timeNs, const unsigned char* packet, uint32_t size);
    // The bytes that are not in the file yet.
    size_t Pending() const { return m_pending.size(); }
    // Writes them; false with the reason.
    bool Flush(std::string& error);
    // The bytes written so far, for any thread.
    uint64_t Written() const { return m_output.Written(); }
    void Close() { m_output.Close(); }

  private:
    static ssize_t Append(void* file, const char* data, size_t size);

    COutputFile m_output;
    std::vector<char> m_pending;
    pcap* m_format = nullptr;
    pcap_dumper* m_dumper = nullptr;
};

}  // namespace ZceCapture
