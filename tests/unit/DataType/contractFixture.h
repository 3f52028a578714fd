#pragma once

#include <map>
#include <string>

#include "DataType/ContractServ.h"
#include "DataType/ZceConfigFile.h"
#include "VelaZceBinFile.h"
#include "configFixture.h"
#include "fakeClock.h"
#include "fpgaFixture.h"

namespace velatest {

// The subscription service with its selections in reach.
class OpenContractServ : public Vela2_U50::CContractServ {
  public:
    using CContractServ::CContractServ;
    using CContractServ::m_mapCmbSubs;
    using CContractServ::m_mapSglSubs;
    using CContractServ::m_vecLackIds;
};

// The subscription service of channel 0 and all that it works on. `channels`: the rules as they
// stand in the file.
struct ContractRig {
    explicit ContractRig(const std::string& channels = "")
        : config(channels),
          bin(insts, 0),
          fpga(insts, 0),
          serv(insts, &config.cfg, &bin, &fpga, 0, config.cfg.getArrayReference()) {
        OpenFpgaServ::m_bReseted = false;
        FakeClock::ClearSleeps();
        FakeClock::OnSleep({});
        fpga.Init(&config.drv);
    }

    Vela2_U50::ZceSubsInfo_t& Rules(unsigned int channel) {
        return config.cfg.getArrayReference()[channel];
    }
    FakeDrv& Drv() { return config.drv; }

    std::map<std::string, unsigned short> insts;
    LoadedConfig config;
    CTernBinFile bin;
    OpenFpgaServ fpga;
    OpenContractServ serv;
};

}  // namespace velatest
