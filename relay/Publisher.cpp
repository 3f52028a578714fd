#include "relay/Publisher.h"

#include <fmt/format.h>

#include <charconv>
#include <chrono>
#include <string_view>

namespace ZceRelay {

namespace {

constexpr int BATCH = 1024;
constexpr uint64_t ASK_AFTER = 256;
constexpr int64_t ASK_AFTER_NS = 20 * NS_PER_MS;
// A server that is there and confirms nothing for so long is as good as gone.
constexpr int64_t PATIENCE_NS = 10'000 * NS_PER_MS;
// A stream that refuses messages is tried again after so long.
constexpr int64_t REFUSED_NS = 1000 * NS_PER_MS;

// The time at which this run began is its number: another run has another one.
uint64_t NewSession() {
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                     std::chrono::system_clock::now().time_since_epoch())
                                     .count());
}

NatsMessage NewMessage(const char* subject, const char* reply, const void* data, size_t size) {
    natsMsg* message = nullptr;
    natsMsg_Create(&message, subject, reply, static_cast<const char*>(data),
                   static_cast<int>(size));
    return NatsMessage(message);
}

}  // namespace

CPublisher::CPublisher(const Settings& settings, const PublishOptions& options, Tell tell)
    : m_options(options),
      m_connection(settings,
                   fmt::format("zce-relay publish zce.{}.{}", options.bus, options.channel),
                   std::move(tell)),
      m_session(NewSession()),
      m_markSubject(SubjectText({Kind::Mark, options.bus, options.channel, 0})) {
    for (uint32_t k = 0; k < TYPES; ++k) {
        m_aSubjects[k] =
            SubjectText({Kind::MarketData, options.bus, options.channel, FIRST_TYPE + k});
    }
    m_connection.OnClose([this] {
        m_confirmations.reset();
        m_wanted.reset();
    });
}

bool CPublisher::Pass(CTakenMessages& taken) {
    if (!m_connection.IsUp() || (m_connection.IsNew() && !Begin())) {
        return false;
    }
    const int64_t nowNs = NowNs();
    const uint64_t counted = taken.Counted();
    bool bAll = false;
    for (int k = 0; k < BATCH && m_window.size() < m_options.window; ++k) {
        TakenHead head{};
        if (!taken.Next(head, m_body)) {
            bAll = true;
            break;
        }
        if (!Build(head, m_body)) {
            Lose("out of memory");
            return false;
        }
    }
    // What was counted before the ring was found empty and was not in it is lost.
    m_lastNumber = bAll ? std::max(m_lastNumber, counted) : m_lastNumber;
    const bool bSome = m_next < m_window.size();
    if (nowNs < m_sendAgainNs) {
        return false;
    }
    if (!Send() || (m_bTellInstruments && !PublishInstruments()) || !Ask(nowNs)) {
        return false;
    }
    LookForConfirmations(nowNs);
    return bSome;
}

bool CPublisher::IsDone(const CTakenMessages& taken) const {
    return m_window.empty() && m_marked == taken.Counted();
}

// What a new connection needs.
bool CPublisher::Begin() {
    std::string reason;
    if (!m_options.stream.empty() && !MakeStream(reason)) {
        Lose(reason);
        return false;
    }
    natsInbox* inbox = nullptr;
    natsInbox_Create(&inbox);
    m_inbox = inbox != nullptr ? inbox : "";
    natsInbox_Destroy(inbox);
    natsSubscription* confirmations = nullptr;
    natsSubscription* wanted = nullptr;
    natsStatus status = natsConnection_SubscribeSync(&confirmations, m_connection.Get(),
                                                     (m_inbox + ".*.*").c_str());
    m_confirmations.reset(confirmations);
    if (status == NATS_OK) {
        status = natsConnection_SubscribeSync(&wanted, m_connection.Get(),
                                              WantedText(m_options.bus).c_str());
        m_wanted.reset(wanted);
    }
    if (status != NATS_OK) {
        Lose(NatsReason(status));
        return false;
    }
    m_next = 0;
    m_asked = m_counts.confirmed;
    m_marked = 0;
    m_heardNs = NowNs();
    m_sendAgainNs = 0;
    m_bTellInstruments = !m_instruments.empty();
    m_connection.Begun();
    return true;
}

