#include "Faults.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace ZceBoard {

namespace {

constexpr uint32_t NO_MAX = 0xFFFFFFFF;
constexpr uint32_t SMALLEST_ROOM = 4096;
constexpr auto RING_ROOM = static_cast<uint32_t>(A2C_RING_BYTES);
constexpr auto REGISTERS = static_cast<uint32_t>(REGISTER_COUNT);
constexpr auto CHANNELS_END = static_cast<uint32_t>(CHANNELS);

constexpr FaultInfo INFOS[] = {
    {Fault::LinkDown, "link-down", nullptr, 0, "value", 0, 0xF, 0, false,
     "the link status 0x103 reads value"},
    {Fault::CountersStuck, "counters-stuck", nullptr, 0, nullptr, 0, 0, 0, false,
     "the parse counters stand still"},
    {Fault::ClockStuck, "clock-stuck", "register", REGISTERS, nullptr, 0, 0, 0, false,
     "the clock registers 0x104 and 0x105, or the given one, stand still"},
    {Fault::ReadFails, "read-fails", "register", REGISTERS, nullptr, 0, 0, 0, true,
     "register reads fail"},
    {Fault::WriteFails, "write-fails", "register", REGISTERS, nullptr, 0, 0, 0, true,
     "register writes fail"},
    {Fault::TableWriteLost, "table-write-lost", "entry", TABLE_ENTRIES, nullptr, 0, 0, 0, true,
     "words written to the instrument tables do not stick"},
    {Fault::NameChanges, "name-changes", "entry", TABLE_ENTRIES, nullptr, 0, 0, 0, true,
     "the first word of a name in the tables reads differently"},
    {Fault::CoreMissing, "core-missing", nullptr, 0, nullptr, 0, 0, 0, true,
     "the register core is not found"},
    {Fault::CoreTwice, "core-twice", nullptr, 0, nullptr, 0, 0, 0, true,
     "the register core is found twice"},
    {Fault::StreamRefused, "stream-refused", "channel", CHANNELS_END, nullptr, 0, 0, 0, true,
     "streams cannot be opened"},
    {Fault::SendBusy, "send-busy", "channel", CHANNELS_END, nullptr, 0, 0, 0, true,
     "sends to the board answer 11, try again"},
    {Fault::FifoErrors, "fifo-errors", "channel", CHANNELS_END, "value", 1, NO_MAX, 1, false,
     "the FIFO error counter of a stream reads value more"},
    {Fault::SlowReader, "slow-reader", "channel", CHANNELS_END, "value", SMALLEST_ROOM, RING_ROOM,
     SMALLEST_ROOM, false, "a ring has room for value bytes only"},
    {Fault::Garbage, "garbage", "channel", CHANNELS_END, nullptr, 0, 0, 0, true,
     "a message of random type, length and content, once a millisecond"},
    {Fault::Crash, "crash", nullptr, 0, nullptr, 0, 0, 0, false, "the board's process is killed"},
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

std::string FaultNames() {
    std::string names;
    for (const FaultInfo& info : INFOS) {
        names.append(names.empty() ? "" : ", ").append(info.name);
    }
    return names;
}

void CFaults::Set(const FaultSetting& setting) {
    FaultWords& words = Words(setting.kind);
    words.on.store(0, RELAXED);
    words.every.store(setting.every, RELAXED);
    words.target.store(setting.target, RELAXED);
    words.value.store(setting.value, RELAXED);
    words.limit.store(setting.limit, RELAXED);
    words.occasions.store(0, RELAXED);
    words.strikes.store(0, RELAXED);
    words.on.store(1, std::memory_order_release);
    CountKinds();
}

void CFaults::Clear(Fault kind) {
    Words(kind).on.store(0, RELAXED);
    CountKinds();
}

void CFaults::ClearAll() {
    for (FaultWords& words : m_block.kinds) {
        words.on.store(0, RELAXED);
    }
    CountKinds();
}

void CFaults::CountKinds() {
    const auto on =
        std::count_if(m_block.kinds.begin(), m_block.kinds.end(),
                      [](const FaultWords& words) { return words.on.load(RELAXED) != 0; });
    m_block.any.store(static_cast<uint32_t>(on), std::memory_order_release);
}

bool CFaults::Covers(Fault kind, uint32_t target) const {
    const FaultWords& words = Words(kind);
    if (words.on.load(std::memory_order_acquire) == 0) {
        return false;
    }
    const uint32_t wanted = words.target.load(RELAXED);
    return wanted == FAULT_ANY || target == FAULT_ANY || wanted == target;
}

bool CFaults::Count(Fault kind) {
    FaultWords& words = Words(kind);
    const uint32_t occasion = words.occasions.fetch_add(1, RELAXED) + 1;
    if (occasion % std::max(words.every.load(RELAXED), 1U) != 0) {
        return false;
    }
    const uint32_t limit = words.limit.load(RELAXED);
    const uint32_t strike = words.strikes.fetch_add(1, RELAXED) + 1;
    if (limit != 0 && strike >= limit) {
        Clear(kind);
    }
    return limit == 0 || strike <= limit;
}

std::string CFaults::Text() const {
    std::string text;
    for (const FaultInfo& info : INFOS) {
        const FaultWords& words = Words(info.kind);
        if (words.on.load(RELAXED) == 0) {
            continue;
        }
        text.append(text.empty() ? "" : ", ").append(info.name);
        const auto add = [&text](const char* name, uint32_t value) {
            text.append(" ").append(name).append("=").append(std::to_string(value));
        };
        if (const uint32_t target = words.target.load(RELAXED); target != FAULT_ANY) {
            add(info.target != nullptr ? info.target : "target", target);
        }
        if (info.value != nullptr) {
            add(info.value, words.value.load(RELAXED));
        }
        if (info.counted) {
            add("every", words.every.load(RELAXED));
            if (const uint32_t limit = words.limit.load(RELAXED); limit != 0) {
                add("limit", limit);
            }
            add("strikes", words.strikes.load(RELAXED));
        }
    }
    return text;
}

}  // namespace ZceBoard
