#include <array>
#include <cstring>

#include "DataType/ZceFpgaServ.h"
#include "DataType/ZceNumbers.h"
#include "log/elog.h"

namespace Vela2_U50 {

namespace {

// Entries whose names are read: the last one of the table, 4095, is not. Deliberate.
constexpr unsigned int g_uiFetchIndexNum = 4095;
// Reads of one entry's name before it is given up: the board may be writing it.
constexpr unsigned int g_uiFetchAttempts = 8;
// A name read twice in a row is accepted at this attempt (from 0); a later one is worth a line.
constexpr unsigned int g_uiUsualAttempt = 1;

}  // namespace

// One reading of an entry's name; empty if its first byte is NUL.
std::string CZceFpgaServ::ReadName(const ZceTableRegs_t& regs, unsigned int index) const {
    std::array<char, ZCE_NAME_BYTES> buffer{};
    std::size_t at = 0;
    for (unsigned int part = 0; part < ZCE_NAME_WORDS; ++part) {
        const unsigned int word =
            ReadTableWord(regs, index * ZCE_ENTRY_WORDS + ZCE_NAME_WORDS - part);
        for (unsigned int shift = 24; at < (part + 1) * sizeof(word); ++at, shift -= 8) {
            buffer[at] = static_cast<char>(static_cast<unsigned char>(word >> shift));
        }
    }
    return {buffer.data(), strnlen(buffer.data(), buffer.size())};
}

// The board may be writing the entry: a name counts when two non-empty reads in a row agree (empty
// ones between them do not matter).
void CZceFpgaServ::FetchEntry(const ZceTableRegs_t& regs, std::uint16_t index) {
    std::string lastName;
    for (unsigned int attempt = 0; attempt < g_uiFetchAttempts; ++attempt) {
        std::string name = ReadName(regs, index);
        if (name.empty()) {
            continue;
        }
        if (name == lastName) {
            m_mapInst[name] = index;
            if (attempt != g_uiUsualAttempt) {
                LOG_WARN(
                    "current read fpga %u time, and this is equal previous, current inst id:%s ",
                    attempt, name.c_str());
            }
            return;
        }
        lastName.swap(name);
    }
}

void CZceFpgaServ::FetchTable(const ZceTableRegs_t& regs) {
    for (std::uint16_t index = 0; index < g_uiFetchIndexNum; ++index) {
        FetchEntry(regs, index);
    }
}

void CZceFpgaServ::FetchAllInst() {
    const std::lock_guard<std::mutex> lock(subscribe_mutex);
    FetchTable(ZCE_REG_SGL_TABLE);
    FetchTable(ZCE_REG_CMB_TABLE);
    LOG_INFO("New round, fetch from fpga, inst count:%u.", Count(m_mapInst));
}

}  // namespace Vela2_U50
