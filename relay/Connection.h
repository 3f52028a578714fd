#pragma once

#include <nats/nats.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>

#include "relay/Settings.h"

namespace ZceRelay {

constexpr int64_t NS_PER_MS = 1'000'000;
// How long a question to JetStream may take.
constexpr int64_t REQUEST_MS = 2000;

// Takes lines that tell what happens, without a line end.
using Tell = std::function<void(const std::string&)>;

template <class Thing, void (*destroy)(Thing*)>
struct NatsDeleter {
    void operator()(Thing* thing) const { destroy(thing); }
};
template <class Thing, void (*destroy)(Thing*)>
using NatsOwned = std::unique_ptr<Thing, NatsDeleter<Thing, destroy>>;

using NatsMessage = NatsOwned<natsMsg, natsMsg_Destroy>;
using NatsSubscription = NatsOwned<natsSubscription, natsSubscription_Destroy>;
using NatsJetStream = NatsOwned<jsCtx, jsCtx_Destroy>;

// "NATS's words", as it tells the last error of the calling thread.
std::string NatsReason(natsStatus status);
// Monotonic, in ns.
int64_t NowNs();

// When to try again: after 0.1 s, and twice as long each time, up to 5 s; a quarter more or less,
// so that a hundred hosts do not come back to a server at the same moment.
class CBackOff {
  public:
    CBackOff();
    void Succeeded() { m_waitNs = 0; }
    // Ns until the next attempt.
    int64_t Next();

  private:
    std::minstd_rand m_random;
    int64_t m_waitNs = 0;
};

// One connection to a NATS server that is made anew when it is lost: nothing that was under way in
// an old one comes later in a new one. One thread. What happens is told once each: that it is up,
// that it was lost or cannot be made, and why, another reason again.
class CConnection {
  public:
    // `name`: as the server's monitoring shows it, "zce-relay publish zce.0.3".
    CConnection(const Settings& settings, std::string name, Tell tell);
    ~CConnection() { Close(); }
    CConnection(const CConnection&) = delete;
    CConnection& operator=(const CConnection&) = delete;

    // What can be said against the settings without a server: false with the reason. Once, at the
    // beginning.
    bool Prepare(std::string& error);
    // Whether it is up. If not, and it is time to, tries: waits 2 s at most.
    bool IsUp();
    // Whether it is up and Begun was not called for it yet.
    bool IsNew() const { return m_connection != nullptr && !m_bBegun; }
    // Its owner has what it needs of a new connection: from here on it counts as up.
    void Begun();
    // Gives the connection up, for a reason.
    void Lose(const std::string& reason);
    void Close();
    // Its owner's subscriptions go first.
    void OnClose(std::function<void()> onClose) { m_onClose = std::move(onClose); }
    natsConnection* Get() const { return m_connection.get(); }
    // The last error of this connection, in the client's or the server's words, and which it is;
    // NATS_OK and empty: there was none.
    natsStatus LastError(std::string& reason) const;
    // Why a call failed: what the server said, of what a user may not do above all; else the
    // client's reason.
    std::string Why(natsStatus status) const;
    // Ns until the next attempt, 0 if it is up.
    int64_t WaitNs() const;
    uint64_t Connects() const { return m_connects; }
    // Tells a line that begins with the server.
    void Say(const std::string& what) const;

  private:
    bool Connect();
    void Fail(const std::string& reason);

    Settings m_settings;
    std::string m_name;
    Tell m_tell;
    std::function<void()> m_onClose;
    NatsOwned<natsOptions, natsOptions_Destroy> m_options;
    NatsOwned<natsConnection, natsConnection_Destroy> m_connection;
    CBackOff m_backOff;
    int64_t m_nextTryNs = 0;
    std::string m_told;  // the last reason
    bool m_bBegun = false;
    bool m_bLost = false;  // it was up before
    uint64_t m_connects = 0;
};

}  // namespace ZceRelay
