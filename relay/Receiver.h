#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "relay/Received.h"
#include "relay/Subscriber.h"

namespace ZceRelay {

// A thread of its own that receives the messages of a bus for somebody who must not wait. While the
// ring is full it waits, and what comes waits in the client, up to its bounds.
class CReceiver {
  public:
    // The options name a bus. `messages` outlives this object.
    CReceiver(const Settings& settings, const SubscribeOptions& options,
              CReceivedMessages& messages, Tell tell);
    ~CReceiver();
    CReceiver(const CReceiver&) = delete;
    CReceiver& operator=(const CReceiver&) = delete;

    // What can be said against the settings without a server: false with the reason.
    bool Prepare(std::string& error) { return m_subscriber.Prepare(error); }
    // Begins to receive; the thread takes no signals.
    void Start();

  private:
    void Run();
    void Take(const Incoming& incoming);
    void AskForList();

    CSubscriber m_subscriber;
    CReceivedMessages& m_messages;
    bool m_bHasList = false;
    int64_t m_nextQuestionNs = 0;
    std::vector<unsigned char> m_bytes;
    std::atomic<bool> m_bEnd{false};
    std::thread m_thread;  // the last one: it uses all others
};

}  // namespace ZceRelay
