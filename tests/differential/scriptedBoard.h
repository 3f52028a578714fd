#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "DrvEnyx/IDrv.h"

namespace velatest {

// A board that does what its script says, with every access recorded.
//
// Control registers: successive reads give the values of the script, the last one stays; a null
// among them is a read that fails; a write puts its value in the script's place. Instrument tables:
// names that may differ from one reading to the next. Control accesses are listed, table accesses
// counted, and listed as well if `listTables`.
class ScriptedBoard {
  public:
    // Everything as the script says; nothing is left of the case before.
    void Load(const nlohmann::json& script, bool listTables);
    void SetRegister(unsigned long addr, const nlohmann::json& values);

    std::optional<unsigned int> Read(unsigned long addr);
    // kind: 'W' plain, 'L' logged, 'V' with read-back.
    void Write(char kind, unsigned long addr, unsigned int value) {
        Table* const table = TableOf(addr);
        if (table != nullptr) {
            WriteTable(*table, kind, addr - table->base, value);
        } else {
            WriteRegister(kind, addr, value);
        }
    }

    // "access": the list; "tables": counts by kind and register; "masks": both tables' entries with
    // a channel mask.
    nlohmann::json Result() const;
    // Whether an entry's name was read.
    bool NamesWereRead() const { return m_namesRead; }
    // What register 0x12 was last set to; 0 if it never was.
    unsigned int MapTransfer() const { return m_mapTransfer; }

  private:
    static constexpr unsigned long entryWords = 64;
    static constexpr unsigned long entryNum = 4096;
    static constexpr unsigned long nameWord = 4;  // read first; the name's first characters
    static constexpr unsigned long singleBase = 0x11000;
    static constexpr unsigned long combinedBase = 0x12000;
    static constexpr unsigned long writeAddress = 0;  // a table's four registers, from its base
    static constexpr unsigned long writeData = 1;
    static constexpr unsigned long readAddress = 2;
    static constexpr unsigned long readData = 3;

    struct Script {
        std::vector<std::string> names;
        std::size_t attempts = 0;
        bool gone = false;
    };
    struct Register {
        std::vector<std::optional<unsigned int>> values;
        std::size_t reads = 0;
    };
    struct Table {
        unsigned long base = 0;
        std::vector<unsigned int> words = std::vector<unsigned int>(entryNum * entryWords, 0);
        std::map<unsigned long, unsigned int> beyond;  // words of entries past the last
        std::map<unsigned long, Script> scripts;       // by entry
        std::vector<unsigned long> written;            // addresses of words that are not 0
        bool isBlank = true;                           // every word is 0
        unsigned int data = 0;
        unsigned long readAddr = 0;
        std::array<unsigned long, 4> plainWrites{};  // by register of the four
        std::array<unsigned long, 4> checkedWrites{};
        unsigned long reads = 0;
    };

    // Null for a control register. A start writes a million words: this and what it leads to are
    // kept short.
    Table* TableOf(unsigned long addr) {
        if (addr < singleBase) {
            return nullptr;
        }
        return addr < combinedBase ? &m_tables[0] : &m_tables[1];
    }
    void WriteTable(Table& table, char kind, unsigned long reg, unsigned int value) {
        ++(kind == 'V' ? table.checkedWrites : table.plainWrites).at(reg);
        if (m_listTables) {
            ListWrite(kind, table.base + reg, value);
        }
        if (reg == writeData) {
            table.data = value;
        } else if (reg == writeAddress) {
            Store(table, kind, value);
        } else {
            SetReadAddress(table, value);
        }
    }
    void Store(Table& table, char kind, unsigned long addr) {
        const unsigned int value = kind == 'V' ? table.data & m_keptBits : table.data;
        if (addr % entryWords == nameWord && !m_learnsAgain) {
            Forget(table, addr / entryWords);
        }
        if (value != 0 || !table.isBlank) {
            StoreWord(table, addr, value);
        }
    }
    static void StoreWord(Table& table, unsigned long addr, unsigned int value);
    void ListWrite(char kind, unsigned long addr, unsigned int value);
    void WriteRegister(char kind, unsigned long addr, unsigned int value);
    unsigned int ReadTable(Table& table);
    static void SetReadAddress(Table& table, unsigned int addr);
    static void Forget(Table& table, unsigned long entry);
    static void ShowName(Table& table, unsigned long entry);
    void LoadNames(Table& table, const nlohmann::json& names);

    std::map<unsigned long, Register> m_registers;
    std::array<Table, 2> m_tables;
    std::vector<std::string> m_access;
    bool m_listTables = false;
    bool m_learnsAgain = false;
    bool m_namesRead = false;
    unsigned int m_keptBits = 0xFFFF;
    unsigned int m_mapTransfer = 0;
};

// The driver to it. An operation that no case comes to ends the process.
class ScriptedDrv final : public IDrv {
  public:
    explicit ScriptedDrv(ScriptedBoard& board) : m_board(board) {}

    int Init(void* param) override;
    int ReadInt8(unsigned long addr, unsigned char& value) override;
    int ReadInt16(unsigned long addr, unsigned short& value) override;
    int ReadInt32(unsigned long addr, unsigned int& value) override;
    int ReadInt64(unsigned long addr, unsigned long& value) override;
    long ReadLess128Bytes(unsigned long addr, unsigned char* dst, unsigned long len) override;
    long ReadBytes(unsigned long addr, unsigned char* dst, unsigned long len) override;
    int WriteInt8(unsigned long addr, unsigned char value) override;
    int WriteInt16(unsigned long addr, unsigned short value) override;
    int WriteInt32(unsigned long addr, unsigned int value) override;
    int WriteInt32_Log(unsigned long addr, unsigned int value) override;
    int WriteInt32_LogWithRead(unsigned long addr, unsigned int value) override;
    int WriteInt64(unsigned long addr, unsigned long value) override;
    long WriteLess128Bytes(unsigned long addr, unsigned char* src, unsigned long len) override;
    long WriteBytes(unsigned long addr, unsigned char* src, unsigned long len) override;

  private:
    ScriptedBoard& m_board;
};

}  // namespace velatest
