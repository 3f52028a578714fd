#include "process/BoardLoop.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace ZceBoard {

namespace {

constexpr int64_t PASS_NS = NS_PER_MS;
constexpr int64_t HOLDER_CHECK_NS = 20 * NS_PER_MS;
constexpr int64_t NAME_CHECK_NS = NS_PER_SECOND;
constexpr int64_t STATUS_NS = NS_PER_SECOND;
// Whoever asks for a step waits no longer than 3 s.
constexpr int64_t LONGEST_STEP_NS = 2 * NS_PER_SECOND;
constexpr int64_t STEP_NAP_NS = 50'000;
constexpr uint64_t MAX_STEP_MS = 60'000;
constexpr std::memory_order RELAXED = std::memory_order_relaxed;

void Print(const std::string& text) {
    fputs(text.c_str(), stdout);
    fflush(stdout);
}

std::string CountsText(const ChannelCounts& counts) {
    const uint64_t other = counts.sent[ChannelCounts::OTHER];
    return fmt::format("type2={} type17={} type18={} type19={} type20={} total={} dropped={}{}",
                       counts.sent[0], counts.sent[1], counts.sent[2], counts.sent[3],
                       counts.sent[4], counts.MarketData(), counts.dropped,
                       other != 0 ? fmt::format(" other={}", other) : "");
}

std::string OpeningLine(uint32_t channel, const OpeningCounts& opening, uint32_t bus) {
    return fmt::format("opening channel={} number={} {} bus={}\n", channel, opening.number,
                       CountsText(opening.counts), bus);
}

bool IsTimeOfDay(uint64_t hhmmss) {
    return hhmmss / 10000 < 24 && hhmmss / 100 % 100 < 60 && hhmmss % 100 < 60;
}

// A command that has started is waited for, whatever happens.
bool IsAtEnd(const volatile std::sig_atomic_t& stop, CCommand* command, bool bOver) {
    if (command == nullptr || !command->HasStarted()) {
        return stop != 0 || (bOver && command == nullptr);
    }
    if (bOver) {
        command->LetEnd(RealNs());
    }
    return command->HasEnded();
}

}  // namespace

void CBoardLoop::Pass(const HostTime& now) {
    m_board.NoticeOpenings();
    TellEnds();
    m_board.PlayFaults();
    if (m_bPaused) {
        m_traffic.Hold(now);
    } else {
        m_traffic.Follow(now);
        m_traffic.Play(m_board);
    }
    m_requests.Answer(
        [this](Request request, uint64_t argument) { return Answer(request, argument); });
    m_clockFile.Tell(m_traffic.Time(), now);
    m_board.DrainRequests();
    if (now.realNs >= m_nextHolderCheckNs) {
        m_board.FreeDeadHolders();
        LookAfterMemory(now.realNs);
        m_nextHolderCheckNs = now.realNs + HOLDER_CHECK_NS;
    }
    Publish();
    m_board.Shm().stats.passes.store(++m_passes, std::memory_order_release);
}

void CBoardLoop::LookAfterMemory(int64_t nowNs) {
    m_board.MendMemory();
    if (m_bLost || nowNs < m_nextNameCheckNs) {
        return;
    }
    m_nextNameCheckNs = nowNs + NAME_CHECK_NS;
    m_bLost = !m_board.CanBeFound();
    if (m_bLost) {
        fprintf(stderr,
                "zce-board: bus %u: the name of its memory was removed or replaced by another "
                "process: no program that starts now finds this board. Start it anew.\n",
                m_bus);
    }
}

void CBoardLoop::Finish() {
    m_board.NoticeOpenings();
    TellEnds();
}

int CBoardLoop::Answer(Request request, uint64_t argument) {
    m_clockFile.Hurry();
    switch (request) {
        case Request::Pause:
        case Request::Resume: {
            const bool pause = request == Request::Pause;
            const int result = m_bPaused == pause ? EALREADY : 0;
            m_bPaused = pause;
            Publish();
            return result;
        }
        case Request::Step:
            return Step(argument);
        case Request::Advance: {
            const int result = IsTimeOfDay(argument)
                                   ? m_traffic.AdvanceTo(static_cast<uint32_t>(argument))
                                   : EINVAL;
            m_board.SetTime(m_traffic.Time());
            Publish();
            return result;
        }
    }
    return EINVAL;
}

int CBoardLoop::Step(uint64_t ms) {
    if (!m_bPaused) {
        return EPERM;
    }
    if (ms == 0 || ms > MAX_STEP_MS) {
        return EINVAL;
    }
    const int64_t deadline = RealNs() + LONGEST_STEP_NS;
    for (; ms != 0 && !m_traffic.IsOver(); --ms) {
        m_traffic.Step(NS_PER_MS);
        m_traffic.Play(m_board);
        while (m_traffic.IsBehind()) {
            if (RealNs() >= deadline) {
                Publish();
                return EAGAIN;  // a process has the core locked, or does not take its messages
            }
            if (!m_traffic.HasBacklog()) {
                RealSleep(STEP_NAP_NS);
            }
            m_traffic.Play(m_board);
        }
    }
    Publish();
    return 0;
}

