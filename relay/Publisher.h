#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "relay/Connection.h"
#include "relay/MessageRing.h"
#include "relay/Wire.h"

namespace ZceRelay {

// What goes through the ring with a body.
struct TakenHead {
    uint64_t number;
    int64_t timeNs;
    uint32_t type;
    uint32_t size;
};

// The callbacks' end: one channel's messages, on their way from the polling thread.
class CTakenMessages {
  public:
    explicit CTakenMessages(size_t bytes) : m_ring(bytes) { m_ring.Touch(); }

    // The polling thread's. A full ring loses the message, which is counted, and goes on.
    void Take(uint32_t type, int64_t timeNs, const unsigned char* body, uint32_t size) {
        const TakenHead head{++m_number, timeNs, type, size};
        if (!m_ring.Put(head, body)) [[unlikely]] {
            m_lost.store(m_lost.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        }
        m_counted.store(m_number, std::memory_order_release);
    }

    // The other thread's, as the rest. Everything up to a number that Counted told before either is
    // in the ring or was lost.
    uint64_t Counted() const { return m_counted.load(std::memory_order_acquire); }
    uint64_t Lost() const { return m_lost.load(std::memory_order_relaxed); }
    bool Next(TakenHead& head, std::vector<unsigned char>& body) { return m_ring.Take(head, body); }

  private:
    CMessageRing<TakenHead> m_ring;
    alignas(64) uint64_t m_number = 0;
    std::atomic<uint64_t> m_lost{0};
    std::atomic<uint64_t> m_counted{0};
};

struct PublishOptions {
    uint16_t bus = 0;
    uint16_t channel = 0;
    bool bBoardBodies = true;  // they are those of ZceBoardMsg.h
    std::string stream;        // JetStream's; empty: none
    int64_t streamAgeNs = 0;   // how long it keeps a message, 0: for good
    int64_t streamBytes = 0;   // how much it keeps, 0: all
    size_t window = 4096;      // messages that may be published and not confirmed
};

struct PublishCounts {
    uint64_t published = 0;  // each once
    uint64_t confirmed = 0;  // of these
    uint64_t resent = 0;
};

// Publishes one channel's messages. Every message is kept until the server has confirmed that it
// has it; after a lost connection those that are not confirmed are sent once more, in their order,
// and whoever has them already knows them by their numbers. While there is no connection, or too
// much is not confirmed, the messages stay in the ring.
//
// A confirmation is asked for after 256 messages or 20 ms. With a stream it says that the stream
// has stored all that was published so far; without, that the server has got it. One thread, which
// may be held up by the server; the polling thread never is.
class CPublisher {
  public:
    CPublisher(const Settings& settings, const PublishOptions& options, Tell tell);

    ~CPublisher() { m_connection.Close(); }
    CPublisher(const CPublisher&) = delete;
    CPublisher& operator=(const CPublisher&) = delete;

    bool Prepare(std::string& error) { return m_connection.Prepare(error); }
    // One round: makes the connection if there is none and it is time to, publishes what is in the
    // ring, a bounded amount, and looks what was confirmed. Whether anything was published.
    bool Pass(CTakenMessages& taken);
    // Whether everything taken is confirmed.
    bool IsDone(const CTakenMessages& taken) const;
    // The instrument list: published when it changes, to whoever asks, and after each connecting.
    void SetInstruments(const std::string& list);

    PublishCounts Counts() const { return m_counts; }
    bool IsConnected() const { return m_connection.Get() != nullptr; }
    uint64_t Connects() const { return m_connection.Connects(); }
    // Ns that the caller may rest when a pass found nothing to do.
    int64_t WaitNs() const { return m_connection.WaitNs(); }

  private:
    bool Begin();
    bool MakeStream(std::string& reason);
    bool Build(const TakenHead& head, const std::vector<unsigned char>& body);
    bool Send();
    bool Ask(int64_t nowNs);
    void LookForConfirmations(int64_t nowNs);
    bool MayNotPublish() const;
    void TakeConfirmation(natsMsg* message, int64_t nowNs);
    bool PublishInstruments();
    void Lose(const std::string& reason);
    NatsMessage MakeMark(uint64_t number, const char* reply) const;

    PublishOptions m_options;
    CConnection m_connection;
    uint64_t m_session;
    std::string m_aSubjects[TYPES];
    std::string m_markSubject;

    // What is not confirmed; the first is the message after the last confirmed one, and those
    // before m_next have been sent in this connection.
    std::deque<NatsMessage> m_window;
    size_t m_next = 0;
    uint64_t m_lastNumber = 0;  // of the last one in the window, or that was
    uint64_t m_marked = 0;      // the highest number that a mark has told
    PublishCounts m_counts;

    std::string m_inbox;
    NatsSubscription m_confirmations;
    NatsSubscription m_wanted;
    uint64_t m_asked = 0;  // confirmed + window at the last question
    int64_t m_askedNs = 0;
    int64_t m_heardNs = 0;  // of the last confirmation, or when there was nothing to confirm
    bool m_bRefused = false;
    uint64_t m_refusals = 0;  // what was asked before the last one is answered too late
    int64_t m_sendAgainNs = 0;

    std::string m_instruments;
    bool m_bTellInstruments = false;
    std::vector<unsigned char> m_body;
};

}  // namespace ZceRelay
