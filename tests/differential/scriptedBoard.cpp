#include "scriptedBoard.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "differText.h"

namespace velatest {

namespace {

constexpr unsigned long mapTransferRegister = 0x12;

std::string Hex(unsigned long number) {
    std::array<char, 20> text{};
    std::snprintf(text.data(), text.size(), "%lx", number);
    return text.data();
}

std::string Access(char kind, unsigned long addr) {
    return kind + (" " + Hex(addr));
}

}  // namespace

void ScriptedBoard::Load(const nlohmann::json& script, bool listTables) {
    m_registers.clear();
    m_access.clear();
    m_listTables = listTables;
    m_learnsAgain = script.value("learns_again", false);
    m_keptBits = script.value("kept_bits", 0xFFFFU);
    m_namesRead = false;
    m_mapTransfer = 0;
    const auto registers = script.find("registers");
    if (registers != script.end()) {
        for (const auto& [addr, values] : registers->items()) {
            SetRegister(std::stoul(addr, nullptr, 16), values);
        }
    }
    constexpr std::array<const char*, 2> keys = {"single", "combined"};
    for (std::size_t number = 0; number < m_tables.size(); ++number) {
        Table& table = m_tables[number];
        table.base = number == 0 ? singleBase : combinedBase;
        for (const unsigned long addr : table.written) {
            table.words[addr] = 0;
        }
        table.written.clear();
        table.isBlank = true;
        table.beyond.clear();
        table.scripts.clear();
        table.data = 0;
        table.readAddr = table.reads = 0;
        table.plainWrites = table.checkedWrites = {};
        if (script.contains(keys[number])) {
            LoadNames(table, script[keys[number]]);
        }
    }
}

void ScriptedBoard::LoadNames(Table& table, const nlohmann::json& names) {
    for (const nlohmann::json& entry : names) {
        Script& script = table.scripts[entry.at(0).get<unsigned long>()];
        for (const nlohmann::json& name : entry.at(1)) {
            script.names.push_back(Bytes(name));
        }
    }
}

void ScriptedBoard::SetRegister(unsigned long addr, const nlohmann::json& values) {
    Register& reg = m_registers[addr];
    reg.values.clear();
    for (const nlohmann::json& value : values) {
        reg.values.push_back(value.is_null() ? std::nullopt
                                             : std::optional(value.get<unsigned int>()));
    }
}

std::optional<unsigned int> ScriptedBoard::Read(unsigned long addr) {
    Table* const table = TableOf(addr);
    if (table != nullptr) {
        return ReadTable(*table);
    }
    m_access.push_back(Access('R', addr));
    Register& reg = m_registers[addr];
    const std::size_t at = reg.reads++;
    return reg.values.empty() ? 0 : reg.values[std::min(at, reg.values.size() - 1)];
}

void ScriptedBoard::ListWrite(char kind, unsigned long addr, unsigned int value) {
    m_access.push_back(Access(kind, addr) + " " + Hex(value));
}

void ScriptedBoard::WriteRegister(char kind, unsigned long addr, unsigned int value) {
    ListWrite(kind, addr, value);
    m_registers[addr].values = {value};
    if (addr == mapTransferRegister) {
        m_mapTransfer = value;
    }
}

unsigned int ScriptedBoard::ReadTable(Table& table) {
    ++table.reads;
    if (m_listTables) {
        m_access.push_back(Access('R', table.base + readData));
    }
    m_namesRead |= table.readAddr % entryWords != 0;
    if (table.readAddr < table.words.size()) {
        return table.words[table.readAddr];
    }
    const auto word = table.beyond.find(table.readAddr);
    return word == table.beyond.end() ? 0 : word->second;
}

void ScriptedBoard::StoreWord(Table& table, unsigned long addr, unsigned int value) {
    table.isBlank = false;
    if (addr >= table.words.size()) {
        table.beyond[addr] = value;
    } else if (table.words[addr] != value) {
        table.words[addr] = value;
        table.written.push_back(addr);
    }
}

void ScriptedBoard::SetReadAddress(Table& table, unsigned int addr) {
    table.readAddr = addr;
    if (addr % entryWords == nameWord) {
        ShowName(table, addr / entryWords);
    }
}

// A cleared entry has no name to read any more.
void ScriptedBoard::Forget(Table& table, unsigned long entry) {
    const auto script = table.scripts.find(entry);
    if (script != table.scripts.end()) {
        script->second.gone = true;
    }
}

// The name that the next reading of the entry finds.
void ScriptedBoard::ShowName(Table& table, unsigned long entry) {
    const auto found = table.scripts.find(entry);
    if (found == table.scripts.end() || found->second.gone || entry >= entryNum) {
        return;
    }
    Script& script = found->second;
    const std::string& name = script.names[std::min(script.attempts++, script.names.size() - 1)];
    for (unsigned long part = 0; part < nameWord; ++part) {
        unsigned int word = 0;
        for (std::size_t at = part * 4; at < part * 4 + 4; ++at) {
            word = word << 8U | (at < name.size() ? static_cast<unsigned char>(name[at]) : 0U);
        }
        table.words[entry * entryWords + nameWord - part] = word;
        table.isBlank = false;
        table.written.push_back(entry * entryWords + nameWord - part);
    }
}

nlohmann::json ScriptedBoard::Result() const {
    nlohmann::json counts = nlohmann::json::object();
    nlohmann::json masks = nlohmann::json::array();
    const auto put = [&counts](char kind, unsigned long addr, unsigned long count) {
        if (count != 0) {
            counts[Access(kind, addr)] = count;
        }
    };
    for (const Table& table : m_tables) {
        for (unsigned long reg = 0; reg < table.plainWrites.size(); ++reg) {
            put('W', table.base + reg, table.plainWrites[reg]);
            put('V', table.base + reg, table.checkedWrites[reg]);
        }
        put('R', table.base + readData, table.reads);
        nlohmann::json found = nlohmann::json::array();
        for (unsigned long entry = 0; entry < entryNum; ++entry) {
            if (table.words[entry * entryWords] != 0) {
                found.push_back({entry, table.words[entry * entryWords]});
            }
        }
        for (const auto& [addr, value] : table.beyond) {
            if (addr % entryWords == 0 && value != 0) {
                found.push_back({addr / entryWords, value});
            }
        }
        masks.push_back(found);
    }
    return {{"access", m_access}, {"tables", counts}, {"masks", masks}};
}

int ScriptedDrv::ReadInt32(unsigned long addr, unsigned int& value) {
    const std::optional<unsigned int> read = m_board.Read(addr);
    value = read.value_or(value);
    return read ? 0 : -1;
}
int ScriptedDrv::WriteInt32(unsigned long addr, unsigned int value) {
    m_board.Write('W', addr, value);
    return 0;
}
int ScriptedDrv::WriteInt32_Log(unsigned long addr, unsigned int value) {
    m_board.Write('L', addr, value);
    return 0;
}
int ScriptedDrv::WriteInt32_LogWithRead(unsigned long addr, unsigned int value) {
    m_board.Write('V', addr, value);
    return 0;
}

namespace {

[[noreturn]] void Unexpected(const char* operation) {
    std::fprintf(stderr, "unexpected operation: %s\n", operation);
    std::_Exit(1);
}

}  // namespace

int ScriptedDrv::Init(void* /*param*/) {
    Unexpected("Init");
}
int ScriptedDrv::ReadInt8(unsigned long /*addr*/, unsigned char& /*value*/) {
    Unexpected("ReadInt8");
}
int ScriptedDrv::ReadInt16(unsigned long /*addr*/, unsigned short& /*value*/) {
    Unexpected("ReadInt16");
}
int ScriptedDrv::ReadInt64(unsigned long /*addr*/, unsigned long& /*value*/) {
    Unexpected("ReadInt64");
}
long ScriptedDrv::ReadLess128Bytes(unsigned long /*addr*/, unsigned char* /*dst*/,
                                   unsigned long /*len*/) {
    Unexpected("ReadLess128Bytes");
}
long ScriptedDrv::ReadBytes(unsigned long /*addr*/, unsigned char* /*dst*/, unsigned long /*len*/) {
    Unexpected("ReadBytes");
}
int ScriptedDrv::WriteInt8(unsigned long /*addr*/, unsigned char /*value*/) {
    Unexpected("WriteInt8");
}
int ScriptedDrv::WriteInt16(unsigned long /*addr*/, unsigned short /*value*/) {
    Unexpected("WriteInt16");
}
int ScriptedDrv::WriteInt64(unsigned long /*addr*/, unsigned long /*value*/) {
    Unexpected("WriteInt64");
}
long ScriptedDrv::WriteLess128Bytes(unsigned long /*addr*/, unsigned char* /*src*/,
                                    unsigned long /*len*/) {
    Unexpected("WriteLess128Bytes");
}
long ScriptedDrv::WriteBytes(unsigned long /*addr*/, unsigned char* /*src*/,
                             unsigned long /*len*/) {
    Unexpected("WriteBytes");
}

}  // namespace velatest
