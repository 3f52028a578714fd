#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <iosfwd>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "DrvEnyx/IDrv.h"

// The board behind IDrv, in memory: 32-bit registers at byte offset 4 * index, and the two
// instrument tables behind registers 0x11000 to 0x11003 and 0x12000 to 0x12003. Writing 1 to
// register 0x10 clears what a reset of the board clears: the tables, 0x11 and 0x12.
namespace velatest {

// One access, in the order of the calls. value: what was written, or what was read (0 if the read
// failed); for accesses of several bytes their number.
struct DrvAccess {
    std::string_view op;  // name of the IDrv operation
    unsigned long addr = 0;
    unsigned long value = 0;
};
bool operator==(const DrvAccess& left, const DrvAccess& right);
std::ostream& operator<<(std::ostream& out, const DrvAccess& access);

class FakeDrv : public IDrv {
  public:
    enum class Table { Sgl, Cmb };

    FakeDrv();
    ~FakeDrv() override;
    FakeDrv(const FakeDrv&) = delete;
    FakeDrv& operator=(const FakeDrv&) = delete;

    // What was done so far, in order. Init is not among it.
    const std::vector<DrvAccess>& Accesses() const { return m_accesses; }
    std::vector<DrvAccess> Writes() const;
    void ClearAccesses() { m_accesses.clear(); }
    // Recording costs memory: off, only the counts and the hook are kept.
    void Record(bool on) { m_record = on; }
    unsigned long ReadCount() const { return m_readCount; }
    unsigned long WriteCount() const { return m_writeCount; }

    // The registers and tables themselves, without an access.
    void SetReg(unsigned long addr, unsigned int value);
    unsigned int Reg(unsigned long addr) const;
    void SetTableWord(Table table, unsigned int index, unsigned int word, unsigned int value);
    unsigned int TableWord(Table table, unsigned int index, unsigned int word) const;
    // The name of an entry as the board writes it: its characters in words 4, 3, 2, 1, in this
    // order, the first in the most significant byte; 16 bytes, NUL-padded.
    void SetTableName(Table table, unsigned int index, std::string_view name);

    // The next 32-bit reads of a register give these values, then its content again.
    void QueueReads(unsigned long addr, const std::vector<unsigned int>& values);
    // The next `count` reads or writes of a register fail: -1, nothing changed.
    static constexpr unsigned int always = 0xFFFFFFFF;
    void FailReads(unsigned long addr, unsigned int count = always);
    void FailWrites(unsigned long addr, unsigned int count = always);
    // The access of this number (from 0, counted from now on) fails, whatever it is.
    void FailAccess(unsigned long number);

    // Called at the start of each access: for a write with its value, for a read with 0. It may
    // change registers, tables and scripts, so that the board lives while it is used.
    void OnAccess(std::function<void(const DrvAccess&)> hook) { m_onAccess = std::move(hook); }
    void OnDestroy(std::function<void()> hook) { m_onDestroy = std::move(hook); }

    // Every open record given to Init, and what Init answers.
    const std::vector<DrvRegInitParms_t>& Inits() const { return m_inits; }
    void SetInitResult(int result) { m_initResult = result; }

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
    // Hook, counts and scripted failures of one access; false if it is to fail.
    bool Begin(std::string_view op, unsigned long addr, unsigned long value, bool write,
               unsigned long bytes);
    void Note(std::string_view op, unsigned long addr, unsigned long value);
    bool TakeFailure(std::map<unsigned long, unsigned int>& failures, unsigned long addr);
    template <typename Value>
    int Read(std::string_view op, unsigned long addr, Value& value);
    template <typename Value>
    int Write(std::string_view op, unsigned long addr, Value value);
    void Effect(unsigned long addr);
    unsigned int ReadEffect(unsigned long addr);
    std::vector<unsigned int>& TableOf(Table table);

    std::vector<unsigned char> m_bytes;
    std::vector<unsigned int> m_sglTable;
    std::vector<unsigned int> m_cmbTable;
    std::map<unsigned long, std::deque<unsigned int>> m_queuedReads;
    std::map<unsigned long, unsigned int> m_failReads;
    std::map<unsigned long, unsigned int> m_failWrites;
    std::vector<DrvAccess> m_accesses;
    std::function<void(const DrvAccess&)> m_onAccess;
    std::function<void()> m_onDestroy;
    std::vector<DrvRegInitParms_t> m_inits;
    int m_initResult = 0;
    bool m_record = true;
    unsigned long m_readCount = 0;
    unsigned long m_writeCount = 0;
    unsigned long m_failNumber;
};

}  // namespace velatest
