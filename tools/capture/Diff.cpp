#include "capturetool/Diff.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <map>

#include "capture/FileHash.h"
#include "capturetool/Status.h"
#include "program/Printable.h"
#include "program/Program.h"

namespace ZceCaptureTool {

using ZceCapture::CaptureMessage;
using ZceCapture::CCaptureReader;

namespace {

// The messages of one channel, one after the other.
class CChannelMessages {
  public:
    CChannelMessages(const ChannelId& id, std::string path) : m_id(id), m_path(std::move(path)) {}

    bool Open(std::string& error) { return OpenCapture(m_path, m_reader, error); }
    // The next one; one of packet 0 if there is none.
    const CaptureMessage& Next() {
        while (m_reader.Read(m_message) == CCaptureReader::Next::Message) {
            if (m_message.bus == m_id.bus && m_message.channel == m_id.channel) {
                return m_message;
            }
        }
        return m_message = {};
    }

  private:
    ChannelId m_id;
    std::string m_path;
    CCaptureReader m_reader;
    CaptureMessage m_message;
};

KeptMessage Kept(const CaptureMessage& message) {
    return {message, {message.bytes.begin(), message.bytes.end()}};
}

}  // namespace

// How many messages each channel has, and the hash of them all.
struct CDiff::Side {
    struct Digest {
        uint64_t messages = 0;
        ZceCapture::CFileHash hash;
    };
    std::map<ChannelId, Digest> channels;
};

bool CDiff::ReadSide(const std::string& path, Side& side, std::string& error) {
    CCaptureReader reader;
    if (!OpenCapture(path, reader, error)) {
        return false;
    }
    CaptureMessage message;
    CCaptureReader::Next next = reader.Read(message);
    for (; next == CCaptureReader::Next::Message; next = reader.Read(message)) {
        Side::Digest& digest = side.channels[{message.bus, message.channel}];
        if (side.channels.size() > MAX_CHANNELS) {
            error = fmt::format("{}: packet {}: more than {} channels: no recorder wrote this",
                                path, message.packet, MAX_CHANNELS);
            return false;
        }
        ++digest.messages;
        const uint64_t size = message.bytes.size();
        digest.hash.Add(&size, sizeof(size));
        digest.hash.Add(message.bytes.data(), message.bytes.size());
        if (m_options.times) {
            digest.hash.Add(&message.timeNs, sizeof(message.timeNs));
        }
    }
    if (EndingOf(next) != Ending::Whole) {
        m_ends.push_back(reader.Error());
    }
    return true;
}

bool CDiff::FindFirst(ChannelDiff& channel, std::string& error) const {
    CChannelMessages a(channel.id, m_options.a);
    CChannelMessages b(channel.id, m_options.b);
    if (!a.Open(error) || !b.Open(error)) {
        return false;
    }
    for (;;) {
        const CaptureMessage& one = a.Next();
        const CaptureMessage& other = b.Next();
        ++channel.index;
        const bool bEnd = one.packet == 0 || other.packet == 0;
        if (bEnd || !std::ranges::equal(one.bytes, other.bytes) ||
            (m_options.times && one.timeNs != other.timeNs)) {
            channel.a = Kept(one);
            channel.b = Kept(other);
            return true;
        }
    }
}

bool CDiff::Read(std::string& error) {
    Side a;
    Side b;
    if (!ReadSide(m_options.a, a, error) || !ReadSide(m_options.b, b, error)) {
        return false;
    }
    for (const auto& [id, digest] : b.channels) {
        a.channels[id];  // all channels of both
    }
    std::size_t details = 0;
    for (const auto& [id, digest] : a.channels) {
        const Side::Digest& other = b.channels[id];
        ChannelDiff channel{id, digest.messages, other.messages, true, 0, {}, {}};
        channel.same = channel.countA == channel.countB && digest.hash.Text() == other.hash.Text();
        if (!channel.same && ++details <= MAX_DETAILS && !FindFirst(channel, error)) {
            return false;
        }
        m_channels.push_back(std::move(channel));
    }
    return true;
}

bool CDiff::Same() const {
    return std::ranges::all_of(m_channels, [](const ChannelDiff& channel) { return channel.same; });
}

int RunDiff(const DiffOptions& options) {
    CDiff diff(options);
    std::string error;
    if (!diff.Read(error)) {
        fprintf(stderr, "zce-capture: %s\n", ZceProgram::Printable(error).c_str());
        return ZceProgram::EXIT_NOT_DONE;
    }
    for (const std::string& end : diff.Ends()) {
        fprintf(stderr, "zce-capture: %s: what is before it is compared\n",
                ZceProgram::Printable(end).c_str());
    }
    const bool bWell = diff.Same() && diff.Ends().empty();
    return ZceProgram::WriteOutput("zce-capture", DiffText(diff, options),
                                   bWell ? ZceProgram::EXIT_FINE : EXIT_NOT_WELL);
}

}  // namespace ZceCaptureTool
