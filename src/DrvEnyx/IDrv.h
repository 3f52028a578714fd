#pragma once

// Access to the registers of the board's core.
//
// A register address is a register index: registers are 32 bits apart, register n lies at byte
// offset 4 * n, and an access of any width starts there (64 bits at index n cover registers n and
// n + 1). Status results are 0 for success and -1 for failure, byte counts are -1 for a failed
// access and 0 for a rejected argument. A failure has been logged when the operation returns; a
// failed read leaves the caller's value unchanged.
//
// Any thread may call; each operation is atomic with respect to the board, a sequence is not.
// Nothing but Init may be called before Init has succeeded.
class IDrv {
  public:
    virtual ~IDrv() = default;

    // param: a DrvRegInitParms_t. A second call after a successful one returns 0 at once.
    virtual int Init(void* param) = 0;

    virtual int ReadInt8(unsigned long addr, unsigned char& value) = 0;
    virtual int ReadInt16(unsigned long addr, unsigned short& value) = 0;
    virtual int ReadInt32(unsigned long addr, unsigned int& value) = 0;
    virtual int ReadInt64(unsigned long addr, unsigned long& value) = 0;
    // At most 128 bytes, delivered in reversed order: dst[0] is the last byte of the block.
    virtual long ReadLess128Bytes(unsigned long addr, unsigned char* dst, unsigned long len) = 0;
    // Any number of bytes, in register order.
    virtual long ReadBytes(unsigned long addr, unsigned char* dst, unsigned long len) = 0;

    virtual int WriteInt8(unsigned long addr, unsigned char value) = 0;
    virtual int WriteInt16(unsigned long addr, unsigned short value) = 0;
    virtual int WriteInt32(unsigned long addr, unsigned int value) = 0;
    // Exactly WriteInt32.
    virtual int WriteInt32_Log(unsigned long addr, unsigned int value) = 0;
    // Writes, then reads the register back; the status is that of the read alone. Deliberate.
    virtual int WriteInt32_LogWithRead(unsigned long addr, unsigned int value) = 0;
    virtual int WriteInt64(unsigned long addr, unsigned long value) = 0;
    // At most 128 bytes, written in reversed order: src[0] becomes the last byte of the block.
    virtual long WriteLess128Bytes(unsigned long addr, unsigned char* src, unsigned long len) = 0;
    // Any number of bytes, in register order.
    virtual long WriteBytes(unsigned long addr, unsigned char* src, unsigned long len) = 0;
};

// What IDrv::Init takes.
struct DrvRegInitParms_t {
    unsigned short busId;   // the board's index among the accelerators, 0 for the first
    unsigned short coreId;  // hardware id of the core whose registers are to be reached
};
