#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "capture/InputFile.h"

struct pcap;

namespace ZceCapture {

// One DMA message of a capture.
struct CaptureMessage {
    int64_t timeNs = 0;  // of its poll, ns since the epoch
    uint16_t bus = 0;    // ZCE_CAPTURE_BUS_UNKNOWN: not known
    uint16_t channel = 0;
    uint16_t opening = 0;
    uint64_t number = 0;                   // in its opening, from 1
    uint64_t packet = 0;                   // its packet's number in the file, from 1
    uint64_t lostBefore = 0;               // messages lost, of any stream, since the one before
    std::span<const unsigned char> bytes;  // the reader's, valid until the next Read
};

// The type that a message's head gives; missing bytes of a shorter one count as 0.
uint32_t TypeOf(std::span<const unsigned char> message);

// Reads a capture (ZceCapture.h) message by message: any file that libpcap reads and that has the
// captures' link type, as it is or compressed by zstd. One thread.
class CCaptureReader {
  public:
    enum class Next {
        Message,
        End,
        Cut,    // the file ends in the middle of a packet; all before it has been read
        Error,  // Error() says what and where
    };

    // Bytes of the largest message that an application can have polled.
    static constexpr size_t LARGEST_MESSAGE = 2048;

    CCaptureReader() = default;

    // Opens the file at its beginning; false with the reason in `error`, which names the file.
    bool Open(const std::string& path, std::string& error);
    // The next message, into `message`. What is not Message stays: asking again says the same.
    Next Read(CaptureMessage& message);
    // Why Read said Error or Cut, with file and packet: "day.pcap: packet 17: ...".
    const std::string& Error() const { return m_error; }
    // Whether the file is compressed; known from Open on.
    bool IsZstd() const { return m_input != nullptr && m_input->IsZstd(); }
    // Whole packets read so far, notes of lost messages included.
    uint64_t Packets() const { return m_packets; }
    // The messages that the recorder lost, as far as the file has been read.
    uint64_t Lost() const { return m_lost; }

  private:
    struct Closer {
        void operator()(pcap* file) const;
    };

    Next StopAt(int result);
    Next Stop(Next result, uint64_t packet, const std::string& reason);
    // What is wrong with a packet; empty if nothing is.
    static std::string Fault(const unsigned char* data, size_t captured, size_t original);

    std::string m_path;
    std::unique_ptr<CInputFile> m_input;  // m_file reads from it: gone after it
    std::unique_ptr<pcap, Closer> m_file;
    Next m_state = Next::End;
    std::string m_error;
    uint64_t m_packets = 0;
    uint64_t m_lost = 0;
};

}  // namespace ZceCapture
