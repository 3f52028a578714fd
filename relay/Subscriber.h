#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "relay/Connection.h"
#include "relay/Wire.h"

namespace ZceRelay {

struct SubscribeOptions {
    std::optional<uint16_t> bus;  // all buses if there is none
    std::string stream;           // JetStream's; empty: only what comes from now on
    // With a stream: where to begin. Nothing: with what comes from now on; 0: with all that it has.
    std::optional<int64_t> sinceNs;
    std::string name = "zce-relay subscribe";
};

// What has come.
struct Incoming {
    Subject subject;
    Sequence sequence;                    // not of a list
    int64_t timeNs = 0;                   // of market data
    std::span<const unsigned char> body;  // the subscriber's, valid until the next Next
};

// The messages of one or all buses, in each channel in the order in which they were published;
// after a lost connection some may be missing, or come again. With a stream it goes on behind the
// last message that came, and nothing is missing that the stream still has. One thread, which
// waits.
class CSubscriber {
  public:
    CSubscriber(const Settings& settings, const SubscribeOptions& options, Tell tell);

    ~CSubscriber() { m_connection.Close(); }
    CSubscriber(const CSubscriber&) = delete;
    CSubscriber& operator=(const CSubscriber&) = delete;

    bool Prepare(std::string& error) { return m_connection.Prepare(error); }
    // The next one; false if none came in this time, or there is no connection just now.
    bool Next(Incoming& incoming, int64_t waitMs);
    // Asks the publishers of the bus for the instrument list, if there is a connection.
    void AskForInstruments();

    bool IsConnected() const { return m_connection.Get() != nullptr && !m_connection.IsNew(); }
    uint64_t Connects() const { return m_connection.Connects(); }
    // Messages on the subjects that were none of a publisher's.
    uint64_t Foreign() const { return m_foreign; }

  private:
    bool Begin();
    natsStatus Subscribe(std::string& reason);
    natsStatus SubscribeStream(std::string& reason);
    bool Read(Incoming& incoming);

    SubscribeOptions m_options;
    std::string m_subject;
    CConnection m_connection;
    NatsJetStream m_js;
    NatsSubscription m_subscription;
    NatsMessage m_message;
    std::string m_lastReply;  // of the stream's last message: its place in the stream
    uint64_t m_foreign = 0;
};

// The place in its stream of a message that a stream delivered, by its reply subject; 0 if it tells
// none.
uint64_t StreamPlace(std::string_view reply);

}  // namespace ZceRelay
