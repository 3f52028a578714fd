// Sends to a board that is busy. The library's clock is the test's, so that its wait takes no time.

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "DrvEnyx/drvDMAEnyx.h"
#include "fakeClock.h"
#include "faultTable.h"
#include "logCapture.h"
#include "market.h"
#include "memory/BoardMemory.h"
#include "memory/FaultText.h"

using testing::IsEmpty;

namespace velatest {

namespace {

constexpr unsigned int channel = 2;

class SendFaults : public Market {
  protected:
    void SetUp() override {
        StartClock(40000);
        StartSmallBoard();
        Enter();
        ASSERT_EQ(m_memory.Attach(0), 0);
        m_log = std::make_unique<LogCapture>();
        m_dma = std::make_unique<CDrvDMAEnyx>();
        DrvDmaInitParms_t parms{0, "CUSTOM_CHAN2_DATA", 0, 0, 0};
        ASSERT_EQ(m_dma->Init(&parms), 0);
    }
    void TearDown() override {
        m_dma.reset();
        m_log.reset();
    }
    void Set(const std::string& fault) {
        ZceBoard::FaultSetting setting{};
        std::string error;
        ASSERT_TRUE(ZceBoard::ParseFault(fault, setting, error)) << error;
        m_faults = std::make_unique<ZceBoard::CFaults>(m_memory.Shm());
        m_faults->Set(setting);
    }
    int Send() {
        char packet[] = "request";
        return m_dma->Send(packet, sizeof(packet));
    }
    uint32_t Tries() const { return m_faults->Words(ZceBoard::Fault::SendBusy).strikes.load(); }
    // What the board has been given: head and data are the ring's.
    uint32_t Taken() const { return m_memory.Shm().c2a[channel].control.packetCount.load(); }

    ZceBoard::CBoardMemory m_memory;
    std::unique_ptr<ZceBoard::CFaults> m_faults;
    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<CDrvDMAEnyx> m_dma;
};

TEST_F(SendFaults, TheBoardIsBusyForAWhile) {
    Set("send-busy channel=2 limit=1000");
    EXPECT_EQ(Send(), 0);
    EXPECT_EQ(Tries(), 1000U);
    EXPECT_EQ(Taken(), 1U);
    EXPECT_THAT(LinesBesideRow(m_log->Lines()), IsEmpty());
    m_log->Clear();
    EXPECT_EQ(Send(), 0);
    EXPECT_EQ(m_log->Lines(), std::vector<std::string>{});
}

TEST_F(SendFaults, TheBoardIsBusyForEver) {
    Set("send-busy channel=2");
    FakeClock::StepPerReadNs(1'000'000);
    m_log->Clear();
    EXPECT_EQ(Send(), -1);
    FakeClock::StepPerReadNs(0);
    // At each try the clock goes on by 1 ms: the seconds by more than two after 2001 to 3000 tries.
    EXPECT_GT(Tries(), 2000U);
    EXPECT_LE(Tries(), 3001U);
    EXPECT_EQ(Taken(), 0U);
    EXPECT_THAT(LinesBesideRow(m_log->Lines()), IsEmpty());
    EXPECT_EQ(m_log->LinesOf("ERROR").size(), 1U);
    m_faults->ClearAll();
    EXPECT_EQ(Send(), 0) << "the stream is as good as ever";
    EXPECT_EQ(Taken(), 1U);
}

}  // namespace

}  // namespace velatest
