#include "relay/Connection.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <utility>
#include <vector>

#include "relay/Wire.h"

namespace ZceRelay {

namespace {

constexpr int64_t FIRST_WAIT_NS = 100 * NS_PER_MS;
constexpr int64_t LONGEST_WAIT_NS = 5000 * NS_PER_MS;
constexpr int64_t CONNECT_MS = 2000;
constexpr int64_t WRITE_MS = 10'000;
constexpr int64_t PING_MS = 5000;
constexpr int PINGS_OUT = 2;
// As much as one write to the socket takes at most.
constexpr int BUFFER_BYTES = 65536;

// What to do about it, in words; empty for what has no such words.
std::string Advice(natsStatus status, const std::string& reason) {
    if (status == NATS_CONNECTION_AUTH_FAILED || reason.find("uthorization") != std::string::npos ||
        reason.find("uthentication") != std::string::npos) {
        return "; look at user and password, token, nkey or credentials in the settings file, and "
               "at those of the server";
    }
    if (status == NATS_SSL_ERROR || status == NATS_SECURE_CONNECTION_REQUIRED ||
        status == NATS_SECURE_CONNECTION_WANTED) {
        return "; look at tls, ca, certificate and key in the settings file, and at those of the "
               "server";
    }
    if (status == NATS_NO_SERVER || status == NATS_TIMEOUT) {
        return "; look whether nats-server runs there";
    }
    return "";
}

}  // namespace

std::string NatsReason(natsStatus status) {
    const char* text = nats_GetLastError(nullptr);
    if (text == nullptr || *text == '\0') {
        return natsStatus_GetText(status);
    }
    // "(conn.c:1905): Authorization Violation": where it is in the client's source helps nobody.
    const std::string whole = text;
    const size_t end = whole.starts_with('(') ? whole.find("): ") : std::string::npos;
    return end == std::string::npos ? whole : whole.substr(end + 3);
}

int64_t NowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

CBackOff::CBackOff() : m_random(std::random_device{}()) {}

int64_t CBackOff::Next() {
    m_waitNs = std::clamp(2 * m_waitNs, FIRST_WAIT_NS, LONGEST_WAIT_NS);
    std::uniform_int_distribution<int64_t> around(-m_waitNs / 4, m_waitNs / 4);
    return m_waitNs + around(m_random);
}

CConnection::CConnection(const Settings& settings, std::string name, Tell tell)
    : m_settings(settings), m_name(std::move(name)), m_tell(std::move(tell)) {}

bool CConnection::Prepare(std::string& error) {
    natsOptions* options = nullptr;
    natsStatus status = natsOptions_Create(&options);
    m_options.reset(options);
    const auto set = [&status, &error](const std::string& what, auto&& call) {
        if (status == NATS_OK) {
            status = call();
            if (status != NATS_OK) {
                error = fmt::format("{}: {}", what, NatsReason(status));
            }
        }
    };
    const std::vector<std::string_view> split = SplitText(m_settings.server, ',');
    const std::vector<std::string> servers(split.begin(), split.end());
    std::vector<const char*> addresses;
    addresses.reserve(servers.size());
    for (const std::string& server : servers) {
        addresses.push_back(server.c_str());
    }
    set(m_settings.server, [&] {
        return natsOptions_SetServers(options, addresses.data(),
                                      static_cast<int>(addresses.size()));
    });
    set("the connection", [&] {
        // Made anew by IsUp: what the client keeps to send it later would come in front of what is
        // sent once more.
        natsOptions_SetAllowReconnect(options, false);
        natsOptions_SetTimeout(options, CONNECT_MS);
        natsOptions_SetWriteDeadline(options, WRITE_MS);
        natsOptions_SetPingInterval(options, PING_MS);
        natsOptions_SetMaxPingsOut(options, PINGS_OUT);
        natsOptions_SetIOBufSize(options, BUFFER_BYTES);
        return natsOptions_SetName(options, m_name.c_str());
    });
    if (!m_settings.user.empty()) {
        set("user", [&] {
            return natsOptions_SetUserInfo(options, m_settings.user.c_str(),
                                           m_settings.password.c_str());
        });
    }
    if (!m_settings.token.empty()) {
        set("token", [&] { return natsOptions_SetToken(options, m_settings.token.c_str()); });
    }
    if (!m_settings.nkey.empty()) {
        set(m_settings.nkeySeed, [&] {
            return natsOptions_SetNKeyFromSeed(options, m_settings.nkey.c_str(),
                                               m_settings.nkeySeed.c_str());
        });
    }
    if (!m_settings.credentials.empty()) {
        set(m_settings.credentials, [&] {
            return natsOptions_SetUserCredentialsFromFiles(options, m_settings.credentials.c_str(),
                                                           nullptr);
        });
    }
    if (m_settings.bTls || !m_settings.ca.empty() || !m_settings.certificate.empty()) {
        set("tls", [&] { return natsOptions_SetSecure(options, true); });
    }
    if (!m_settings.ca.empty()) {
        set(m_settings.ca,
            [&] { return natsOptions_LoadCATrustedCertificates(options, m_settings.ca.c_str()); });
    }
    if (!m_settings.certificate.empty()) {
        set(m_settings.certificate, [&] {
            return natsOptions_LoadCertificatesChain(options, m_settings.certificate.c_str(),
                                                     m_settings.key.c_str());
        });
    }
    return status == NATS_OK;
}

bool CConnection::IsUp() {
    if (m_connection != nullptr) {
        if (!natsConnection_IsClosed(m_connection.get())) {
            return true;
        }
        std::string reason;
        LastError(reason);
        Lose(reason.empty() ? "it was closed" : reason);
    }
    return NowNs() >= m_nextTryNs && Connect();
}

bool CConnection::Connect() {
    natsConnection* connection = nullptr;
    const natsStatus status = natsConnection_Connect(&connection, m_options.get());
    if (status != NATS_OK) {
        const std::string reason = NatsReason(status);
        const std::string whole = reason + Advice(status, reason);
        if (m_bLost && status == NATS_NO_SERVER) {
            m_told = whole;  // that it went was told
        }
        Fail(whole);
        return false;
    }
    m_connection.reset(connection);
    m_bBegun = false;
    return true;
}

void CConnection::Begun() {
    m_bBegun = true;
    m_backOff.Succeeded();
    m_told.clear();
    m_bLost = false;
    ++m_connects;
    Say("connected");
}

void CConnection::Lose(const std::string& reason) {
    const bool bBegun = m_bBegun;
    Close();
    if (bBegun) {
        m_nextTryNs = NowNs() + m_backOff.Next();
        m_bLost = true;
        Say("the connection was lost: " + reason + "; tried again and again");
    } else {
        Fail(reason);
    }
}

void CConnection::Fail(const std::string& reason) {
    m_nextTryNs = NowNs() + m_backOff.Next();
    if (reason != m_told) {
        m_told = reason;
        Say("not connected: " + reason + "; tried again and again");
    }
}

void CConnection::Close() {
    if (m_connection != nullptr && m_onClose) {
        m_onClose();
    }
    m_bBegun = false;
    m_connection.reset();
}

natsStatus CConnection::LastError(std::string& reason) const {
    const char* error = nullptr;
    const natsStatus status = natsConnection_GetLastError(m_connection.get(), &error);
    reason = error != nullptr ? error : "";
    return status;
}

std::string CConnection::Why(natsStatus status) const {
    std::string reason;
    LastError(reason);
    return reason.empty() ? NatsReason(status) : reason;
}

int64_t CConnection::WaitNs() const {
    return m_connection != nullptr ? 0 : std::max<int64_t>(m_nextTryNs - NowNs(), 0);
}

void CConnection::Say(const std::string& what) const {
    m_tell(fmt::format("{}: {}", m_settings.server, what));
}

}  // namespace ZceRelay