bool CPublisher::MakeStream(std::string& reason) {
    jsCtx* context = nullptr;
    jsOptions options;
    jsOptions_Init(&options);
    options.Wait = REQUEST_MS;
    natsStatus status = natsConnection_JetStream(&context, m_connection.Get(), &options);
    const NatsJetStream js(context);
    jsStreamInfo* info = nullptr;
    jsErrCode code{};
    if (status == NATS_OK) {
        status = js_GetStreamInfo(&info, js.get(), m_options.stream.c_str(), nullptr, &code);
    }
    if (status == NATS_NOT_FOUND) {
        const char* subjects[] = {"zce.>"};
        jsStreamConfig config;
        jsStreamConfig_Init(&config);
        config.Name = m_options.stream.c_str();
        config.Subjects = subjects;
        config.SubjectsLen = 1;
        config.MaxAge = m_options.streamAgeNs;
        config.MaxBytes = m_options.streamBytes > 0 ? m_options.streamBytes : -1;
        status = js_AddStream(&info, js.get(), &config, nullptr, &code);
    }
    jsStreamInfo_Destroy(info);
    if (status != NATS_OK) {
        reason = fmt::format("stream {}: {}", m_options.stream, m_connection.Why(status));
        if (status == NATS_NO_RESPONDERS || code == JSNotEnabledErr ||
            code == JSNotEnabledForAccountErr) {
            reason += "; JetStream is not on: start nats-server with -js, or leave --stream out";
        }
    }
    return status == NATS_OK;
}

bool CPublisher::Build(const TakenHead& head, const std::vector<unsigned char>& body) {
    NatsMessage message = NewMessage(m_aSubjects[(head.type - FIRST_TYPE) % TYPES].c_str(), nullptr,
                                     body.data(), body.size());
    const std::string sequence = SequenceText({m_session, head.number, m_options.bBoardBodies});
    const std::string time = std::to_string(head.timeNs);
    if (message == nullptr ||
        natsMsgHeader_Set(message.get(), HEADER_SEQUENCE, sequence.c_str()) != NATS_OK ||
        natsMsgHeader_Set(message.get(), HEADER_TIME, time.c_str()) != NATS_OK) {
        return false;
    }
    m_window.push_back(std::move(message));
    m_lastNumber = head.number;
    return true;
}

bool CPublisher::Send() {
    for (; m_next < m_window.size(); ++m_next) {
        const natsStatus status =
            natsConnection_PublishMsg(m_connection.Get(), m_window[m_next].get());
        if (status != NATS_OK) {
            Lose(NatsReason(status));
            return false;
        }
        const uint64_t place = m_counts.confirmed + m_next;
        ++(place < m_counts.published ? m_counts.resent : m_counts.published);
    }
    return true;
}

NatsMessage CPublisher::MakeMark(uint64_t number, const char* reply) const {
    NatsMessage mark = NewMessage(m_markSubject.c_str(), reply, nullptr, 0);
    const std::string sequence = SequenceText({m_session, number, m_options.bBoardBodies});
    natsMsgHeader_Set(mark.get(), HEADER_SEQUENCE, sequence.c_str());
    return mark;
}

// Tells where the publisher is, and asks whether that has arrived.
bool CPublisher::Ask(int64_t nowNs) {
    const uint64_t place = m_counts.confirmed + m_next;
    const uint64_t fresh = place - m_asked;
    if ((fresh == 0 && m_lastNumber == m_marked) ||
        (fresh < ASK_AFTER && nowNs - m_askedNs < ASK_AFTER_NS)) {
        return true;
    }
    const std::string reply = fmt::format("{}.{}.{}", m_inbox, m_refusals, place);
    const bool bStream = !m_options.stream.empty();
    const NatsMessage mark = MakeMark(m_lastNumber, bStream ? reply.c_str() : nullptr);
    natsStatus status = natsConnection_PublishMsg(m_connection.Get(), mark.get());
    if (status == NATS_OK && !bStream) {
        status = natsConnection_Publish(m_connection.Get(), reply.c_str(), nullptr, 0);
    }
    if (status != NATS_OK) {
        Lose(NatsReason(status));
        return false;
    }
    if (m_asked == m_counts.confirmed) {
        m_heardNs = nowNs;  // nothing was asked before
    }
    m_asked = place;
    m_askedNs = nowNs;
    m_marked = m_lastNumber;
    return true;
}

