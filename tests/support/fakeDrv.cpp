#include "fakeDrv.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <ostream>

namespace velatest {

namespace {

constexpr unsigned long registerNum = 0x20000;
constexpr unsigned long wordBytes = 4;
constexpr unsigned long lessBytesLimit = 128;
constexpr unsigned long entryNum = 4096;
constexpr unsigned long entryWords = 64;
constexpr unsigned int nameWords = 4;
constexpr unsigned long noAccess = std::numeric_limits<unsigned long>::max();

constexpr unsigned long regReset = 0x10;
constexpr unsigned long regDecode = 0x11;
constexpr unsigned long regMapTrans = 0x12;

// The four registers of a table, from its base on.
constexpr unsigned long sglBase = 0x11000;
constexpr unsigned long cmbBase = 0x12000;
constexpr unsigned long writeData = 1;
constexpr unsigned long readAddr = 2;
constexpr unsigned long readData = 3;

}  // namespace

bool operator==(const DrvAccess& left, const DrvAccess& right) {
    return left.op == right.op && left.addr == right.addr && left.value == right.value;
}

std::ostream& operator<<(std::ostream& out, const DrvAccess& access) {
    return out << access.op << "(0x" << std::hex << access.addr << ", 0x" << access.value << ")"
               << std::dec;
}

FakeDrv::FakeDrv()
    : m_bytes(registerNum * wordBytes, 0),
      m_sglTable(entryNum * entryWords, 0),
      m_cmbTable(entryNum * entryWords, 0),
      m_failNumber(noAccess) {}

FakeDrv::~FakeDrv() {
    if (m_onDestroy) {
        m_onDestroy();
    }
}

std::vector<DrvAccess> FakeDrv::Writes() const {
    std::vector<DrvAccess> writes;
    std::copy_if(m_accesses.begin(), m_accesses.end(), std::back_inserter(writes),
                 [](const DrvAccess& access) { return access.op.starts_with("Write"); });
    return writes;
}

void FakeDrv::SetReg(unsigned long addr, unsigned int value) {
    std::memcpy(m_bytes.data() + addr * wordBytes, &value, sizeof(value));
}

unsigned int FakeDrv::Reg(unsigned long addr) const {
    unsigned int value = 0;
    std::memcpy(&value, m_bytes.data() + addr * wordBytes, sizeof(value));
    return value;
}

void FakeDrv::SetTableWord(Table table, unsigned int index, unsigned int word, unsigned int value) {
    TableOf(table).at(index * entryWords + word) = value;
}

unsigned int FakeDrv::TableWord(Table table, unsigned int index, unsigned int word) const {
    return (table == Table::Sgl ? m_sglTable : m_cmbTable).at(index * entryWords + word);
}

void FakeDrv::SetTableName(Table table, unsigned int index, std::string_view name) {
    for (unsigned int part = 0; part < nameWords; ++part) {
        unsigned int word = 0;
        for (unsigned int byte = 0; byte < wordBytes; ++byte) {
            const unsigned long at = part * wordBytes + byte;
            const unsigned char letter =
                at < name.size() ? static_cast<unsigned char>(name[at]) : '\0';
            word = word << 8U | letter;
        }
        SetTableWord(table, index, nameWords - part, word);
    }
}

void FakeDrv::QueueReads(unsigned long addr, const std::vector<unsigned int>& values) {
    std::deque<unsigned int>& queue = m_queuedReads[addr];
    queue.insert(queue.end(), values.begin(), values.end());
}

void FakeDrv::FailReads(unsigned long addr, unsigned int count) {
    m_failReads[addr] = count;
}

void FakeDrv::FailWrites(unsigned long addr, unsigned int count) {
    m_failWrites[addr] = count;
}

void FakeDrv::FailAccess(unsigned long number) {
    m_failNumber = m_readCount + m_writeCount + number;
}

std::vector<unsigned int>& FakeDrv::TableOf(Table table) {
    return table == Table::Sgl ? m_sglTable : m_cmbTable;
}

bool FakeDrv::TakeFailure(std::map<unsigned long, unsigned int>& failures, unsigned long addr) {
    if (failures.empty()) {
        return false;
    }
    const auto entry = failures.find(addr);
    if (entry == failures.end() || entry->second == 0) {
        return false;
    }
    if (entry->second != always) {
        --entry->second;
    }
    return true;
}

bool FakeDrv::Begin(std::string_view op, unsigned long addr, unsigned long value, bool write,
                    unsigned long bytes) {
    if (m_onAccess) {
        m_onAccess(DrvAccess{op, addr, value});
    }
    const bool failByNumber = m_readCount + m_writeCount == m_failNumber;
    ++(write ? m_writeCount : m_readCount);
    const bool failByAddr = TakeFailure(write ? m_failWrites : m_failReads, addr);
    const bool inside = bytes <= m_bytes.size() && addr <= (m_bytes.size() - bytes) / wordBytes;
    return !failByNumber && !failByAddr && inside;
}

void FakeDrv::Note(std::string_view op, unsigned long addr, unsigned long value) {
    if (m_record) {
        m_accesses.push_back(DrvAccess{op, addr, value});
    }
}

// What reading a register does: the table data registers follow their address register.
unsigned int FakeDrv::ReadEffect(unsigned long addr) {
    if (addr == sglBase + readData || addr == cmbBase + readData) {
        const std::vector<unsigned int>& table = addr < cmbBase ? m_sglTable : m_cmbTable;
        const unsigned int word = Reg(addr - readData + readAddr);
        SetReg(addr, word < table.size() ? table[word] : 0);
    }
    return Reg(addr);
}

// What a register that has just been written does.
void FakeDrv::Effect(unsigned long addr) {
    if (addr == sglBase || addr == cmbBase) {
        std::vector<unsigned int>& table = addr == sglBase ? m_sglTable : m_cmbTable;
        if (Reg(addr) < table.size()) {
            table[Reg(addr)] = Reg(addr + writeData);
        }
    }
    if (addr == regReset && Reg(addr) == 1) {
        std::fill(m_sglTable.begin(), m_sglTable.end(), 0);
        std::fill(m_cmbTable.begin(), m_cmbTable.end(), 0);
        SetReg(regDecode, 0);
        SetReg(regMapTrans, 0);
    }
}

template <typename Value>
int FakeDrv::Read(std::string_view op, unsigned long addr, Value& value) {
    if (!Begin(op, addr, 0, false, sizeof(Value))) {
        Note(op, addr, 0);
        return -1;
    }
    ReadEffect(addr);
    std::memcpy(&value, m_bytes.data() + addr * wordBytes, sizeof(Value));
    Note(op, addr, value);
    return 0;
}

template <typename Value>
int FakeDrv::Write(std::string_view op, unsigned long addr, Value value) {
    const bool good = Begin(op, addr, value, true, sizeof(Value));
    Note(op, addr, value);
    if (!good) {
        return -1;
    }
    std::memcpy(m_bytes.data() + addr * wordBytes, &value, sizeof(Value));
    Effect(addr);
    return 0;
}

int FakeDrv::Init(void* param) {
    m_inits.push_back(*static_cast<const DrvRegInitParms_t*>(param));
    return m_initResult;
}

int FakeDrv::ReadInt8(unsigned long addr, unsigned char& value) {
    return Read("ReadInt8", addr, value);
}

int FakeDrv::ReadInt16(unsigned long addr, unsigned short& value) {
    return Read("ReadInt16", addr, value);
}

int FakeDrv::ReadInt32(unsigned long addr, unsigned int& value) {
    if (!Begin("ReadInt32", addr, 0, false, sizeof(value))) {
        Note("ReadInt32", addr, 0);
        return -1;
    }
    const auto queued = m_queuedReads.find(addr);
    if (queued != m_queuedReads.end() && !queued->second.empty()) {
        value = queued->second.front();
        queued->second.pop_front();
    } else {
        value = ReadEffect(addr);
    }
    Note("ReadInt32", addr, value);
    return 0;
}

int FakeDrv::ReadInt64(unsigned long addr, unsigned long& value) {
    return Read("ReadInt64", addr, value);
}

long FakeDrv::ReadLess128Bytes(unsigned long addr, unsigned char* dst, unsigned long len) {
    if (dst == nullptr || len > lessBytesLimit) {
        return 0;
    }
    const bool good = Begin("ReadLess128Bytes", addr, 0, false, len);
    Note("ReadLess128Bytes", addr, good ? len : 0);
    if (!good) {
        return -1;
    }
    const unsigned char* first = m_bytes.data() + addr * wordBytes;
    std::reverse_copy(first, first + len, dst);
    return static_cast<long>(len);
}

long FakeDrv::ReadBytes(unsigned long addr, unsigned char* dst, unsigned long len) {
    if (dst == nullptr) {
        return 0;
    }
    const bool good = Begin("ReadBytes", addr, 0, false, len);
    Note("ReadBytes", addr, good ? len : 0);
    if (!good) {
        return -1;
    }
    std::copy_n(m_bytes.data() + addr * wordBytes, len, dst);
    return static_cast<long>(len);
}

int FakeDrv::WriteInt8(unsigned long addr, unsigned char value) {
    return Write("WriteInt8", addr, value);
}

int FakeDrv::WriteInt16(unsigned long addr, unsigned short value) {
    return Write("WriteInt16", addr, value);
}

int FakeDrv::WriteInt32(unsigned long addr, unsigned int value) {
    return Write("WriteInt32", addr, value);
}

int FakeDrv::WriteInt32_Log(unsigned long addr, unsigned int value) {
    return Write("WriteInt32_Log", addr, value);
}

// One access in the record: its status is the read-back's.
int FakeDrv::WriteInt32_LogWithRead(unsigned long addr, unsigned int value) {
    Write("WriteInt32_LogWithRead", addr, value);
    return TakeFailure(m_failReads, addr) || addr >= registerNum ? -1 : 0;
}

int FakeDrv::WriteInt64(unsigned long addr, unsigned long value) {
    return Write("WriteInt64", addr, value);
}

long FakeDrv::WriteLess128Bytes(unsigned long addr, unsigned char* src, unsigned long len) {
    if (src == nullptr || len > lessBytesLimit) {
        return 0;
    }
    const bool good = Begin("WriteLess128Bytes", addr, len, true, len);
    Note("WriteLess128Bytes", addr, len);
    if (!good) {
        return -1;
    }
    std::reverse_copy(src, src + len, m_bytes.data() + addr * wordBytes);
    return static_cast<long>(len);
}

long FakeDrv::WriteBytes(unsigned long addr, unsigned char* src, unsigned long len) {
    if (src == nullptr) {
        return 0;
    }
    const bool good = Begin("WriteBytes", addr, len, true, len);
    Note("WriteBytes", addr, len);
    if (!good) {
        return -1;
    }
    std::copy_n(src, len, m_bytes.data() + addr * wordBytes);
    return static_cast<long>(len);
}

}  // namespace velatest
