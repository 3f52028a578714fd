#include "memory/Faults.h"

#include <algorithm>
#include <bit>
#include <iterator>

namespace ZceBoard {

namespace {

constexpr uint32_t NO_MAX = 0xFFFFFFFF;
constexpr uint32_t SMALLEST_ROOM = 4096;
constexpr auto RING_ROOM = static_cast<uint32_t>(A2C_RING_BYTES);
constexpr auto LAST_REGISTER = static_cast<uint32_t>(REGISTER_COUNT - 1);
constexpr uint32_t LAST_ENTRY = TABLE_ENTRIES - 1;
constexpr auto LAST_CHANNEL = static_cast<uint32_t>(CHANNELS - 1);

constexpr FaultInfo INFOS[] = {
    {Fault::LinkDown, false, "link-down", nullptr, 0, 0, "value", 0, LINK_ALL_CONNECTED,
     "the link status 0x103 reads value"},
    {Fault::CountersStuck, false, "counters-stuck", nullptr, 0, 0, nullptr, 0, 0,
     "the parse counters stand still"},
    {Fault::ClockStuck, false, "clock-stuck", "register", REG_TIME_A, REG_TIME_B, nullptr, 0, 0,
     "the clock registers 0x104 and 0x105, or the given one, stand still"},
    {Fault::ReadFails, true, "read-fails", "register", 0, LAST_REGISTER, nullptr, 0, 0,
     "register reads fail"},
    {Fault::WriteFails, true, "write-fails", "register", 0, LAST_REGISTER, nullptr, 0, 0,
     "register writes fail"},
    {Fault::TableWriteLost, true, "table-write-lost", "entry", 0, LAST_ENTRY, nullptr, 0, 0,
     "words written to the instrument tables do not stick"},
    {Fault::NameChanges, true, "name-changes", "entry", 0, LAST_ENTRY, nullptr, 0, 0,
     "the first word of a name in the tables reads differently"},
    {Fault::CoreMissing, true, "core-missing", nullptr, 0, 0, nullptr, 0, 0,
     "the register core is not found"},
    {Fault::CoreTwice, true, "core-twice", nullptr, 0, 0, nullptr, 0, 0,
     "the register core is found twice"},
    {Fault::StreamRefused, true, "stream-refused", "channel", 0, LAST_CHANNEL, nullptr, 0, 0,
     "streams cannot be opened"},
    {Fault::SendBusy, true, "send-busy", "channel", 0, LAST_CHANNEL, nullptr, 0, 0,
     "sends to the board answer 11, try again"},
    {Fault::FifoErrors, false, "fifo-errors", "channel", 0, LAST_CHANNEL, "value", 1, NO_MAX,
     "the FIFO error counter of a stream reads value more"},
    {Fault::SlowReader, false, "slow-reader", "channel", 0, LAST_CHANNEL, "value", SMALLEST_ROOM,
     RING_ROOM, "a ring has room for value bytes only"},
    {Fault::Garbage, true, "garbage", "channel", 0, LAST_CHANNEL, nullptr, 0, 0,
     "a message of random type, length and content, once a millisecond"},
    {Fault::Crash, false, "crash", nullptr, 0, 0, nullptr, 0, 0, "the board's process is killed"},
};
static_assert(std::size(INFOS) == FAULT_KINDS);

constexpr std::memory_order RELAXED = std::memory_order_relaxed;

}  // namespace

const FaultInfo& InfoOf(Fault kind) {
    return INFOS[static_cast<size_t>(kind)];
}

std::optional<Fault> FaultOf(std::string_view name) {
    const auto* const info =
        std::find_if(std::begin(INFOS), std::end(INFOS),
                     [name](const FaultInfo& one) { return one.name == name; });
    return info == std::end(INFOS) ? std::nullopt : std::optional(info->kind);
}

void CFaults::Set(const FaultSetting& setting) {
    m_block.on.fetch_and(~BitOf(setting.kind), std::memory_order_acq_rel);
    FaultWords& words = Mine(setting.kind);
    words.every.store(setting.every, RELAXED);
    words.target.store(setting.target, RELAXED);
    words.value.store(setting.value, RELAXED);
    words.limit.store(setting.limit, RELAXED);
    words.occasions.store(0, RELAXED);
    words.strikes.store(0, RELAXED);
    words.seal.store(SealOf(static_cast<uint64_t>(setting.kind), setting.every, setting.target,
                            setting.value, setting.limit),
                     RELAXED);
    m_block.on.fetch_or(BitOf(setting.kind), std::memory_order_release);
}

void CFaults::Clear(Fault kind) {
    m_block.on.fetch_and(~BitOf(kind), RELAXED);
    Mine(kind).seal.store(0, RELAXED);
}

void CFaults::ClearAll() {
    m_block.on.store(0, RELAXED);
    for (FaultWords& words : m_block.kinds) {
        words.seal.store(0, RELAXED);
    }
}

bool CFaults::IsSealed(Fault kind) const {
    const FaultWords& words = Words(kind);
    return words.seal.load(RELAXED) == SealOf(static_cast<uint64_t>(kind),
                                              words.every.load(RELAXED), words.target.load(RELAXED),
                                              words.value.load(RELAXED), words.limit.load(RELAXED));
}

// Somebody who is just setting a fault may be seen half-way, but not twice.
uint32_t CFaults::DropGarbage(uint32_t& suspects) {
    const uint32_t on = m_block.on.load(std::memory_order_acquire);
    uint32_t unsealed = on >> FAULT_KINDS << FAULT_KINDS;
    for (size_t k = 0; k < FAULT_KINDS; ++k) {
        unsealed |= IsSealed(static_cast<Fault>(k)) ? 0 : on & 1U << k;
    }
    const uint32_t garbage = unsealed & suspects;
    suspects = unsealed;
    if (garbage != 0) {
        m_block.on.fetch_and(~garbage, RELAXED);
    }
    return static_cast<uint32_t>(std::popcount(garbage));
}

uint32_t CFaults::ValueOf(Fault kind) const {
    const FaultInfo& info = InfoOf(kind);
    return std::clamp(Words(kind).value.load(RELAXED), info.valueMin, info.valueMax);
}

FaultSetting CFaults::Setting(Fault kind) const {
    const FaultWords& words = Words(kind);
    return {kind, std::max(words.every.load(RELAXED), 1U), words.target.load(RELAXED),
            ValueOf(kind), words.limit.load(RELAXED)};
}

bool CFaults::Covers(Fault kind, uint32_t first, uint32_t last) const {
    if ((m_block.on.load(std::memory_order_acquire) & BitOf(kind)) == 0 || !IsSealed(kind)) {
        return false;
    }
    const uint32_t wanted = Words(kind).target.load(RELAXED);
    return wanted == FAULT_ANY || first == FAULT_ANY || (first <= wanted && wanted <= last);
}

uint32_t CFaults::Count(Fault kind) {
    FaultWords& words = Mine(kind);
    const uint32_t occasion = words.occasions.fetch_add(1, RELAXED) + 1;
    if (occasion % std::max(words.every.load(RELAXED), 1U) != 0) {
        return 0;
    }
    const uint32_t limit = words.limit.load(RELAXED);
    uint32_t before = words.strikes.load(RELAXED);
    do {
        if (limit != 0 && before >= limit) {
            return 0;  // another thread has just had the last one
        }
    } while (!words.strikes.compare_exchange_weak(before, before + 1, RELAXED));
    if (before + 1 == limit) {
        Clear(kind);
    }
    return before + 1;
}

}  // namespace ZceBoard
