#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "DataType/ZceFpgaServ.h"
#include "fakeClock.h"
#include "fakeDrv.h"

namespace velatest {

// The table service with its records in reach.
class OpenFpgaServ : public Vela2_U50::CZceFpgaServ {
  public:
    using CZceFpgaServ::CZceFpgaServ;
    using CZceFpgaServ::m_bReseted;
    using CZceFpgaServ::m_mapCmbChanBit;
    using CZceFpgaServ::m_mapCmbInsts;
    using CZceFpgaServ::m_mapSglChanBit;
    using CZceFpgaServ::m_mapSglInsts;
};

// A table service over a board in memory, in a process where nothing has happened yet.
struct FpgaRig {
    explicit FpgaRig(unsigned int channel = 0) : serv(insts, channel) {
        OpenFpgaServ::m_bReseted = false;
        FakeClock::ClearSleeps();
        FakeClock::OnSleep({});
        serv.Init(&drv);
    }

    std::map<std::string, unsigned short> insts;
    FakeDrv drv;
    OpenFpgaServ serv;
};

inline DrvAccess Plain(unsigned long addr, unsigned int value) {
    return {"WriteInt32", addr, value};
}
inline DrvAccess Logged(unsigned long addr, unsigned int value) {
    return {"WriteInt32_Log", addr, value};
}
inline DrvAccess Checked(unsigned long addr, unsigned int value) {
    return {"WriteInt32_LogWithRead", addr, value};
}
inline DrvAccess Read(unsigned long addr, unsigned int value) {
    return {"ReadInt32", addr, value};
}

}  // namespace velatest