void CBoardLoop::TellEnds() {
    for (CChannelSender& channel : m_board.Channels()) {
        if (const auto end = channel.TakeEnd()) {
            Print(OpeningLine(channel.Channel(), *end, m_bus));
        }
    }
}

void CBoardLoop::Publish() {
    BoardStats& stats = m_board.Shm().stats;
    const BoardTime time = m_traffic.Time();
    stats.date.store(time.date, RELAXED);
    stats.hhmmss.store(time.hhmmss, RELAXED);
    stats.millisecond.store(static_cast<uint32_t>(time.dayNs / NS_PER_MS % 1000), RELAXED);
    stats.phase.store(static_cast<uint32_t>(m_traffic.CurrentPhase()), RELAXED);
    stats.paused.store(m_bPaused ? 1 : 0, RELAXED);
    stats.source.store(static_cast<uint32_t>(m_traffic.Source()), RELAXED);
    stats.speedMilli.store(m_traffic.SpeedMilli(), RELAXED);
    for (uint32_t table = 0; table < TABLE_COUNT; ++table) {
        stats.instruments[table].store(static_cast<uint32_t>(m_traffic.Instruments(table)),
                                       RELAXED);
    }
    const auto feeds = m_board.FeedStates();
    for (size_t k = 0; k < feeds.size(); ++k) {
        stats.feeds[k].store(static_cast<uint32_t>(feeds[k]), RELAXED);
    }
    stats.parsed.store(m_board.Parsed(), RELAXED);
    stats.requests.store(m_board.Requests(), RELAXED);
    stats.garbage.store(Garbage(), RELAXED);
    for (CChannelSender& channel : m_board.Channels()) {
        if (channel.WasEverOpen()) {
            channel.Publish(stats.channels[channel.Channel()]);
        }
    }
}

std::string CBoardLoop::ReadyLine() const {
    return fmt::format("zce-board bus={} ready {}\n", m_bus, m_traffic.Describe());
}

std::string CBoardLoop::StatusLine() const {
    const uint32_t hhmmss = m_traffic.Time().hhmmss;
    std::string line = fmt::format(
        "status bus={} time={:02}:{:02}:{:02} phase={} learnt={}+{} subscribed={}+{} switch={:#x} "
        "map={} parsed={}",
        m_bus, hhmmss / 10000, hhmmss / 100 % 100, hhmmss % 100,
        PhaseName(m_traffic.CurrentPhase()), m_board.Learnt(TABLE_SINGLE),
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
    return line + m_board.FeedStatus() + m_traffic.Status() + (m_bPaused ? " paused" : "") +
           m_board.FaultStatus() + (Garbage() != 0 ? fmt::format(" garbage={}", Garbage()) : "");
}

std::string CBoardLoop::LastLines() const {
    std::string lines = m_traffic.LastWords();
    ChannelCounts all;
    for (CChannelSender& channel : m_board.Channels()) {
        if (!channel.WasEverOpen()) {
            continue;
        }
        if (channel.IsOpen()) {
            lines += OpeningLine(channel.Channel(), channel.Opening(), m_bus);
        }
        const ChannelCounts& counts = channel.Total();
        lines += fmt::format("zce-board channel={} {} openings={} bus={}\n", channel.Channel(),
                             CountsText(counts), channel.Openings(), m_bus);
        for (size_t k = 0; k < all.sent.size(); ++k) {
            all.sent[k] += counts.sent[k];
        }
        all.dropped += counts.dropped;
    }
    return lines + fmt::format(
                       "zce-board stopped bus={} parsed={} type2={} total={} dropped={} "
                       "requests={} resets={}\n",
                       m_bus, m_board.Parsed(), all.sent[0], all.MarketData(), all.dropped,
                       m_board.Requests(), m_board.Resets());
}

void RunBoards(std::vector<CBoardLoop*>& loops, const volatile std::sig_atomic_t& stop,
               CCommand* command) {
    for (const CBoardLoop* loop : loops) {
        Print(loop->ReadyLine());
    }
    const auto isOver = [](const CBoardLoop* loop) { return loop->IsOver(); };
    const auto hasBacklog = [](const CBoardLoop* loop) { return loop->HasBacklog(); };
    int64_t nextStatusNs = RealNs() + STATUS_NS;
    while (!IsAtEnd(stop, command, std::all_of(loops.begin(), loops.end(), isOver))) {
        const HostTime now = ReadHostTime();
        for (CBoardLoop* loop : loops) {
            loop->Pass(now);
        }
        if (command != nullptr) {  // which has the screen to itself
            if (!command->HasStarted()) {
                command->Start();
            }
        } else if (now.realNs >= nextStatusNs) {
            for (const CBoardLoop* loop : loops) {
                Print(loop->StatusLine() + "\n");
            }
            nextStatusNs = now.realNs + STATUS_NS;
        }
        if (std::none_of(loops.begin(), loops.end(), hasBacklog)) {
            RealSleep(PASS_NS);
        }
    }
    for (CBoardLoop* loop : loops) {
        loop->Finish();
        Print(loop->LastLines());
    }
}

}  // namespace ZceBoard
