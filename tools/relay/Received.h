#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "capture/CaptureFile.h"
#include "relay/Order.h"
#include "relay/Subscriber.h"

namespace ZceRelay {

// What a subscriber has got: which of it comes next in its channel, and which is missing. With a
// capture it goes there, and so does a note of what is missing.
class CReceived {
  public:
    // False with the reason.
    bool OpenCapture(const std::string& path, std::string& error);
    void Take(const Incoming& incoming);
    // Brings what was taken to the capture's file; false with the reason.
    bool Flush(std::string& error);

    // A line for each channel, "zce-relay subscribe bus=0 channel=3 ...".
    std::string Lines() const;
    // One line for all.
    std::string StatusLine() const;
    uint64_t Lost() const;

  private:
    StreamCounts Total() const;
    void WriteMessage(const Incoming& incoming, const CStreamOrder& order);
    void WriteLost(const Incoming& incoming, const CStreamOrder& order);

    std::map<std::pair<uint16_t, uint16_t>, CStreamOrder> m_streams;  // by bus and channel
    std::unique_ptr<ZceCapture::CCaptureFile> m_capture;
    std::vector<unsigned char> m_packet;
    int64_t m_lastTimeNs = 0;
};

}  // namespace ZceRelay
