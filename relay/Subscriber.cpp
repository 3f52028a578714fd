#include "relay/Subscriber.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <thread>
#include <utility>
#include <vector>

namespace ZceRelay {

namespace {

// What may wait in the client for a reader that is slow. What does not fit is lost, and missed by
// its numbers; a stream is asked for it again.
constexpr int PENDING_BYTES = 256 << 20;
constexpr int ALL_MESSAGES = -1;

std::string_view HeaderOf(natsMsg* message, const char* name) {
    const char* text = nullptr;
    return natsMsgHeader_Get(message, name, &text) == NATS_OK && text != nullptr ? text : "";
}

int64_t WallNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace

// "$JS.ACK.<stream>.<consumer>.<delivered>.<place>.<...>.<time>.<pending>"; where the server has a
// domain, it and an account stand behind "ACK".
uint64_t StreamPlace(std::string_view reply) {
    constexpr size_t place = 5;
    constexpr size_t words = 9;
    constexpr size_t domainWords = 2;
    const std::vector<std::string_view> word = SplitText(reply, '.');
    if (word.size() < words || word[0] != "$JS" || word[1] != "ACK") {
        return 0;
    }
    const std::string_view text = word[word.size() == words ? place : place + domainWords];
    uint64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

CSubscriber::CSubscriber(const Settings& settings, const SubscribeOptions& options, Tell tell)
    : m_options(options),
      m_subject(options.bus ? fmt::format("zce.{}.>", *options.bus) : "zce.>"),
      m_connection(settings, options.name, std::move(tell)) {
    m_connection.OnClose([this] {
        m_message.reset();
        m_subscription.reset();
        m_js.reset();
    });
}

bool CSubscriber::Next(Incoming& incoming, int64_t waitMs) {
    if (!m_connection.IsUp() || (m_connection.IsNew() && !Begin())) {
        const int64_t restNs = std::min(m_connection.WaitNs(), waitMs * NS_PER_MS);
        std::this_thread::sleep_for(std::chrono::nanoseconds(restNs));
        return false;
    }
    natsMsg* message = nullptr;
    const natsStatus status = natsSubscription_NextMsg(&message, m_subscription.get(), waitMs);
    m_message.reset(message);
    if (status == NATS_OK) {
        return Read(incoming);
    }
    if (status != NATS_TIMEOUT && status != NATS_CONNECTION_CLOSED &&
        status != NATS_SLOW_CONSUMER) {
        m_connection.Lose(NatsReason(status));
    }
    return false;
}

bool CSubscriber::Begin() {
    std::string reason;
    const natsStatus status =
        m_options.stream.empty() ? Subscribe(reason) : SubscribeStream(reason);
    if (status != NATS_OK) {
        m_connection.Lose(reason);
        return false;
    }
    natsSubscription_SetPendingLimits(m_subscription.get(), ALL_MESSAGES, PENDING_BYTES);
    if (!m_options.sinceNs) {
        m_options.sinceNs = WallNs();  // another connection goes on from here
    }
    m_connection.Begun();
    AskForInstruments();
    return true;
}

natsStatus CSubscriber::Subscribe(std::string& reason) {
    natsSubscription* subscription = nullptr;
    natsStatus status =
        natsConnection_SubscribeSync(&subscription, m_connection.Get(), m_subject.c_str());
    m_subscription.reset(subscription);
    if (status == NATS_OK) {
        // What is published from here on comes.
        status = natsConnection_FlushTimeout(m_connection.Get(), REQUEST_MS);
    }
    if (status != NATS_OK) {
        reason = NatsReason(status);
        return status;
    }
    return m_connection.LastError(reason);  // the user may not subscribe it, above all
}

natsStatus CSubscriber::SubscribeStream(std::string& reason) {
    jsOptions options;
    jsOptions_Init(&options);
    options.Wait = REQUEST_MS;
    jsCtx* context = nullptr;
    natsStatus status = natsConnection_JetStream(&context, m_connection.Get(), &options);
    m_js.reset(context);
    jsSubOptions how;
    jsSubOptions_Init(&how);
    how.Stream = m_options.stream.c_str();
    how.Ordered = true;
    if (const uint64_t last = StreamPlace(m_lastReply); last != 0) {
        how.Config.DeliverPolicy = js_DeliverByStartSequence;
        how.Config.OptStartSeq = last + 1;
    } else if (!m_options.sinceNs) {
        how.Config.DeliverPolicy = js_DeliverNew;
    } else if (*m_options.sinceNs > 0) {
        how.Config.DeliverPolicy = js_DeliverByStartTime;
        how.Config.OptStartTime = *m_options.sinceNs;
    }
    natsSubscription* subscription = nullptr;
    if (status == NATS_OK) {
        status =
            js_SubscribeSync(&subscription, m_js.get(), m_subject.c_str(), nullptr, &how, nullptr);
        m_subscription.reset(subscription);
    }
    if (status != NATS_OK) {
        reason = fmt::format("stream {}: {}", m_options.stream, m_connection.Why(status));
    }
    return status;
}

bool CSubscriber::Read(Incoming& incoming) {
    natsMsg* message = m_message.get();
    if (const char* reply = natsMsg_GetReply(message);
        reply != nullptr && !m_options.stream.empty()) {
        m_lastReply = reply;
    }
    const auto subject = ReadSubject(natsMsg_GetSubject(message));
    const auto size = static_cast<size_t>(std::max(natsMsg_GetDataLength(message), 0));
    incoming.body = {reinterpret_cast<const unsigned char*>(natsMsg_GetData(message)), size};
    if (!subject) {
        ++m_foreign;
        return false;
    }
    incoming.subject = *subject;
    if (subject->kind == Kind::Instruments) {
        m_foreign += size > LARGEST_LIST ? 1 : 0;
        return size <= LARGEST_LIST;
    }
    const auto sequence = ReadSequence(HeaderOf(message, HEADER_SEQUENCE));
    const auto time = subject->kind == Kind::Mark ? std::optional<int64_t>(0)
                                                  : ReadTime(HeaderOf(message, HEADER_TIME));
    if (!sequence || !time || size > LARGEST_BODY ||
        (subject->kind == Kind::MarketData && size == 0)) {
        ++m_foreign;
        return false;
    }
    incoming.sequence = *sequence;
    incoming.timeNs = *time;
    return true;
}

void CSubscriber::AskForInstruments() {
    if (IsConnected() && m_options.bus) {
        natsConnection_Publish(m_connection.Get(), WantedText(*m_options.bus).c_str(), nullptr, 0);
    }
}

}  // namespace ZceRelay