void CPublisher::LookForConfirmations(int64_t nowNs) {
    natsMsg* message = nullptr;
    while (natsSubscription_NextMsg(&message, m_confirmations.get(), 0) == NATS_OK) {
        const NatsMessage owned(message);
        TakeConfirmation(message, nowNs);
    }
    while (natsSubscription_NextMsg(&message, m_wanted.get(), 0) == NATS_OK) {
        const NatsMessage owned(message);
        m_bTellInstruments = !m_instruments.empty();
    }
    if (m_asked != m_counts.confirmed && nowNs - m_heardNs > PATIENCE_NS) {
        std::string reason;
        m_connection.LastError(reason);
        Lose(fmt::format("the server confirms nothing{}{}", reason.empty() ? "" : ": ", reason));
    }
}

// What a user may not publish the server drops, and answers the question behind it all the same. It
// has told that before it answers.
bool CPublisher::MayNotPublish() const {
    std::string reason;
    return m_connection.LastError(reason) == NATS_NOT_PERMITTED &&
           reason.find("Publish") != std::string::npos;
}

void CPublisher::TakeConfirmation(natsMsg* message, int64_t nowNs) {
    const std::string_view subject = natsMsg_GetSubject(message);
    const size_t dot = subject.rfind('.');
    if (subject.substr(0, dot) != fmt::format("{}.{}", m_inbox, m_refusals)) {
        return;  // asked before a refusal: what was refused may be in front of this place
    }
    if (MayNotPublish()) {
        return;
    }
    const std::string_view place = subject.substr(dot + 1);
    const std::string_view answer(natsMsg_GetData(message),
                                  static_cast<size_t>(natsMsg_GetDataLength(message)));
    uint64_t upTo = 0;
    std::from_chars(place.data(), place.data() + place.size(), upTo);
    m_heardNs = nowNs;
    const bool bRefused =
        natsMsg_IsNoResponders(message) || answer.find("\"error\"") != std::string_view::npos;
    if (bRefused) {
        // What of it was stored is not known: all is sent once more.
        if (!m_bRefused) {
            m_connection.Say(fmt::format(
                "stream {}: messages are not taken: {}; tried again each second", m_options.stream,
                answer.empty() ? "no stream takes the subject " + m_markSubject
                               : std::string(answer)));
        }
        m_bRefused = true;
        ++m_refusals;
        m_next = 0;
        m_asked = m_counts.confirmed;
        m_marked = 0;
        m_sendAgainNs = nowNs + REFUSED_NS;
        return;
    }
    m_bRefused = false;
    for (; m_counts.confirmed < upTo && m_next != 0; --m_next) {
        m_window.pop_front();
        ++m_counts.confirmed;
    }
}

void CPublisher::SetInstruments(const std::string& list) {
    if (list != m_instruments && list.size() <= LARGEST_LIST) {
        m_instruments = list;
        m_bTellInstruments = true;
    }
}

bool CPublisher::PublishInstruments() {
    m_bTellInstruments = false;
    const std::string subject = SubjectText({Kind::Instruments, m_options.bus, 0, 0});
    const natsStatus status =
        natsConnection_Publish(m_connection.Get(), subject.c_str(), m_instruments.data(),
                               static_cast<int>(m_instruments.size()));
    if (status == NATS_MAX_PAYLOAD) {
        m_connection.Say(fmt::format(
            "the instrument list, {} bytes, is not published: the server's max_payload is {}",
            m_instruments.size(), natsConnection_GetMaxPayload(m_connection.Get())));
        m_instruments.clear();  // until there is another one
        return true;
    }
    if (status != NATS_OK) {
        Lose(NatsReason(status));
    }
    return status == NATS_OK;
}

void CPublisher::Lose(const std::string& reason) {
    m_next = 0;
    m_connection.Lose(reason);
}

}  // namespace ZceRelay
