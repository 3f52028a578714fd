// What the objects look like when they are new, where their members lie, and what becomes of the
// loaded file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "contractFixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using velatest::ContractRig;
using velatest::FakeDrv;

using InstMap = std::map<std::string, unsigned short>;
using NameMap = std::map<std::uint16_t, std::string>;
using MaskMap = std::map<std::uint16_t, std::uint16_t>;

// Read before anything has happened.
const bool resetedAtLoad = velatest::OpenFpgaServ::m_bReseted;

std::vector<dictionary*> freedDictionaries;

template <typename Value>
Value At(const void* object, std::size_t offset) {
    Value value{};
    std::memcpy(&value, static_cast<const unsigned char*>(object) + offset, sizeof value);
    return value;
}

template <typename Member>
const Member& MemberAt(const void* object, std::size_t offset) {
    return *reinterpret_cast<const Member*>(static_cast<const unsigned char*>(object) + offset);
}

// Any address will do for an API object that is never called.
CVelaZceMdApiImpl* SomeApi(int& place) {
    return reinterpret_cast<CVelaZceMdApiImpl*>(&place);
}

// Offsets in the configuration object, by the order of its members.
constexpr std::size_t cfgChannel = 0;
constexpr std::size_t cfgPath = 8;
constexpr std::size_t cfgDrv = cfgPath + sizeof(std::string);
constexpr std::size_t cfgDict = cfgDrv + 8;
constexpr std::size_t cfgBus = cfgDict + 8;
constexpr std::size_t cfgApi = cfgBus + 8;
constexpr std::size_t cfgName = cfgApi + 8;
constexpr std::size_t cfgRules = cfgName + sizeof(std::string);

TEST(ConfigFileObject, StartsWithoutChannelFileAndBus) {
    FakeDrv drv;
    int place = 0;
    const Vela2_U50::CZceConfigFile cfg("/some/file.ini", &drv, SomeApi(place));
    EXPECT_EQ(At<unsigned int>(&cfg, cfgChannel), 255U);
    EXPECT_EQ(MemberAt<std::string>(&cfg, cfgPath), "/some/file.ini");
    EXPECT_EQ(At<void*>(&cfg, cfgDrv), static_cast<IDrv*>(&drv));
    EXPECT_EQ(At<void*>(&cfg, cfgDict), nullptr);
    EXPECT_EQ(At<unsigned int>(&cfg, cfgBus), 0U);
    EXPECT_EQ(At<void*>(&cfg, cfgApi), &place);
    EXPECT_EQ(MemberAt<std::string>(&cfg, cfgName), "");
}

TEST(ConfigFileObject, HoldsItsMembersInOrder) {
    velatest::ConfigRig rig("[config]\ndevice = xilinx3:9\n");
    ASSERT_EQ(rig.cfg.Init(), 0);
    EXPECT_EQ(At<unsigned int>(&rig.cfg, cfgChannel), 9U);
    EXPECT_NE(At<void*>(&rig.cfg, cfgDict), nullptr);
    EXPECT_EQ(At<unsigned int>(&rig.cfg, cfgBus), 3U);
    EXPECT_EQ(MemberAt<std::string>(&rig.cfg, cfgName), "CUSTOM_CHAN9_DATA");
    EXPECT_EQ(&MemberAt<Vela2_U50::ZceSubsInfo_t>(&rig.cfg, cfgRules),
              &rig.cfg.getArrayReference()[0]);
    static_assert(sizeof(rig.cfg) == cfgRules + std::size_t{16} * 216);
}

TEST(ConfigFileObject, FreesWhatItLoaded) {
    for (const char* device : {"xilinx0:0", "none"}) {
        void* loaded = nullptr;
        {
            velatest::ConfigRig rig(std::string("[config]\ndevice = ") + device + "\n");
            rig.cfg.Init();
            // A file with a bad device stays loaded too.
            loaded = At<void*>(&rig.cfg, cfgDict);
            ASSERT_NE(loaded, nullptr);
            freedDictionaries.clear();
        }
        EXPECT_THAT(freedDictionaries, ElementsAre(loaded));
    }
}

TEST(ConfigFileObject, FreesTheFirstFileWhenItLoadsAgain) {
    velatest::ConfigRig rig("[config]\ndevice = xilinx0:0\n");
    rig.cfg.Init();
    void* const first = At<void*>(&rig.cfg, cfgDict);
    freedDictionaries.clear();
    rig.cfg.Init();
    EXPECT_THAT(freedDictionaries, ElementsAre(first));
}

// Offsets in the table service: the pointer to its operations comes first.
constexpr std::size_t fpgaChannel = 8;
constexpr std::size_t fpgaDrv = 16;
constexpr std::size_t fpgaInsts = 24;
constexpr std::size_t fpgaSglInsts = 32;
constexpr std::size_t fpgaCmbInsts = fpgaSglInsts + sizeof(NameMap);
constexpr std::size_t fpgaSglMasks = fpgaCmbInsts + sizeof(NameMap);
constexpr std::size_t fpgaCmbMasks = fpgaSglMasks + sizeof(MaskMap);

