#pragma once

#include "DrvEnyx/IDrv.h"

namespace ZceCheck {

// A register driver without a board: reads give 0, writes go nowhere, blocks of bytes fail.
class CNoBoard : public IDrv {
  public:
    int Init(void* /*param*/) override { return 0; }
    int ReadInt8(unsigned long /*addr*/, unsigned char& value) override { return Zero(value); }
    int ReadInt16(unsigned long /*addr*/, unsigned short& value) override { return Zero(value); }
    int ReadInt32(unsigned long /*addr*/, unsigned int& value) override { return Zero(value); }
    int ReadInt64(unsigned long /*addr*/, unsigned long& value) override { return Zero(value); }
    long ReadLess128Bytes(unsigned long /*addr*/, unsigned char* /*dst*/,
                          unsigned long /*len*/) override {
        return -1;
    }
    long ReadBytes(unsigned long /*addr*/, unsigned char* /*dst*/, unsigned long /*len*/) override {
        return -1;
    }
    int WriteInt8(unsigned long /*addr*/, unsigned char /*value*/) override { return 0; }
    int WriteInt16(unsigned long /*addr*/, unsigned short /*value*/) override { return 0; }
    int WriteInt32(unsigned long /*addr*/, unsigned int /*value*/) override { return 0; }
    int WriteInt32_Log(unsigned long addr, unsigned int value) override {
        return WriteInt32(addr, value);
    }
    int WriteInt32_LogWithRead(unsigned long addr, unsigned int value) override {
        return WriteInt32(addr, value);
    }
    int WriteInt64(unsigned long /*addr*/, unsigned long /*value*/) override { return 0; }
    long WriteLess128Bytes(unsigned long /*addr*/, unsigned char* /*src*/,
                           unsigned long /*len*/) override {
        return -1;
    }
    long WriteBytes(unsigned long /*addr*/, unsigned char* /*src*/,
                    unsigned long /*len*/) override {
        return -1;
    }

  private:
    template <typename Value>
    static int Zero(Value& value) {
        value = 0;
        return 0;
    }
};

}  // namespace ZceCheck
