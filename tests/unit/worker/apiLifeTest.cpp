// Objects that come and go in one process, and the driver that they share.

#include <gtest/gtest.h>

#include "apiBench.h"

namespace {

using velatest::ApiBench;
using velatest::FakeEnyx;
using velatest::Lines_t;
using velatest::OpenApi;

class ApiLife : public ApiBench {};

TEST_F(ApiLife, CreatingTouchesNoHardwareAndSharesOneDriver) {
    EXPECT_EQ(CDrvEnyxReg::instance, nullptr);
    IVelaZceMdApi* const first = IVelaZceMdApi::CreateVelaZceMdApi();
    CDrvEnyxReg* const driver = CDrvEnyxReg::instance;
    EXPECT_NE(driver, nullptr);
    IVelaZceMdApi* const second = IVelaZceMdApi::CreateVelaZceMdApi();
    EXPECT_EQ(CDrvEnyxReg::instance, driver);
    EXPECT_TRUE(FakeEnyx::Calls().empty());
    EXPECT_EQ(log.Lines(), Lines_t{});
    IVelaZceMdApi::DestroyVelaZceMdApi(*first);
    IVelaZceMdApi::DestroyVelaZceMdApi(*second);
    EXPECT_EQ(CDrvEnyxReg::instance, driver);  // nobody has started it
}

TEST_F(ApiLife, ANewObjectHoldsTheDriverAndNothingElse) {
    IVelaZceMdApi* const api = IVelaZceMdApi::CreateVelaZceMdApi();
    const auto* const impl = dynamic_cast<CVelaZceMdApiImpl*>(api);
    ASSERT_NE(impl, nullptr);
    EXPECT_EQ(impl->GetSpi(), nullptr);
    OpenApi open(CDrvEnyxReg::instance);
    EXPECT_EQ(open.m_pDrv, CDrvEnyxReg::instance);
    EXPECT_EQ(open.m_pChan, nullptr);
    EXPECT_EQ(open.m_pCfg, nullptr);
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);
}

TEST_F(ApiLife, DestroyingAMasterClosesItsStreamAndForgetsTheDriver) {
    IVelaZceMdApi* const api = IVelaZceMdApi::CreateVelaZceMdApi();
    ASSERT_EQ(api->VelaStart(spi, "master.ini"), 0);
    log.Clear();
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);
    EXPECT_EQ(log.Lines(),
              (Lines_t{"INFO [channel:0] DMA count info: backpress:0, dma2soft:0, fifo:0, error:0.",
                       "INFO dma channel CUSTOM_CHAN0_DATA has released."}));
    EXPECT_EQ(CDrvEnyxReg::instance, nullptr);
}

TEST_F(ApiLife, DestroyingANonMasterKeepsTheDriver) {
    IVelaZceMdApi* const api = IVelaZceMdApi::CreateVelaZceMdApi();
    CDrvEnyxReg* const driver = CDrvEnyxReg::instance;
    ASSERT_EQ(api->VelaStart(spi, "chan3.ini"), 0);
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);
    EXPECT_EQ(CDrvEnyxReg::instance, driver);
}

TEST_F(ApiLife, CreateStartDestroyManyTimesInOneProcess) {
    for (int i = 0; i < 3; ++i) {
        IVelaZceMdApi* const api = IVelaZceMdApi::CreateVelaZceMdApi();
        FakeEnyx::SetRegister(0x106, 20261120);
        ASSERT_EQ(api->VelaStart(spi, "master.ini"), 0);
        FakeEnyx::QueuePacket("CUSTOM_CHAN0_DATA", Message(17));
        EXPECT_EQ(api->VelaRecv(), 1);
        IVelaZceMdApi::DestroyVelaZceMdApi(*api);
    }
    EXPECT_EQ(spi.calls.size(), 3U);
    EXPECT_EQ(FakeEnyx::Live().count("a2c_stream"), 0U);
}

// The second object was made while the first one's driver stood.
TEST_F(ApiLife, AnObjectWhoseDriverWentWithAnotherTakesANewOneAtItsStart) {
    IVelaZceMdApi* const first = IVelaZceMdApi::CreateVelaZceMdApi();
    OpenApi second(CDrvEnyxReg::instance);
    ASSERT_EQ(first->VelaStart(spi, "master.ini"), 0);
    IVelaZceMdApi::DestroyVelaZceMdApi(*first);
    EXPECT_EQ(second.m_pDrv, nullptr);
    ASSERT_EQ(second.VelaStart(spi, "master.ini"), 0);
    EXPECT_NE(CDrvEnyxReg::instance, nullptr);
    EXPECT_EQ(second.m_pDrv, CDrvEnyxReg::instance);
}

TEST_F(ApiLife, ANonMasterGoesOnReceivingAfterTheMastersEnd) {
    IVelaZceMdApi* const master = IVelaZceMdApi::CreateVelaZceMdApi();
    IVelaZceMdApi* const other = IVelaZceMdApi::CreateVelaZceMdApi();
    ASSERT_EQ(master->VelaStart(spi, "master.ini"), 0);
    ASSERT_EQ(other->VelaStart(spi, "chan3.ini"), 0);
    IVelaZceMdApi::DestroyVelaZceMdApi(*master);
    FakeEnyx::QueuePacket("CUSTOM_CHAN3_DATA", Message(18));
    EXPECT_EQ(other->VelaRecv(), 1);
    IVelaZceMdApi::DestroyVelaZceMdApi(*other);
    EXPECT_EQ(CDrvEnyxReg::instance, nullptr);
}

// Deleted by the last of them, once.
TEST_F(ApiLife, OfTwoMastersTheLastTakesTheDriverAlong) {
    auto* const drv = new velatest::FakeDrv;
    int destroyed = 0;
    drv->OnDestroy([&destroyed] { ++destroyed; });
    drv->SetReg(0x106, 20261120);
    drv->SetReg(0x103, 0xF);
    drv->Record(false);
    Vela2_U50::CZceConfigFile cfg("master.ini", drv, nullptr);
    ASSERT_EQ(cfg.Init(), 0);
    Vela2_U50::ZceDmaInitParms_t parms{0, 474, "CUSTOM_CHAN0_DATA"};
    {
        OpenApi second(drv);
        // Without a stream, of which there is one on the board.
        second.m_pChan = new CZceDmaChanImpl(drv, &second, &cfg);
        ASSERT_EQ(second.m_pChan->Init(&parms), 0);
        {
            OpenApi first(drv);
            ASSERT_EQ(first.VelaStart(spi, "master.ini"), 0);
        }
        EXPECT_EQ(destroyed, 0);
        EXPECT_EQ(second.m_pDrv, drv);
    }
    EXPECT_EQ(destroyed, 1);
}

TEST_F(ApiLife, ASecondStartOfOneObjectFreesTheStreamOfTheFirst) {
    OpenApi api(nullptr);
    ASSERT_EQ(api.VelaStart(spi, "chan3.ini"), 0);
    ASSERT_EQ(api.VelaStart(spi, "chan3.ini"), 0);
    EXPECT_EQ(FakeEnyx::Live().at("a2c_stream"), 1);
    ASSERT_EQ(api.VelaStart(spi, "master.ini"), 0);
    ASSERT_EQ(api.VelaStart(spi, "chan4.ini"), 0);
    EXPECT_EQ(FakeEnyx::Live().at("a2c_stream"), 1);
    FakeEnyx::QueuePacket("CUSTOM_CHAN4_DATA", Message(17));
    EXPECT_EQ(api.VelaRecv(), 1);
}

}  // namespace
