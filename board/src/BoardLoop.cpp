#include "BoardLoop.h"

#include <fmt/format.h>

#include <cstdio>

namespace ZceBoard {

namespace {

constexpr int64_t PASS_NS = 1'000'000;
constexpr int64_t HOLDER_CHECK_NS = 20'000'000;
constexpr int64_t STATUS_NS = 1'000'000'000;

void Print(const std::string& text) {
    fputs(text.c_str(), stdout);
    fflush(stdout);
}

std::string CountsText(const ChannelCounts& counts) {
    return fmt::format("type2={} type17={} type18={} type19={} type20={} total={} dropped={}",
                       counts.sent[0], counts.sent[1], counts.sent[2], counts.sent[3],
                       counts.sent[4], counts.MarketData(), counts.dropped);
}

std::string OpeningLine(uint32_t channel, const OpeningCounts& opening) {
    return fmt::format("opening channel={} number={} {}\n", channel, opening.number,
                       CountsText(opening.counts));
}

}  // namespace

CBoardLoop::CBoardLoop(CBoard& board, const CInstrumentList& list, const BoardOptions& options)
    : m_board(board),
      m_list(list),
      m_options(options),
      m_broadcast(list.All(), options.pace),
      m_exchange(list.All(), options.seed),
      m_pacer(options.rate) {}

void CBoardLoop::Run(const volatile std::sig_atomic_t& stop) {
    const int64_t started = RealNs();
    int64_t nextStatusNs = started + STATUS_NS;
    Print(fmt::format("zce-board bus={} ready instruments={}+{} seed={} rate={}\n", m_options.bus,
                      m_list.Count(TABLE_SINGLE), m_list.Count(TABLE_COMBINE), m_options.seed,
                      m_options.rate));
    while (stop == 0) {
        const int64_t now = RealNs();
        const BoardTime time = ReadBoardTime();
        Pass(time, now);
        if (now >= nextStatusNs) {
            Print(StatusLine(time) + "\n");
            nextStatusNs = now + STATUS_NS;
        }
        if (!m_pacer.HasBacklog()) {
            RealSleep(PASS_NS);
        }
    }
    Print(LastLines());
}

void CBoardLoop::Pass(const BoardTime& time, int64_t realNs) {
    const Phase phase = PhaseAt(time.hhmmss);
    m_board.SetTime(time);
    m_board.NoticeOpenings();
    TellEnds();
    Broadcast(phase, time.wallNs);
    Decode(phase, time, realNs);
    m_board.DrainRequests();
    if (realNs >= m_nextHolderCheckNs) {
        m_board.FreeDeadHolders();
        m_nextHolderCheckNs = realNs + HOLDER_CHECK_NS;
    }
}

void CBoardLoop::TellEnds() {
    for (CChannelSender& channel : m_board.Channels()) {
        if (const auto end = channel.TakeEnd()) {
            Print(OpeningLine(channel.Channel(), *end));
        }
    }
}

void CBoardLoop::Broadcast(Phase phase, int64_t wallNs) {
    for (size_t due = m_broadcast.Due(phase, wallNs); due != 0; --due) {
        if (!m_board.HearMapPacket(m_broadcast.Next(), m_list.All())) {
            return;  // the core is locked: this packet comes with the next pass
        }
        m_broadcast.Advance();
    }
}

// The exchange ticks at any hour, so that one can work with the board at any hour; only the parse
// counters keep the exchange's hours, since hosts judge the board's life by them.
void CBoardLoop::Decode(Phase phase, const BoardTime& time, int64_t realNs) {
    uint64_t due = m_pacer.Due(realNs);
    if (!m_board.IsDecoding()) {
        m_pacer.Forget();
        return;
    }
    m_board.NoticeFeeds();
    for (; due != 0; --due) {
        m_board.HearTick(m_exchange, m_exchange.Next(), time, phase);
    }
    m_board.PublishCounters(IsMarketOpen(phase));
}

std::string CBoardLoop::StatusLine(const BoardTime& time) const {
    std::string line = fmt::format(
        "status bus={} time={:02}:{:02}:{:02} phase={} learnt={}+{} subscribed={}+{} switch={:#x} "
        "map={} parsed={}",
        m_options.bus, time.hhmmss / 10000, time.hhmmss / 100 % 100, time.hhmmss % 100,
        PhaseName(PhaseAt(time.hhmmss)), m_board.Learnt(TABLE_SINGLE),
        m_board.Learnt(TABLE_COMBINE), m_board.Subscribed(TABLE_SINGLE),
        m_board.Subscribed(TABLE_COMBINE), m_board.SwitchWord(),
        m_board.IsTransmittingMap() ? 1 : 0, m_board.Parsed());
    for (CChannelSender& channel : m_board.Channels()) {
        if (channel.WasEverOpen()) {
            line += fmt::format(" channel{}={},sent={},dropped={}", channel.Channel(),
                                channel.IsOpen() ? "open" : "closed", channel.Total().MarketData(),
                                channel.Total().dropped);
        }
    }
    return line + m_board.FeedStatus();
}

std::string CBoardLoop::LastLines() const {
    std::string lines;
    ChannelCounts all;
    for (CChannelSender& channel : m_board.Channels()) {
        if (!channel.WasEverOpen()) {
            continue;
        }
        if (channel.IsOpen()) {
            lines += OpeningLine(channel.Channel(), channel.Opening());
        }
        const ChannelCounts& counts = channel.Total();
        lines += fmt::format("zce-board channel={} {} openings={}\n", channel.Channel(),
                             CountsText(counts), channel.Openings());
        for (size_t k = 0; k < all.sent.size(); ++k) {
            all.sent[k] += counts.sent[k];
        }
        all.dropped += counts.dropped;
    }
    return lines + fmt::format(
                       "zce-board stopped bus={} parsed={} type2={} total={} dropped={} "
                       "requests={} resets={}\n",
                       m_options.bus, m_board.Parsed(), all.sent[0], all.MarketData(), all.dropped,
                       m_board.Requests(), m_board.Resets());
}

}  // namespace ZceBoard
