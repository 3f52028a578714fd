#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "DrvEnyx/drvEnyx.h"
#include "fakeEnyx.h"
#include "workerBench.h"

namespace velatest {

// The whole library over the vendor's calls of the tests: one board of today's date, 08:30, the log
// service up already, so that a start logs here.
class ApiBench : public testing::Test {
  public:
    ApiBench() {
        ForgetProcess();
        FakeEnyx::SetRegister(0x103, 0xF);
        FakeEnyx::SetRegister(0x106, 20261120);
        PutFile("master.ini", "[config]\ndevice=xilinx0:0\n");
        PutFile("chan3.ini", "[config]\ndevice=xilinx0:3\n");
        PutFile("chan4.ini", "[config]\ndevice=xilinx0:4\n");
    }
    ~ApiBench() override {
        CSignalProcess::m_isExit = 0;
        delete CDrvEnyxReg::instance;
        CDrvEnyxReg::instance = nullptr;
    }
    ApiBench(const ApiBench&) = delete;
    ApiBench& operator=(const ApiBench&) = delete;

    static std::vector<std::uint8_t> Message(std::uint8_t type) {
        return {type, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 0xB0, 0xB1};
    }
    // The lines but those of the log service itself.
    Lines_t LinesOfStart() const {
        Lines_t lines = log.Lines();
        std::erase(lines, "INFO log is initialized successfully.");
        return lines;
    }
    bool HasInOrder(const Lines_t& wanted) const {
        const Lines_t lines = log.Lines();
        auto at = lines.begin();
        for (const std::string& line : wanted) {
            at = std::find(at, lines.end(), line);
            if (at == lines.end()) {
                ADD_FAILURE() << "not there, or not in its place: " << line;
                return false;
            }
        }
        return true;
    }

    TempDir dir{TempDir::Enter::yes};
    LogCapture log;
    RecordingSpi spi;
};

}  // namespace velatest
