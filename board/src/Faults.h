#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ShmLayout.h"

namespace ZceBoard {

// What can be wrong with a board. The order is that of FaultBlock::kinds.
enum class Fault : uint8_t {
    LinkDown,        // 0x103 reads `value` (a set bit: that fibre is connected)
    CountersStuck,   // the parse counters stand still
    ClockStuck,      // 0x104, 0x105 or both (target) stand still
    ReadFails,       // register reads fail (target: one register)
    WriteFails,      // register writes fail (target: one register)
    TableWriteLost,  // writes of table words do not stick (target: one entry)
    NameChanges,     // names differ from read to read (target: one entry)
    CoreMissing,     // there is no register core
    CoreTwice,       // there are two
    StreamRefused,   // streams cannot be opened (target: one channel)
    SendBusy,        // sends to the board answer "try again" (target: one channel)
    FifoErrors,      // the stream's FIFO error counter reads `value` (target: one channel)
    SlowReader,      // a ring has room for `value` bytes only (target: one channel)
    Garbage,         // a message of random type, length and content (target: one channel)
    Crash,           // the board's process is killed
};

// How a fault is set, with what a person may say about it.
struct FaultSetting {
    Fault kind;
    uint32_t every = 1;
    uint32_t target = FAULT_ANY;
    uint32_t value = 0;
    uint32_t limit = 0;
};

// What a kind of fault is called, what its target and value are, and its value when none is given.
struct FaultInfo {
    Fault kind;
    const char* name;    // "read-fails"
    const char* target;  // what its target is called: "register", "channel", "entry"; null: none
    uint32_t targetEnd;  // targets are below it
    const char* value;   // what its value is called; null: it has none
    uint32_t valueMin;
    uint32_t valueMax;
    uint32_t valueDefault;
    bool counted;      // whether `every` and `limit` mean something
    const char* text;  // one line for people
};

const FaultInfo& InfoOf(Fault kind);
// The kind of a name, none if there is no such fault.
std::optional<Fault> FaultOf(std::string_view name);
// All names, for messages: "link-down, counters-stuck, ...".
std::string FaultNames();

// The faults of one board, for the process that sets them, the board's and those that use it. Any
// thread.
class CFaults {
  public:
    explicit CFaults(BoardShm& shm) : m_block(shm.faults) {}

    // Switches a fault on (with fresh counts) or off.
    void Set(const FaultSetting& setting);
    void Clear(Fault kind);
    void ClearAll();

    bool Any() const { return m_block.any.load(std::memory_order_relaxed) != 0; }
    // Whether the fault is there for this target, without being an occasion for it.
    bool IsOn(Fault kind, uint32_t target = FAULT_ANY) const {
        return Any() && Covers(kind, target);
    }
    // An occasion for a fault: true if it strikes now. The last strike of a limit switches it off.
    bool Strikes(Fault kind, uint32_t target = FAULT_ANY) {
        return Any() && Covers(kind, target) && Count(kind);
    }
    uint32_t ValueOf(Fault kind) const { return Words(kind).value.load(std::memory_order_relaxed); }

    const FaultWords& Words(Fault kind) const { return m_block.kinds[static_cast<size_t>(kind)]; }
    // The faults that are there, as setting: "read-fails register=0x11 every=3 strikes=2", one
    // after another with ", " between; empty if there are none.
    std::string Text() const;

  private:
    FaultWords& Words(Fault kind) { return m_block.kinds[static_cast<size_t>(kind)]; }
    bool Covers(Fault kind, uint32_t target) const;
    bool Count(Fault kind);
    void CountKinds();

    FaultBlock& m_block;
};

}  // namespace ZceBoard
