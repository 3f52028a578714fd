#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "capture/CaptureReader.h"
#include "capturetool/Input.h"
#include "capturetool/Rates.h"

namespace ZceCaptureTool {

// One opening of a stream.
struct StreamId {
    uint16_t bus = 0;
    uint16_t channel = 0;
    uint16_t opening = 0;
    bool operator==(const StreamId&) const = default;
    bool operator<(const StreamId& other) const {
        return std::tie(bus, channel, opening) < std::tie(other.bus, other.channel, other.opening);
    }
};

struct Count {
    uint64_t messages = 0;
    uint64_t bytes = 0;
};

// Numbers that were left out.
struct Missing {
    uint64_t places = 0;
    uint64_t numbers = 0;
};

// A place at which numbers are left out.
struct Gap {
    enum class Kind {
        Recorder,  // the recorder's numbering of the messages that were polled
        Board,     // the sequence number in the software board's bodies
    };
    Kind kind = Kind::Recorder;
    StreamId stream;
    uint64_t packet = 0;  // the first behind it
    int64_t timeNs = 0;
    uint64_t last = 0;  // the number before it
    uint64_t next = 0;  // the number behind it
    uint64_t missing = 0;
};

// What one opening of a stream has in a file.
struct StreamScan {
    Count all;
    int64_t firstNs = 0;
    int64_t lastNs = 0;
    uint64_t firstNumber = 0;
    uint64_t lastNumber = 0;
    Missing recorder;        // messages that were polled and are not in the file
    uint64_t notRising = 0;  // numbers that are not above the one before

    uint64_t bodies = 0;  // messages of the software board's, which have a sequence number
    uint64_t firstSeq = 0;
    uint64_t lastSeq = 0;
    Missing board;  // messages that the board sent and that were never polled
    uint64_t seqNotRising = 0;
    uint64_t unseen = 0;  // numbers left out by the recorder since the last sequence number

    std::map<uint32_t, Count> types;
    Count otherTypes;  // beyond the first MAX_TYPES different ones
};

// Reads captures through and counts what is in them. The memory does not grow with the messages.
class CScan {
  public:
    static constexpr std::size_t MAX_STREAMS = 65'536;
    static constexpr std::size_t MAX_TYPES = 64;
    static constexpr std::size_t MAX_GAPS = 20;

    explicit CScan(uint64_t burstGapNs) : m_bursts(burstGapNs) {}

    // Reads all of the file. False if it could not be opened, or has more streams than any recorder
    // writes; Error() says why. What was read until then is counted.
    bool Read(const std::string& path);

    const std::string& Path() const { return m_path; }
    uint64_t FileBytes() const { return m_fileBytes; }
    Ending End() const { return m_ending; }
    // Why it could not be read, or, if it ended Cut or Bad, where and why.
    const std::string& Error() const { return m_error; }

    uint64_t Packets() const { return m_packets; }
    const Count& All() const { return m_all; }
    uint64_t LostTold() const { return m_lostTold; }
    int64_t FirstNs() const { return m_firstNs; }
    int64_t LastNs() const { return m_lastNs; }
    // The last time less the first; 0 if it is the earlier one.
    uint64_t DurationNs() const { return NsBetween(m_firstNs, m_lastNs); }
    // Messages of types 17 to 20, and those of them whose body is the software board's.
    uint64_t Market() const { return m_market; }
    uint64_t Bodies() const { return m_bodies; }
    const std::map<StreamId, StreamScan>& Streams() const { return m_streams; }
    // The first MAX_GAPS of them, and how many there are.
    const std::vector<Gap>& Gaps() const { return m_gaps; }
    uint64_t GapCount() const { return m_gapCount; }
    const std::array<CPeakWindow, 3>& Peaks() const { return m_peaks; }
    const CBursts& Bursts() const { return m_bursts; }

  private:
    bool Take(const ZceCapture::CaptureMessage& message);
    StreamScan* StreamOf(const StreamId& id);
    void TakeNumber(const ZceCapture::CaptureMessage& message, StreamScan& stream);
    void TakeBody(const ZceCapture::CaptureMessage& message, StreamScan& stream);
    void TakeGap(const Gap& gap, Missing& missing);

    std::string m_path;
    uint64_t m_fileBytes = 0;
    Ending m_ending = Ending::Whole;
    std::string m_error;
    uint64_t m_packets = 0;
    Count m_all;
    uint64_t m_lostTold = 0;
    int64_t m_firstNs = 0;
    int64_t m_lastNs = 0;
    uint64_t m_market = 0;
    uint64_t m_bodies = 0;
    std::map<StreamId, StreamScan> m_streams;
    std::optional<StreamId> m_lastId;
    StreamScan* m_lastStream = nullptr;  // of m_lastId
    std::vector<Gap> m_gaps;
    uint64_t m_gapCount = 0;
    std::array<CPeakWindow, 3> m_peaks = {CPeakWindow(1'000'000'000), CPeakWindow(100'000'000),
                                          CPeakWindow(1'000'000)};
    CBursts m_bursts;
};

}  // namespace ZceCaptureTool
