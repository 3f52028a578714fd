#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "DrvEnyx/IDrv.h"

namespace velabench {

// The registers of a board whose access takes no time: word 0 of each entry of the two instrument
// tables is kept, every other register reads as 0.
class CFreeDrv final : public IDrv {
  public:
    using Masks = std::vector<std::uint16_t>;

    // The channel masks that were written, by the board's index.
    const Masks& SingleMasks() const { return m_single.masks; }
    const Masks& CombinationMasks() const { return m_combination.masks; }

    int Init(void* /*param*/) override { return 0; }
    int ReadInt8(unsigned long /*addr*/, unsigned char& value) override { return Zero(value); }
    int ReadInt16(unsigned long /*addr*/, unsigned short& value) override { return Zero(value); }
    int ReadInt32(unsigned long addr, unsigned int& value) override {
        const Table* table = addr == singleBase + 3        ? &m_single
                             : addr == combinationBase + 3 ? &m_combination
                                                           : nullptr;
        value = table == nullptr ? 0 : table->masks[table->readAt];
        return 0;
    }
    int ReadInt64(unsigned long /*addr*/, unsigned long& value) override { return Zero(value); }
    long ReadLess128Bytes(unsigned long /*addr*/, unsigned char* /*dst*/,
                          unsigned long /*len*/) override {
        return 0;
    }
    long ReadBytes(unsigned long /*addr*/, unsigned char* /*dst*/, unsigned long /*len*/) override {
        return 0;
    }
    int WriteInt8(unsigned long /*addr*/, unsigned char /*value*/) override { return 0; }
    int WriteInt16(unsigned long /*addr*/, unsigned short /*value*/) override { return 0; }
    int WriteInt32(unsigned long addr, unsigned int value) override {
        Write(m_single, addr - singleBase, value);
        Write(m_combination, addr - combinationBase, value);
        return 0;
    }
    int WriteInt32_Log(unsigned long addr, unsigned int value) override {
        return WriteInt32(addr, value);
    }
    int WriteInt32_LogWithRead(unsigned long addr, unsigned int value) override {
        return WriteInt32(addr, value);
    }
    int WriteInt64(unsigned long /*addr*/, unsigned long /*value*/) override { return 0; }
    long WriteLess128Bytes(unsigned long /*addr*/, unsigned char* /*src*/,
                           unsigned long /*len*/) override {
        return 0;
    }
    long WriteBytes(unsigned long /*addr*/, unsigned char* /*src*/,
                    unsigned long /*len*/) override {
        return 0;
    }

  private:
    static constexpr unsigned long singleBase = 0x11000;
    static constexpr unsigned long combinationBase = 0x12000;
    static constexpr std::size_t entries = 4096;
    static constexpr unsigned int entryWords = 64;

    struct Table {
        Masks masks = Masks(entries);
        std::size_t readAt = 0;
        unsigned int data = 0;
    };

    template <class Value>
    static int Zero(Value& value) {
        value = 0;
        return 0;
    }
    static void Write(Table& table, unsigned long reg, unsigned int value) {
        const std::size_t entry = value / entryWords % entries;
        if (reg == 0 && value % entryWords == 0) {
            table.masks[entry] = static_cast<std::uint16_t>(table.data);
        } else if (reg == 1) {
            table.data = value;
        } else if (reg == 2) {
            table.readAt = entry;
        }
    }

    Table m_single;
    Table m_combination;
};

}  // namespace velabench
