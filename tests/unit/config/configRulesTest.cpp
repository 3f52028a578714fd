#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "DataType/ContractServ.h"
#include "DataType/ZceConfigFile.h"
#include "configDoc.h"
#include "fakeDrv.h"
#include "logCapture.h"
#include "tempDir.h"

namespace {

using velatest::DocRow;
using velatest::DocTable;

// The selection, with its result in reach.
class OpenContractServ : public Vela2_U50::CContractServ {
  public:
    using CContractServ::CContractServ;
    std::set<std::string> Selected() const {
        std::set<std::string> names;
        for (const auto* table : {&m_mapSglSubs[0], &m_mapCmbSubs[0]}) {
            for (const auto& [index, name] : *table) {
                names.insert(name);
            }
        }
        return names;
    }
};

// Single-leg instruments and combinations have indices of their own.
std::map<std::string, unsigned short> Numbered(const std::vector<std::string>& names) {
    std::map<std::string, unsigned short> list;
    for (const std::string& name : names) {
        const auto index = static_cast<unsigned short>(list.size());
        list[name] = index;
    }
    return list;
}

std::set<std::string> Select(const std::vector<std::string>& rules,
                             std::map<std::string, unsigned short> list) {
    const velatest::LogCapture log;
    const velatest::TempDir dir;
    const std::string path = dir / "velazce.ini";
    std::FILE* file = std::fopen(path.c_str(), "w");
    if (file == nullptr) {
        ADD_FAILURE() << path;
        return {};
    }
    std::fputs("[config]\ndevice = xilinx0:0\n[channel0]\n", file);
    for (const std::string& line : rules) {
        std::fprintf(file, "%s\n", line.c_str());
    }
    std::fclose(file);
    velatest::FakeDrv drv;
    Vela2_U50::CZceConfigFile cfg(path, &drv, nullptr);
    EXPECT_EQ(cfg.Init(), 0);
    EXPECT_EQ(cfg.ParseSubsInst(), 0);
    OpenContractServ serv(list, &cfg, nullptr, nullptr, 0, cfg.getArrayReference());
    serv.JudgeAndFilterSubsInst();
    return serv.Selected();
}

TEST(ConfigPageRules, SelectWhatThePageSays) {
    const std::vector<DocTable> lists = velatest::DocTablesOf(velatest::guidePage, "instrument");
    const std::vector<DocTable> tables = velatest::DocTablesOf(velatest::guidePage, "rules");
    ASSERT_EQ(lists.size(), 1U);
    ASSERT_EQ(tables.size(), 1U);
    std::vector<std::string> names;
    for (const DocRow& row : lists[0].rows) {
        names.push_back(row.cells.at(0).spans.at(0));
    }
    EXPECT_GE(names.size(), 8U);
    EXPECT_GE(tables[0].rows.size(), 12U);
    for (const DocRow& row : tables[0].rows) {
        const std::vector<std::string>& told = row.cells.at(1).spans;
        EXPECT_EQ(Select(row.cells.at(0).spans, Numbered(names)),
                  std::set<std::string>(told.begin(), told.end()))
            << velatest::guidePage << ":" << row.line;
    }
}

// The shipped examples: board, channel and whether the file has rules for the channel.
TEST(ConfigExamples, StartAsTheirCommentsSay) {
    for (const auto& [name, channel] :
         {std::pair("master.ini", 0U), std::pair("channel3.ini", 3U)}) {
        const velatest::LogCapture log;
        velatest::FakeDrv drv;
        Vela2_U50::CZceConfigFile cfg(std::string(VELAZCE_EXAMPLE_CONFIGS "/") + name, &drv,
                                      nullptr);
        ASSERT_EQ(cfg.Init(), 0) << name;
        EXPECT_EQ(cfg.GetDmaChannel(), channel) << name;
        EXPECT_EQ(cfg.GetBusId(), 0U) << name;
        EXPECT_EQ(cfg.ParseSubsInst(), 0) << name;
        EXPECT_EQ(cfg.getArrayReference()[0].vecSubClasses.size(), channel == 0 ? 3U : 0U) << name;
        EXPECT_EQ(cfg.getArrayReference()[3].bSubAll, channel == 0 ? 1 : 0) << name;
        cfg.CfgNetReg();
        EXPECT_EQ(drv.Reg(0x300), channel == 0 ? 1U : 0U) << name;
        EXPECT_EQ(drv.Reg(0x310), channel == 0 ? 1U : 0U) << name;
    }
}

}  // namespace
