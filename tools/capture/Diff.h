#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "capture/CaptureReader.h"
#include "capturetool/Input.h"

namespace ZceCaptureTool {

struct DiffOptions {
    std::string a;
    std::string b;
    bool times = false;  // the messages' times too
};

// A channel of a board; messages of different channels have no order between captures.
struct ChannelId {
    uint16_t bus = 0;
    uint16_t channel = 0;
    bool operator==(const ChannelId&) const = default;
    bool operator<(const ChannelId& other) const {
        return bus != other.bus ? bus < other.bus : channel < other.channel;
    }
};

// A message with bytes of its own; packet 0: there is none.
struct KeptMessage {
    ZceCapture::CaptureMessage message;
    std::vector<unsigned char> bytes;
};

// What one channel has in two captures.
struct ChannelDiff {
    ChannelId id;
    uint64_t countA = 0;
    uint64_t countB = 0;
    bool same = true;
    // Of the first MAX_DETAILS channels that differ: the first message that does.
    uint64_t index = 0;  // in its channel, from 1; 0: not looked for
    KeptMessage a;
    KeptMessage b;
};

// Two captures side by side. The bytes of the messages count, in their order within each channel;
// which opening they belong to, their numbers and their packets do not.
class CDiff {
  public:
    static constexpr std::size_t MAX_CHANNELS = 65'536;
    static constexpr std::size_t MAX_DETAILS = 32;

    explicit CDiff(DiffOptions options) : m_options(std::move(options)) {}

    // Reads both. False with the reason if one cannot be opened.
    bool Read(std::string& error);

    // By bus and channel.
    const std::vector<ChannelDiff>& Channels() const { return m_channels; }
    // Where a file ended before its end; empty if both were read whole. What is before it has been
    // compared.
    const std::vector<std::string>& Ends() const { return m_ends; }
    bool Same() const;

  private:
    struct Side;
    bool ReadSide(const std::string& path, Side& side, std::string& error);
    bool FindFirst(ChannelDiff& channel, std::string& error) const;

    DiffOptions m_options;
    std::vector<ChannelDiff> m_channels;
    std::vector<std::string> m_ends;
};

// The counts of each channel, and each first message that differs, both of its sides.
std::string DiffText(const CDiff& diff, const DiffOptions& options);

// zce-capture diff. The exit status: 0 the same; 1 they differ, or one is cut; 2 one cannot be
// read.
int RunDiff(const DiffOptions& options);

}  // namespace ZceCaptureTool
