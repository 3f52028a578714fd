#include "relay/Receiver.h"

#include <pthread.h>

#include <chrono>
#include <csignal>
#include <utility>

#include "ZceBoardMsg.h"

namespace ZceRelay {

namespace {

constexpr int64_t WAIT_MS = 100;
constexpr int64_t QUESTION_NS = 1000 * NS_PER_MS;
constexpr std::chrono::milliseconds FULL_REST{1};

}  // namespace

CReceiver::CReceiver(const Settings& settings, const SubscribeOptions& options,
                     CReceivedMessages& messages, Tell tell)
    : m_subscriber(settings, options, std::move(tell)), m_messages(messages) {}

CReceiver::~CReceiver() {
    m_bEnd = true;
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void CReceiver::Start() {
    m_nextQuestionNs = NowNs() + QUESTION_NS;  // the first is the subscriber's own
    // The client's own threads are this one's children, and take none either.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    m_thread = std::thread(&CReceiver::Run, this);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void CReceiver::Run() {
    Incoming incoming;
    while (!m_bEnd) {
        const bool bCame = m_subscriber.Next(incoming, WAIT_MS);
        m_messages.TellConnected(m_subscriber.IsConnected(), m_subscriber.Connects());
        if (bCame) {
            Take(incoming);
        }
        AskForList();
    }
}

void CReceiver::Take(const Incoming& incoming) {
    ReceivedHead head;
    head.kind = incoming.subject.kind;
    head.channel = incoming.subject.channel;
    head.timeNs = incoming.timeNs;
    head.sequence = incoming.sequence;
    m_bytes.clear();
    if (head.kind == Kind::MarketData) {
        const ZceBoardHead_t board{incoming.subject.type, incoming.subject.channel,
                                   static_cast<uint16_t>(incoming.body.size()), 0};
        const auto* from = reinterpret_cast<const unsigned char*>(&board);
        m_bytes.assign(from, from + sizeof(board));
    }
    if (head.kind != Kind::Mark) {
        m_bytes.insert(m_bytes.end(), incoming.body.begin(), incoming.body.end());
    }
    m_bHasList = m_bHasList || head.kind == Kind::Instruments;
    head.size = static_cast<uint32_t>(m_bytes.size());
    while (!m_messages.Put(head, m_bytes.data()) && !m_bEnd) {
        std::this_thread::sleep_for(FULL_REST);
    }
}

// Until there is one: the publisher may come later than this.
void CReceiver::AskForList() {
    if (!m_bHasList && NowNs() >= m_nextQuestionNs) {
        m_subscriber.AskForInstruments();
        m_nextQuestionNs = NowNs() + QUESTION_NS;
    }
}

}  // namespace ZceRelay
