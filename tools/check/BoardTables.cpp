// The tables of a software board.

#include <fmt/format.h>

#include <cerrno>
#include <cstring>

#include "DataType/ZceFpgaServ.h"
#include "DataType/ZceRegMap.h"
#include "check/InstrumentNames.h"
#include "check/NoBoard.h"
#include "memory/BoardMemory.h"
#include "memory/RegisterMap.h"

namespace ZceCheck {

namespace {

// The read windows of a board's tables, with addresses of its own: the table reader of the library
// writes a window's address before it reads, and this keeps it away from the board.
class CTableReader final : public CNoBoard {
  public:
    explicit CTableReader(const ZceBoard::BoardShm& shm) : m_shm(shm) {}

    int ReadInt32(unsigned long addr, unsigned int& value) override {
        value = 0;
        if (addr == Vela2_U50::ZCE_REG_SGL_TABLE.readData) {
            value = Word(ZceBoard::TABLE_SINGLE, m_uiSingleAddr);
        } else if (addr == Vela2_U50::ZCE_REG_CMB_TABLE.readData) {
            value = Word(ZceBoard::TABLE_COMBINE, m_uiCombinedAddr);
        }
        return 0;
    }
    int WriteInt32_LogWithRead(unsigned long addr, unsigned int value) override {
        (addr == Vela2_U50::ZCE_REG_SGL_TABLE.readAddr ? m_uiSingleAddr : m_uiCombinedAddr) = value;
        return 0;
    }

  private:
    unsigned int Word(std::uint32_t table, unsigned int addr) const {
        return addr < ZceBoard::TABLE_WORDS
                   ? m_shm.tables[table][addr].load(std::memory_order_relaxed)
                   : 0;
    }

    const ZceBoard::BoardShm& m_shm;
    unsigned int m_uiSingleAddr = 0;
    unsigned int m_uiCombinedAddr = 0;
};

std::string WhyNotAttached(std::uint32_t bus, int err) {
    if (err == ENODEV) {
        return fmt::format(
            "bus {}: no zce-board is running on it; the tables of a card cannot be read without "
            "disturbing it, take --bin or --instruments",
            bus);
    }
    if (err == EACCES) {
        return fmt::format("bus {}: the zce-board running on it is another user's", bus);
    }
    return fmt::format("bus {}: cannot map the memory of its board: {}", bus, std::strerror(err));
}

}  // namespace

bool ReadBoardTables(std::uint32_t bus, InstrumentNames& names, std::string& error) {
    names.source = fmt::format("the board on bus {}", bus);
    ZceBoard::CBoardMemory memory;
    if (const int err = memory.Attach(bus); err != 0) {
        error = WhyNotAttached(bus, err);
        return false;
    }
    CTableReader reader(memory.Shm());
    Vela2_U50::CZceFpgaServ tables(names.byName, 0);
    tables.Init(&reader);
    tables.FetchAllInst();
    if (names.byName.empty()) {
        error = names.source + " knows no instrument yet";
        return false;
    }
    return true;
}

}  // namespace ZceCheck
