#include "configRun.h"

#include <fstream>

#include "check/InstrumentNames.h"
#include "check/Report.h"

namespace velatest {

ConfigRun::ConfigRun(const std::string& ini, const std::string& list) : m_dir(TempDir::Enter::yes) {
    std::ofstream("c.ini", std::ios::binary) << ini;
    std::ofstream("list", std::ios::binary) << list;
    ZceCheck::InstrumentNames names;
    std::string error;
    if (!list.empty()) {
        EXPECT_TRUE(ZceCheck::ReadNameList("list", names, error)) << error;
    }
    m_result = ZceCheck::CheckFile("c.ini", ini, list.empty() ? nullptr : &names);
}

std::string ConfigRun::Text() const {
    return ZceCheck::TextReport(m_result);
}

std::string ConfigRun::Findings() const {
    return m_result.findings.All().empty() ? "" : Text().substr(0, Text().find("\n\n") + 1);
}

std::string FindingsBelowDevice(const std::string& more, const std::string& list) {
    return ConfigRun("[config]\ndevice = xilinx0:0\n" + more, list).Findings();
}

}  // namespace velatest
