#include "traffic/RelayTraffic.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ZceBoardMsg.h"
#include "relay/InstrumentLines.h"

namespace ZceBoard {

namespace {

constexpr int MESSAGES_AT_ONCE = 4096;
constexpr int64_t LEARN_NS = NS_PER_SECOND / 4;
constexpr int64_t PATIENCE_NS = NS_PER_SECOND / 5;

static_assert(ZceRelay::CHANNELS == CHANNELS);
static_assert(ZceRelay::LARGEST_BODY + ZCE_BOARD_HEAD_SIZE == STREAM_MTU);

}  // namespace

uint64_t CRelayNumbers::NumberHere(uint64_t number, uint64_t session, uint32_t opening) {
    if (opening != m_opening) {
        m_before = number - 1;
    } else if (session != m_session) {
        m_before = 0 - m_last;  // the stream was opened anew there: its numbers go on here
    }
    m_opening = opening;
    m_session = session;
    m_last = number - m_before;
    return m_last;
}

void CRelayTraffic::Follow(const HostTime& now) {
    m_realNs = now.realNs;
    m_time = BoardTimeAt(now.wallNs);
}

void CRelayTraffic::Hold(const HostTime& now) {
    m_realNs = now.realNs;
}

void CRelayTraffic::Step(int64_t ns) {
    m_time = BoardTimeAt(m_time.wallNs + ns);
}

int CRelayTraffic::AdvanceTo(uint32_t /*hhmmss*/) {
    return ENOTSUP;
}

void CRelayTraffic::Play(CBoard& board) {
    board.SetTime(m_time);
    board.PlayGarbage();
    PlayMessages(board);
    PlayList(board);
    board.PublishCounters(true);
}

void CRelayTraffic::PlayMessages(CBoard& board) {
    m_bMore = false;
    for (int k = 0; m_bHave || TakeNext(); ++k) {
        if (k == MESSAGES_AT_ONCE) {
            m_bMore = true;
            return;
        }
        if (m_bHave && !Send(board)) {
            return;
        }
        m_bHave = false;
    }
}

// What has come next; market data is then in m_bytes, if it is to be sent.
bool CRelayTraffic::TakeNext() {
    if (!m_messages.Take(m_head, m_bytes)) {
        return false;
    }
    if (m_head.kind == ZceRelay::Kind::Instruments) {
        TakeList({reinterpret_cast<const char*>(m_bytes.data()), m_bytes.size()});
        return true;
    }
    ZceRelay::CStreamOrder& order = m_orders[m_head.channel];
    if (m_head.kind == ZceRelay::Kind::Mark) {
        order.Mark(m_head.sequence);
        return true;
    }
    m_bHave = order.Judge(m_head.sequence) == ZceRelay::CStreamOrder::Verdict::Next;
    m_bNumbered = false;
    return true;
}

// False: its ring is full, and the message can wait.
bool CRelayTraffic::Send(CBoard& board) {
    const auto size = static_cast<uint32_t>(m_bytes.size());
    CChannelSender& channel = board.Channels()[m_head.channel];
    int64_t& fullSinceNs = m_fullSinceNs[m_head.channel];
    if (!channel.IsOpen()) {
        ++m_unheard;
    } else if (!m_bNumbered) {
        Renumber(channel.Openings());
    }
    if (!m_bStream) {
        board.HearLive(m_head.channel, m_bytes.data(), size);
        return true;
    }
    if (board.HearDecoded(m_head.channel, m_bytes.data(), size)) {
        fullSinceNs = 0;
        return true;
    }
    fullSinceNs = fullSinceNs == 0 ? m_realNs : fullSinceNs;
    if (m_realNs - fullSinceNs < PATIENCE_NS) {
        return false;
    }
    board.HearLive(m_head.channel, m_bytes.data(), size);  // dropped, and counted
    return true;
}

void CRelayTraffic::Renumber(uint32_t opening) {
    m_bNumbered = true;
    if (!m_head.sequence.bBoardBody ||
        m_bytes.size() < ZCE_BOARD_HEAD_SIZE + sizeof(ZceBoardQuote_t)) {
        return;
    }
    unsigned char* const place =
        m_bytes.data() + ZCE_BOARD_HEAD_SIZE + offsetof(ZceBoardQuote_t, ulSeq);
    uint64_t number = 0;
    memcpy(&number, place, sizeof(number));
    number = m_numbers[m_head.channel].NumberHere(number, m_head.sequence.session, opening);
    memcpy(place, &number, sizeof(number));
}

void CRelayTraffic::TakeList(std::string_view text) {
    std::vector<Instrument> instruments;
    for (const ZceRelay::ListedInstrument& listed : ZceRelay::ReadInstrumentLines(text)) {
        const InstrumentKind kind = KindOf(listed.name);
        instruments.push_back({listed.name,
                               kind == InstrumentKind::Combination ? TABLE_COMBINE : TABLE_SINGLE,
                               listed.index, kind});
    }
    const auto same = [](const Instrument& one, const Instrument& other) {
        return one.name == other.name && one.index == other.index;
    };
    if (!std::equal(instruments.begin(), instruments.end(), m_instruments.begin(),
                    m_instruments.end(), same)) {
        m_instruments = std::move(instruments);
        m_broadcast.emplace(m_instruments, m_pace);
        m_nextLearnNs = 0;
    }
}

// The names are in the tables as soon as they are known, and again after a reset of the board; the
// broadcast tells them at the exchange's hours.
void CRelayTraffic::PlayList(CBoard& board) {
    if (m_instruments.empty()) {
        return;
    }
    if (m_realNs >= m_nextLearnNs) {
        board.Learn(m_instruments);
        m_nextLearnNs = m_realNs + LEARN_NS;
    }
    for (size_t due = m_broadcast->Due(CurrentPhase(), m_time.wallNs); due != 0; --due) {
        if (!board.HearMapPacket(m_broadcast->Next(), m_instruments)) {
            return;  // the core is locked: this packet comes with the next pass
        }
        m_broadcast->Advance();
    }
}

size_t CRelayTraffic::Instruments(uint32_t table) const {
    return static_cast<size_t>(
        std::count_if(m_instruments.begin(), m_instruments.end(),
                      [table](const Instrument& instrument) { return instrument.table == table; }));
}

std::string CRelayTraffic::Status() const {
    ZceRelay::StreamCounts total;
    for (const ZceRelay::CStreamOrder& order : m_orders) {
        total += order.Counts();
    }
    return fmt::format(" relay={} {} unheard={}",
                       m_messages.IsConnected() ? "connected" : "not-connected",
                       ZceRelay::CountsText(total), m_unheard);
}

std::string CRelayTraffic::LastWords() const {
    std::string words;
    for (size_t channel = 0; channel < m_orders.size(); ++channel) {
        if (m_orders[channel].Sessions() != 0) {
            words += fmt::format("relay channel={} {}\n", channel, m_orders[channel].Text());
        }
    }
    return words + fmt::format("relay unheard={} connects={} instruments={}\n", m_unheard,
                               m_messages.Connects(), m_instruments.size());
}

}  // namespace ZceBoard
