#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "memory/ShmLayout.h"

namespace ZceBoard {

// What can be wrong with a board. The order is that of FaultBlock::kinds.
enum class Fault : uint8_t {
    LinkDown,        // 0x103 reads `value` (a set bit: that fibre is connected)
    CountersStuck,   // the parse counters stand still
    ClockStuck,      // 0x104, 0x105 or both (target) stand still
    ReadFails,       // register reads fail (target: one register)
    WriteFails,      // register writes fail (target: one register)
    TableWriteLost,  // writes of table words do not stick (target: one entry, in both tables)
    NameChanges,     // names differ from read to read (target: one entry, in both tables)
    CoreMissing,     // there is no register core
    CoreTwice,       // there are two
    StreamRefused,   // streams cannot be opened (target: one channel)
    SendBusy,        // sends to the board answer "try again" (target: one channel)
    FifoErrors,      // the stream's FIFO error counter reads `value` more (target: one channel)
    SlowReader,      // a ring has room for `value` bytes only (target: one channel)
    Garbage,         // a message of random type, length and content (target: one channel)
    Crash,           // the board's process is killed
};

// How a fault is set; ParseFault (FaultText.h) makes one of what a person says.
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
    bool counted;        // whether `every` and `limit` mean something
    const char* name;    // "read-fails"
    const char* target;  // what its target is called: "register", "channel", "entry"; null: none
    uint32_t targetMin;
    uint32_t targetMax;
    const char* value;  // what its value is called; null: it has none
    uint32_t valueMin;  // what it is when none is given, too
    uint32_t valueMax;
    const char* text;  // one line for people
};

const FaultInfo& InfoOf(Fault kind);
// The kind of a name, none if there is no such fault.
std::optional<Fault> FaultOf(std::string_view name);

// The faults of one board, for the process that sets them, the board's and those that use it. Any
// thread of any of them; of two that set one kind at the same time either may win,
// or none. What nobody set with Set(), whatever stands in the memory, is no fault.
class CFaults {
  public:
    explicit CFaults(BoardShm& shm) : m_block(shm.faults) {}

    // Switches a fault on (with fresh counts) or off.
    void Set(const FaultSetting& setting);
    void Clear(Fault kind);
    void ClearAll();

    // For the board, once a pass: clears what says that it is on and is none, if it said so the
    // last time already (`suspects`, of the caller's); how many there were.
    uint32_t DropGarbage(uint32_t& suspects);

    // Nothing but one load: what every access asks first.
    bool Any() const { return m_block.on.load(std::memory_order_relaxed) != 0; }
    // Whether the fault is there for this target, without being an occasion for it.
    bool IsOn(Fault kind, uint32_t target = FAULT_ANY) const {
        return Any() && Covers(kind, target, target);
    }
    // An occasion for a fault, which touches the targets `first` to `last`: if it strikes now, the
    // number of this strike since it was set, else 0. The last one of a limit switches it off.
    uint32_t Strikes(Fault kind, uint32_t first, uint32_t last) {
        return Any() && Covers(kind, first, last) ? Count(kind) : 0;
    }
    uint32_t Strikes(Fault kind, uint32_t target = FAULT_ANY) {
        return Strikes(kind, target, target);
    }
    // Within what the kind allows, whatever stands in the memory.
    uint32_t ValueOf(Fault kind) const;
    FaultSetting Setting(Fault kind) const;

    const FaultWords& Words(Fault kind) const { return m_block.kinds[static_cast<size_t>(kind)]; }
    // The faults that are there, each as ParseFault takes it and, if it is counted, how often it
    // struck: "read-fails register=0x11 every=3 strikes=2, crash"; empty if there are none.
    std::string Text() const;

  private:
    FaultWords& Mine(Fault kind) { return m_block.kinds[static_cast<size_t>(kind)]; }
    static uint32_t BitOf(Fault kind) { return 1U << static_cast<unsigned>(kind); }
    bool Covers(Fault kind, uint32_t first, uint32_t last) const;
    uint32_t Count(Fault kind);
    bool IsSealed(Fault kind) const;

    FaultBlock& m_block;
};

}  // namespace ZceBoard
