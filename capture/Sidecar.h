#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ZceCapture {

// What stands beside a capture in a small JSON file: what the capture holds when it is whole.
struct Sidecar {
    static constexpr int VERSION = 1;

    enum class State {
        Writing,   // the recorder has begun the file; it has not ended it
        Complete,  // ended as intended: the application's end, or the next file of a rotation
        Stopped,   // ended before, and why is in `ended`; what is in the file is whole
    };

    // What one opening of a stream has in the file.
    struct Stream {
        uint16_t bus = 0;  // 65535: not known
        uint16_t channel = 0;
        uint16_t opening = 0;
        uint64_t messages = 0;
        uint64_t lost = 0;   // by the recorder, as noted in this file
        uint64_t first = 0;  // numbers of the first and the last message; 0: there is none
        uint64_t last = 0;
    };

    std::string file;  // its name, without directory
    State state = State::Writing;
    std::string ended;        // "application", "size", "time", or why the recording stopped
    std::string compression;  // "none" or "zstd"
    uint64_t bytes = 0;       // of the file
    uint64_t uncompressedBytes = 0;
    std::string xxh128;  // of the file's bytes, as xxh128sum prints it
    uint64_t messages = 0;
    uint64_t lost = 0;
    int64_t firstTimeNs = 0;  // of the first message, ns since the epoch; 0 without a message
    int64_t lastTimeNs = 0;
    uint64_t number = 1;   // of the file in its recording
    std::string previous;  // paths of the neighbours in a rotation, relative to this file's folder
    std::string next;
    std::vector<Stream> streams;
};

// "day.pcap" has "day.pcap.json".
std::string SidecarPath(const std::string& capture);

// The text of the file. Any bytes in the names give valid JSON.
std::string SidecarText(const Sidecar& sidecar);

// Puts the file beside the capture, in place of one that is there, at one go. False with the
// reason; the one that was there is then left as it was.
bool WriteSidecar(const std::string& capture, const Sidecar& sidecar, std::string& error);

}  // namespace ZceCapture
