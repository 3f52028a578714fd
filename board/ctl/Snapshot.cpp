#include "ctl/Snapshot.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <iterator>

#include "memory/Control.h"
#include "memory/Faults.h"
#include "memory/Phase.h"
#include "memory/RegisterFile.h"

namespace ZceBoard {

namespace {

constexpr std::memory_order RELAXED = std::memory_order_relaxed;
constexpr const char* UNKNOWN = "?";
constexpr int64_t MILLI = 1000;

void ReadTables(const BoardShm& shm, BoardSnapshot& snapshot) {
    for (uint32_t table = 0; table < TABLE_COUNT; ++table) {
        TableSnapshot& counts = snapshot.tables[table];
        counts.exchange = shm.stats.instruments[table].load(RELAXED);
        for (size_t entry = 0; entry < TABLE_ENTRIES; ++entry) {
            const auto* const words = &shm.tables[table][entry * TABLE_ENTRY_WORDS];
            const uint32_t mask = words[TABLE_MASK_WORD].load(RELAXED);
            counts.learnt += words[TABLE_NAME_WORDS].load(RELAXED) != 0 ? 1 : 0;
            counts.subscribed += mask != 0 ? 1 : 0;
            for (size_t channel = 0; mask >> channel != 0 && channel < CHANNELS; ++channel) {
                snapshot.channels[channel].subscribed += mask >> channel & 1;
            }
        }
    }
}

void ReadChannels(const BoardShm& shm, BoardSnapshot& snapshot) {
    for (size_t k = 0; k < CHANNELS; ++k) {
        const ChannelStats& stats = shm.stats.channels[k];
        ChannelSnapshot& channel = snapshot.channels[k];
        channel.bOpen = stats.open.load(RELAXED) != 0;
        channel.openings = stats.openings.load(RELAXED);
        for (size_t type = 0; type < MESSAGE_TYPES; ++type) {
            channel.sent[type] = stats.sent[type].load(RELAXED);
        }
        channel.other = stats.other.load(RELAXED);
        channel.dropped = stats.dropped.load(RELAXED);
        channel.backPressure = shm.a2c[k].control.backPressure.load(RELAXED);
        channel.fifoErrors = shm.a2c[k].control.fifoErrors.load(RELAXED);
    }
}

void ReadStats(const BoardStats& stats, BoardSnapshot& snapshot) {
    snapshot.passes = stats.passes.load(RELAXED);
    snapshot.date = stats.date.load(RELAXED);
    snapshot.hhmmss = stats.hhmmss.load(RELAXED);
    snapshot.millisecond = stats.millisecond.load(RELAXED);
    snapshot.phase = stats.phase.load(RELAXED);
    snapshot.bPaused = stats.paused.load(RELAXED) != 0;
    snapshot.source = stats.source.load(RELAXED);
    snapshot.speedMilli = stats.speedMilli.load(RELAXED);
    snapshot.feeds = {stats.feeds[0].load(RELAXED), stats.feeds[1].load(RELAXED)};
    snapshot.parsed = stats.parsed.load(RELAXED);
    snapshot.requests = stats.requests.load(RELAXED);
}

void ReadRegisters(BoardShm& shm, BoardSnapshot& snapshot) {
    const CRegisterFile registers(shm);
    snapshot.switchWord = registers.Peek(REG_SWITCH);
    snapshot.bMapTransmit = (registers.Peek(REG_MAP_TRANSMIT) & 1) != 0;
    snapshot.bHeldInReset = (registers.Peek(REG_RESET) & 1) != 0;
    const CFaults faults(shm);
    snapshot.linkStatus = faults.IsOn(Fault::LinkDown) ? faults.ValueOf(Fault::LinkDown)
                                                       : registers.Peek(REG_LINK_STATUS);
    snapshot.faults = faults.Text();
    for (uint32_t k = 0; k < COUNTERS_PER_GROUP; ++k) {
        snapshot.parseCounters[0][k] = registers.Peek(REG_COUNTER_A + k);
        snapshot.parseCounters[1][k] = registers.Peek(REG_COUNTER_B + k);
    }
}

}  // namespace

BoardSnapshot TakeSnapshot(BoardShm& shm) {
    BoardSnapshot snapshot;
    snapshot.bus = shm.header.bus;
    snapshot.pid = shm.header.boardPid.load(RELAXED);
    snapshot.boardResets = shm.header.boardResets.load(RELAXED);
    snapshot.coreResets = shm.header.coreResets.load(RELAXED);
    snapshot.ignoredTableWrites = shm.header.ignoredTableWrites.load(RELAXED);
    ReadStats(shm.stats, snapshot);
    ReadRegisters(shm, snapshot);
    ReadTables(shm, snapshot);
    ReadChannels(shm, snapshot);
    return snapshot;
}

std::string DateText(uint32_t date) {
    return fmt::format("{:04}-{:02}-{:02}", date / 10000, date / 100 % 100, date % 100);
}

std::string TimeText(uint32_t hhmmss) {
    return fmt::format("{:02}:{:02}:{:02}", hhmmss / 10000, hhmmss / 100 % 100, hhmmss % 100);
}

std::string TimeText(uint32_t hhmmss, uint32_t millisecond) {
    return fmt::format("{}.{:03}", TimeText(hhmmss), millisecond);
}

const char* PhaseText(uint32_t phase) {
    return phase <= static_cast<uint32_t>(Phase::Break) ? PhaseName(static_cast<Phase>(phase))
                                                        : UNKNOWN;
}

const char* SourceText(uint32_t source) {
    constexpr const char* NAMES[] = {"live", "scenario", "replay", "relay"};
    return source < std::size(NAMES) ? NAMES[source] : UNKNOWN;
}

const char* FeedText(uint32_t state) {
    constexpr const char* NAMES[] = {"any", "ok", "closed", "wrong"};
    return state < std::size(NAMES) ? NAMES[state] : UNKNOWN;
}

std::string SpeedText(int64_t speedMilli) {
    return fmt::format("{}", static_cast<double>(speedMilli) / MILLI);
}

std::string LinkText(uint32_t linkStatus) {
    if ((linkStatus & LINK_ALL_CONNECTED) == LINK_ALL_CONNECTED) {
        return "all connected";
    }
    std::string text;
    constexpr auto fibres = static_cast<uint32_t>(std::bit_width(LINK_ALL_CONNECTED));
    for (uint32_t fibre = 0; fibre < fibres; ++fibre) {
        if ((linkStatus >> fibre & 1) == 0) {
            text.append(text.empty() ? "not connected: " : ", ").append(std::to_string(fibre));
        }
    }
    return text;
}

std::string Printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c < ' ' || c >= 127; }, '?');
    return text;
}

}  // namespace ZceBoard