TEST(FpgaServObject, StartsEmptyWithoutDriver) {
    static_assert(std::has_virtual_destructor_v<Vela2_U50::CZceFpgaServ>);
    EXPECT_FALSE(resetedAtLoad);
    InstMap insts;
    const velatest::OpenFpgaServ serv(insts, 11);
    EXPECT_EQ(At<unsigned int>(&serv, fpgaChannel), 11U);
    EXPECT_EQ(At<void*>(&serv, fpgaDrv), nullptr);
    EXPECT_EQ(At<void*>(&serv, fpgaInsts), &insts);
    EXPECT_THAT(serv.m_mapSglInsts, IsEmpty());
    EXPECT_THAT(serv.m_mapCmbInsts, IsEmpty());
    EXPECT_THAT(serv.m_mapSglChanBit, IsEmpty());
    EXPECT_THAT(serv.m_mapCmbChanBit, IsEmpty());
}

TEST(FpgaServObject, HoldsItsMembersInOrder) {
    InstMap insts;
    FakeDrv drv;
    velatest::OpenFpgaServ serv(insts, 0);
    serv.Init(&drv);
    EXPECT_EQ(At<void*>(&serv, fpgaDrv), static_cast<IDrv*>(&drv));
    EXPECT_THAT(drv.Accesses(), IsEmpty());
    EXPECT_EQ(&MemberAt<NameMap>(&serv, fpgaSglInsts), &serv.m_mapSglInsts);
    EXPECT_EQ(&MemberAt<NameMap>(&serv, fpgaCmbInsts), &serv.m_mapCmbInsts);
    EXPECT_EQ(&MemberAt<MaskMap>(&serv, fpgaSglMasks), &serv.m_mapSglChanBit);
    EXPECT_EQ(&MemberAt<MaskMap>(&serv, fpgaCmbMasks), &serv.m_mapCmbChanBit);
    static_assert(sizeof(Vela2_U50::CZceFpgaServ) == fpgaCmbMasks + sizeof(MaskMap));
}

// Offsets in the subscription service.
constexpr std::size_t servChannel = 8;
constexpr std::size_t servSglSubs = 16;
constexpr std::size_t servCmbSubs = servSglSubs + 16 * sizeof(NameMap);
constexpr std::size_t servInsts = servCmbSubs + 16 * sizeof(NameMap);
constexpr std::size_t servFpga = servInsts + 8;
constexpr std::size_t servBin = servFpga + 8;
constexpr std::size_t servCfg = servBin + 8;
constexpr std::size_t servLackIds = servCfg + 8;
constexpr std::size_t servRules = servLackIds + sizeof(std::vector<std::string>);

TEST(ContractServObject, HoldsItsArgumentsAndMembersInOrder) {
    static_assert(std::has_virtual_destructor_v<Vela2_U50::CContractServ>);
    ContractRig rig;
    const velatest::OpenContractServ serv(rig.insts, &rig.config.cfg, &rig.bin, &rig.fpga, 13,
                                          rig.config.cfg.getArrayReference());
    EXPECT_EQ(At<unsigned int>(&serv, servChannel), 13U);
    EXPECT_EQ(&MemberAt<NameMap>(&serv, servSglSubs), &serv.m_mapSglSubs[0]);
    EXPECT_EQ(&MemberAt<NameMap>(&serv, servCmbSubs), &serv.m_mapCmbSubs[0]);
    EXPECT_EQ(At<void*>(&serv, servInsts), &rig.insts);
    EXPECT_EQ(At<void*>(&serv, servFpga), static_cast<Vela2_U50::CZceFpgaServ*>(&rig.fpga));
    EXPECT_EQ(At<void*>(&serv, servBin), &rig.bin);
    EXPECT_EQ(At<void*>(&serv, servCfg), &rig.config.cfg);
    EXPECT_EQ(&MemberAt<std::vector<std::string>>(&serv, servLackIds), &serv.m_vecLackIds);
    EXPECT_EQ(At<void*>(&serv, servRules), &rig.Rules(0));
    static_assert(sizeof(Vela2_U50::CContractServ) == servRules + 8);
}

TEST(ContractServObject, StartsWithNothingSelected) {
    const ContractRig rig;
    for (unsigned int channel = 0; channel < 16; ++channel) {
        EXPECT_THAT(rig.serv.m_mapSglSubs[channel], IsEmpty());
        EXPECT_THAT(rig.serv.m_mapCmbSubs[channel], IsEmpty());
    }
    EXPECT_THAT(rig.serv.m_vecLackIds, IsEmpty());
}

}  // namespace

// The linker leads the library's call here (--wrap).
extern "C" {
void __real_iniparser_freedict(dictionary* dict);
void __wrap_iniparser_freedict(dictionary* dict);

void __wrap_iniparser_freedict(dictionary* dict) {
    freedDictionaries.push_back(dict);
    __real_iniparser_freedict(dict);
}
}
