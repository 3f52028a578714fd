#pragma once

#include "DrvEnyx/IDrv.h"

struct enyx_hw_core;

// The register driver over the vendor's library: each operation is one or more accesses to one
// core, all of them under that core's lock (shared with the other processes on the board).
//
// Thread-safe as IDrv says. Before Init has succeeded there is no core: the operations are not
// guarded and pass null on to the vendor's library. What that does then is not known.
class CDrvEnyxReg : public IDrv {
  public:
    CDrvEnyxReg() = default;
    CDrvEnyxReg(const CDrvEnyxReg&) = delete;
    CDrvEnyxReg& operator=(const CDrvEnyxReg&) = delete;
    // Leaves the core alone: it belongs to the discovery's caches.
    ~CDrvEnyxReg() override = default;

    // Serialised within the process: of several threads only the first enumerates. Throws
    // std::system_error if the lock for that fails.
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

    // The driver of the process; null until the factory of the API object has made it.
    static CDrvEnyxReg* instance;

  private:
    enyx_hw_core* m_pCore = nullptr;
    bool m_bInited = false;
};
