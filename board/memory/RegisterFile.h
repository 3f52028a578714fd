#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "memory/Faults.h"
#include "memory/ShmLayout.h"

namespace ZceBoard {

// A field of the register space: `width` bits (1 to 64) from bit `bitOffset` of byte `byteOffset`,
// the space being little-endian.
struct RegisterField {
    uint64_t byteOffset;
    uint32_t bitOffset;
    uint32_t width;
};

// The registers and instrument tables of a board, with the effects of accesses. They are carried
// out by the accessing process itself, in the shared memory. A field is moved by 32-bit words in
// ascending order, and each word has its effect when its turn comes. The caller holds the core
// lock.
//
// The registers 0x103 to 0x105, the parse counters and the tables' read data are the board's: a
// host's write to them does nothing. Table addresses beyond the table read as 0 and store nothing.
class CRegisterFile {
  public:
    explicit CRegisterFile(BoardShm& shm) : m_shm(shm) {}

    // False if the field does not lie in the register space; `value` is then untouched.
    bool Read(const RegisterField& field, uint64_t& value) const;
    bool Write(const RegisterField& field, uint64_t value);
    // Whether this access to the field, a ReadFails or a WriteFails, fails by a fault of the board.
    // A field outside of the space is no occasion.
    bool FailsByFault(Fault kind, const RegisterField& field) {
        return CFaults(m_shm).Any() && Strikes(kind, field);
    }

    // One 32-bit register, an index below REGISTER_COUNT.
    uint32_t ReadWord(uint32_t index) const;
    void WriteWord(uint32_t index, uint32_t value);

    // What register 0x10 does: tables, switches, counters, network registers and date to 0.
    void Reset();

    // An instrument's name as the board learns it: words 4, 3, 2, 1, the first character in the
    // most significant byte. `name` is cut after 16 characters. Entry below TABLE_ENTRIES.
    void StoreName(uint32_t table, uint32_t entry, const std::string& name);
    std::string LoadName(uint32_t table, uint32_t entry) const;
    uint32_t Mask(uint32_t table, uint32_t entry) const {
        return m_shm.tables[table][size_t{entry} * TABLE_ENTRY_WORDS + TABLE_MASK_WORD].load(
            std::memory_order_relaxed);
    }

    // A register without its effect, for the board itself. No lock is needed.
    uint32_t Peek(uint32_t index) const {
        return m_shm.registers[index].load(std::memory_order_relaxed);
    }
    void Poke(uint32_t index, uint32_t value) {
        m_shm.registers[index].store(value, std::memory_order_relaxed);
    }
    void Count(uint32_t index, uint32_t by) {
        m_shm.registers[index].fetch_add(by, std::memory_order_relaxed);
    }

  private:
    static bool Inside(const RegisterField& field);
    static bool IsBoardOwned(uint32_t index);
    bool Strikes(Fault kind, const RegisterField& field);
    uint32_t ReadTable(uint32_t table, uint32_t window) const;
    void WriteTable(uint32_t table, uint32_t window);

    BoardShm& m_shm;
};

}  // namespace ZceBoard
