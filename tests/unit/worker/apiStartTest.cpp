// VelaStart: its steps, and how each of its failures ends.

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>
#include <utility>
#include <vector>

#include "apiBench.h"
#include "wrappedCalls.h"

namespace {

using velatest::ApiBench;
using velatest::FakeEnyx;
using velatest::Lines_t;
using velatest::OpenApi;
using velatest::Peer;
using velatest::PutFile;
using velatest::StdoutCapture;
using velatest::WrappedCalls;

class ApiStart : public ApiBench {
  protected:
    // The start ends the process with status 0; what it logged can be read afterwards.
    void ExpectEnd(const char* cfgPath) {
        EXPECT_EXIT(
            {
                auto* const api = new OpenApi(nullptr);
                api->VelaStart(spi, cfgPath);
                std::_Exit(9);
            },
            testing::ExitedWithCode(0), "");
    }
};

TEST_F(ApiStart, ANullPathEndsTheProcess) {
    StdoutCapture out;
    ExpectEnd(nullptr);
    out.Stop();
    EXPECT_EQ(out.Text(), "Error! lpConfig null pointer!\n");
    EXPECT_EQ(log.Lines(), Lines_t{});
}

TEST_F(ApiStart, ANonMasterStartsWithoutTheRegisterDriver) {
    OpenApi api(nullptr);
    EXPECT_EQ(api.VelaStart(spi, "chan3.ini"), 0);
    EXPECT_EQ(LinesOfStart(), (Lines_t{"INFO Successful load confie file chan3.ini",
                                       "INFO [channel:3] Busid:0, ChannelId:3.",
                                       "INFO [channel:3] Doesn't need to bind cpu.",
                                       "INFO Init dma channel :CUSTOM_CHAN3_DATA success."}));
    EXPECT_EQ(FakeEnyx::CountOf("read"), 0);
    EXPECT_EQ(FakeEnyx::CountOf("write"), 0);
    EXPECT_EQ(api.GetSpi(), &spi);
    EXPECT_NE(api.m_pChan, nullptr);
    EXPECT_NE(api.m_pCfg, nullptr);
}

TEST_F(ApiStart, AMasterStartsTheRegisterDriverThenTheBoardThenTheStream) {
    OpenApi api(nullptr);
    // The discovery of the board's core takes a second.
    EXPECT_EQ(api.VelaStart(spi, "master.ini"), 0);
    EXPECT_EQ(
        LinesOfStart(),
        (Lines_t{"INFO Successful load confie file master.ini",
                 "INFO [channel:0] Busid:0, ChannelId:0.", "INFO [channel:0] Busid:0, ChannelId:0.",
                 "INFO [channel:0] Doesn't need to bind cpu.",
                 "INFO First time read fpga date:20261120, system date:20261120.",
                 "INFO System time:83001.", "INFO Current soft version 3.10.0.",
                 "INFO Fiber linkstatus 0x103:0xf.", "INFO L1 and L5 switch on.",
                 "INFO Update fpga addr 0x106 to 20261120 over", "INFO Unsubscribe all insts now",
                 "INFO Fpga start transmit inst map pkt.",
                 "INFO Init dma channel :CUSTOM_CHAN0_DATA success."}));
    EXPECT_EQ(FakeEnyx::Register(0x12), 1U);
    const std::vector<std::string> calls = FakeEnyx::Calls();
    EXPECT_NE(std::find_if(calls.begin(), calls.end(),
                           [](const std::string& call) {
                               return call.starts_with("core_enumerate id=474");
                           }),
              calls.end());
}

TEST_F(ApiStart, TheStreamIsThatOfTheConfiguredChannelAndBus) {
    FakeEnyx::SetBoards({2});
    PutFile("bus2.ini", "[config]\ndevice=xilinx2:12\n");
    OpenApi api(nullptr);
    EXPECT_EQ(api.VelaStart(spi, "bus2.ini"), 0);
    EXPECT_TRUE(log.Has("INFO Init dma channel :CUSTOM_CHAN12_DATA success."));
}

TEST_F(ApiStart, AMissingConfigurationEndsTheProcess) {
    ExpectEnd("nowhere.ini");
    const Lines_t errors = log.LinesOf("ERROR");
    EXPECT_EQ(errors, (Lines_t{"Failed to load file nowhere.ini", "Config file init fail.",
                               "Vela inner init fail."}));
}

TEST_F(ApiStart, AMissingBoardEndsTheMastersProcess) {
    FakeEnyx::SetBoards({});
    ExpectEnd("master.ini");
    const Lines_t errors = log.LinesOf("ERROR");
    ASSERT_GE(errors.size(), 2U);
    EXPECT_EQ(errors[errors.size() - 2], "Init New drive failed! ret:-1");
    EXPECT_EQ(errors.back(), "Vela inner init fail.");
}

TEST_F(ApiStart, AWorkerThatCannotBeInitialisedIsDestroyedAndTheProcessEnds) {
    WrappedCalls::accessErrno = EACCES;
    WrappedCalls::ownerName = "trader";
    ExpectEnd("master.ini");
    WrappedCalls::accessErrno = 0;
    WrappedCalls::ownerName = nullptr;
    EXPECT_EQ(log.Lines().back(), "ERROR Create Tern service failed!");
    EXPECT_TRUE(HasInOrder({"INFO Please run this program as user trader or root!",
                            "ERROR Create Tern service failed!"}));
}

TEST_F(ApiStart, AStreamInUseIsReportedThenTheWorkersEndThenTheProcessEnds) {
    FakeEnyx::SetStreamBusy("CUSTOM_CHAN3_DATA", true);
    ExpectEnd("chan3.ini");
    const Lines_t lines = log.Lines();
    EXPECT_TRUE(HasInOrder(
        {"ERROR Note !! A software program can only have one instance running at a time!",
         "ERROR Init DMA error!", "ERROR Dma init busid:0, chanName:CUSTOM_CHAN3_DATA fail!",
         "ERROR [channel:255] Init dma fail! dma name CUSTOM_CHAN3_DATA.",
         "ERROR Create Tern service failed!", "INFO dma channel CUSTOM_CHAN3_DATA has released."}));
    EXPECT_EQ(lines.back(), "INFO dma channel CUSTOM_CHAN3_DATA has released.");
}

TEST_F(ApiStart, AStreamInUseOnTheMasterEndsTheProcessToo) {
    FakeEnyx::SetStreamBusy("CUSTOM_CHAN0_DATA", true);
    ExpectEnd("master.ini");
    EXPECT_TRUE(HasInOrder({"ERROR [channel:0] Init dma fail! dma name CUSTOM_CHAN0_DATA.",
                            "ERROR Create Tern service failed!",
                            "INFO dma channel CUSTOM_CHAN0_DATA has released."}));
}

TEST_F(ApiStart, InitCfgInfoStartsTheDriverOnTheMastersBusWithCore474) {
    auto* const drv = new velatest::FakeDrv;
    OpenApi api(drv);
    PutFile("bus3.ini", "[config]\ndevice=xilinx3:0\n");
    EXPECT_EQ(api.InitCfgInfo("bus3.ini"), 0);
    ASSERT_EQ(drv->Inits().size(), 1U);
    EXPECT_EQ(drv->Inits()[0].busId, 3);
    EXPECT_EQ(drv->Inits()[0].coreId, 474);
    EXPECT_EQ(api.InitCfgInfo("chan3.ini"), 0);
    EXPECT_EQ(drv->Inits().size(), 1U);
    drv->SetInitResult(-5);
    EXPECT_EQ(api.InitCfgInfo("bus3.ini"), -1);
    EXPECT_TRUE(log.Has("ERROR Init New drive failed! ret:-5"));
    delete drv;
}

// ---- log service -------------------------------------------------------------------------------

class ApiLog : public ApiBench {
  protected:
    ApiLog() { WrappedCalls::holdLogInit = true; }
    ~ApiLog() override { WrappedCalls::holdLogInit = false; }
};

TEST_F(ApiLog, TheServiceIsStartedOnceInItsDirectoryUnderItsName) {
    OpenApi first(nullptr);
    OpenApi second(nullptr);
    EXPECT_EQ(first.LogInit("x.ini"), 0);
    EXPECT_EQ(first.LogInit("x.ini"), 0);
    EXPECT_EQ(second.LogInit("y.ini"), 0);
    EXPECT_EQ(WrappedCalls::logInits,
              (std::vector<std::pair<std::string, std::string>>{{"/tmp/fpgalog/", "fpga"}}));
}

TEST_F(ApiLog, AServiceThatDoesNotStartFailsTheStartAndIsNotTriedAgain) {
    WrappedCalls::logInitResult = -1;
    OpenApi api(nullptr);
    StdoutCapture out;
    EXPECT_EQ(api.VelaStart(spi, "chan3.ini"), -1);
    out.Stop();
    EXPECT_EQ(out.Text(), "###Init log service failed! ret: -1###\nLog init failed\n");
    EXPECT_EQ(api.m_pChan, nullptr);
    EXPECT_EQ(api.GetSpi(), nullptr);
    EXPECT_EQ(api.m_pCfg, nullptr);
    EXPECT_EQ(FakeEnyx::Calls().size(), 0U);
    EXPECT_EQ(api.VelaStart(spi, "chan3.ini"), 0);
    EXPECT_EQ(WrappedCalls::logInits.size(), 1U);
}

TEST_F(ApiLog, AServiceThatDoesNotStartKeepsNoOtherThreadsStartWaiting) {
    WrappedCalls::logInitResult = -1;
    OpenApi first(nullptr);
    EXPECT_EQ(first.VelaStart(spi, "chan3.ini"), -1);
    StdoutCapture out;
    constexpr int running = 1;
    std::atomic<int> result{running};
    std::thread other([this, &result] {
        OpenApi second(nullptr);
        result = second.VelaStart(spi, "chan4.ini");
    });
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (result == running && std::chrono::steady_clock::now() < limit) {
        std::this_thread::yield();
    }
    EXPECT_EQ(result, 0);  // a start that is kept waiting stays for the test's own limit to end
    other.join();
    out.Stop();
    EXPECT_EQ(out.Text().find("Log init failed"), std::string::npos);
}

TEST_F(ApiLog, AServiceThatDoesNotStartEndsRecvStartWithMinusOne) {
    WrappedCalls::logInitResult = -1;
    CSignalProcess::m_isExit = 1;  // should it start after all, it ends with another result
    OpenApi api(nullptr);
    EXPECT_EQ(api.VelaRecvStart(spi, "chan3.ini"), -1);
    EXPECT_EQ(log.Lines(), Lines_t{"ERROR Vela init fail."});
    EXPECT_EQ(FakeEnyx::PollCount(), 0U);
}

}  // namespace
