#include <cerrno>

#include "allocationCount.h"
#include "drvDmaFixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using velatest::FakeClock;
using velatest::FakeEnyx;

constexpr std::uint64_t nsPerSecond = 1'000'000'000;

struct Delivery {
    std::vector<unsigned char> packet;
    void* context;
};
std::vector<Delivery> deliveries;

void Deliver(const unsigned char* data, unsigned int size, void* context) {
    deliveries.push_back({{data, data + size}, context});
}

void* const deliver = reinterpret_cast<void*>(&Deliver);

void Ignore(const unsigned char* /*data*/, unsigned int /*size*/, void* /*context*/) {}

class DrvDmaSend : public DrvDma {};
class DrvDmaRecv : public DrvDma {
  protected:
    DrvDmaRecv() { deliveries.clear(); }
};

TEST_F(DrvDmaSend, SendsThePacketOnce) {
    Start();
    unsigned char packet[] = {7, 8, 9};
    EXPECT_EQ(m_drv->Send(packet, 3), 0);
    EXPECT_THAT(FakeEnyx::Calls(), ElementsAre("c2a_stream_send size=3"));
    EXPECT_THAT(FakeEnyx::SentPackets(), ElementsAre(ElementsAre(7, 8, 9)));
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(DrvDmaSend, TriesAgainWhileTheBoardIsBusyWithoutSleeping) {
    Start();
    FakeEnyx::QueueSendResults({11, 11, 0});
    unsigned char packet[] = {7};
    EXPECT_EQ(m_drv->Send(packet, 1), 0);
    EXPECT_EQ(FakeEnyx::CountOf("c2a_stream_send"), 3);
    EXPECT_THAT(FakeClock::Sleeps(), IsEmpty());
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(DrvDmaSend, AnyOtherResultFailsAtOnce) {
    for (const int result : {1, 5, 10, 12, -1, -11}) {
        SCOPED_TRACE(result);
        m_drv = std::make_unique<CDrvDMAEnyx>();
        Start();
        FakeEnyx::QueueSendResults({result});
        unsigned char packet[] = {7};
        EXPECT_EQ(m_drv->Send(packet, 1), -1);
        EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR DMA(CUSTOM_CHAN3_DATA) Send failed. "
                                               "err:Input/output error"));
        EXPECT_EQ(FakeEnyx::CountOf("c2a_stream_send"), 1);
    }
}

TEST_F(DrvDmaSend, FailureAfterABusyBoardFails) {
    Start();
    FakeEnyx::QueueSendResults({11, 5, 0});
    unsigned char packet[] = {7};
    EXPECT_EQ(m_drv->Send(packet, 1), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR DMA(CUSTOM_CHAN3_DATA) Send failed. "
                                           "err:Input/output error"));
    EXPECT_EQ(FakeEnyx::CountOf("c2a_stream_send"), 2);
}

TEST_F(DrvDmaSend, GivesUpOnABusyBoardWhenTheSecondsHaveAdvancedBy3) {
    Start();
    FakeClock::Set(20261120, 90000);
    FakeEnyx::QueueSendResults(std::vector<int>(10, 11));
    FakeEnyx::OnSend([] { FakeClock::AdvanceSeconds(1); });
    unsigned char packet[] = {7};
    EXPECT_EQ(m_drv->Send(packet, 1), -1);
    EXPECT_EQ(FakeEnyx::CountOf("c2a_stream_send"), 4);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR DMA(CUSTOM_CHAN3_DATA) Send failed. err:Resource "
                                           "temporarily unavailable"));
    EXPECT_THAT(FakeEnyx::SentPackets(), IsEmpty());
}

// The second send of a busy board happens `ns` after the first; the third, if any, succeeds.
class DrvDmaSendEdge : public DrvDmaSend {
  protected:
    int SendsAfter(std::uint64_t startNs, std::uint64_t ns) {
        FakeClock::Set(20261120, 90000);
        FakeClock::AdvanceNs(startNs);
        FakeEnyx::QueueSendResults({11, 11});
        int sends = 0;
        FakeEnyx::OnSend([&sends, ns] {
            if (++sends == 2) {
                FakeClock::AdvanceNs(ns);
            }
        });
        unsigned char packet[] = {7};
        const int result = m_drv->Send(packet, 1);
        EXPECT_EQ(result, sends == 2 ? -1 : 0);
        return sends;
    }
};

TEST_F(DrvDmaSendEdge, ADifferenceOf2WholeSecondsGoesOn) {
    Start();
    EXPECT_EQ(SendsAfter(0, 3 * nsPerSecond - 1), 3);
}

TEST_F(DrvDmaSendEdge, ADifferenceOf3WholeSecondsGivesUp) {
    Start();
    EXPECT_EQ(SendsAfter(0, 3 * nsPerSecond), 2);
}

TEST_F(DrvDmaSendEdge, FractionsOfTheSecondsDoNotCount) {
    Start();
    // From second 0.9 to second 3.0: 2.1 s apart, but three seconds on the clock's face.
    EXPECT_EQ(SendsAfter(nsPerSecond / 10 * 9, nsPerSecond / 10 * 21), 2);
}

TEST_F(DrvDmaSend, TryThatIsTakenTooLateIsAFailureToo) {
    Start();
    FakeEnyx::QueueSendResults({11, 0});
    int sends = 0;
    FakeEnyx::OnSend([&sends] { FakeClock::AdvanceSeconds(++sends == 2 ? 3 : 0); });
    unsigned char packet[] = {7};
    EXPECT_EQ(m_drv->Send(packet, 1), -1);
    EXPECT_EQ(m_log.LinesOf("ERROR").size(), 1U);
}

TEST_F(DrvDmaSend, FirstTryIsNotJudgedByTheClock) {
    Start();
    FakeEnyx::OnSend([] { FakeClock::AdvanceSeconds(60); });
    unsigned char packet[] = {7};
    EXPECT_EQ(m_drv->Send(packet, 1), 0);
}

TEST_F(DrvDmaSend, ClockSetBackDoesNotMakeTheWaitEndless) {
    Start();
    FakeClock::Set(20261120, 90000);
    FakeEnyx::QueueSendResults(std::vector<int>(100, 11));
    int sends = 0;
    FakeEnyx::OnSend([&sends] {
        if (++sends == 2) {
            FakeClock::Set(20261120, 80000);
        } else {
            FakeClock::AdvanceSeconds(1);
        }
    });
    unsigned char packet[] = {7};
    EXPECT_EQ(m_drv->Send(packet, 1), -1);
    EXPECT_EQ(sends, 5);
}

TEST_F(DrvDmaSend, BeforeInitFailsWithItsLine) {
    unsigned char packet[] = {7};
    EXPECT_EQ(m_drv->Send(packet, 1), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR DMA() Send failed. err:Invalid argument"));
}

// ---- receiving ----

TEST_F(DrvDmaRecv, RecvOnceDeliversOnePacketWithItsContext) {
    Start();
    FakeEnyx::QueuePacket(stream, {1, 2, 3});
    FakeEnyx::QueuePacket(stream, {4});
    int context = 0;
    EXPECT_EQ(m_drv->RecvOnce(deliver, &context), 1);
    ASSERT_EQ(deliveries.size(), 1U);
    EXPECT_THAT(deliveries[0].packet, ElementsAre(1, 2, 3));
    EXPECT_EQ(deliveries[0].context, &context);
    EXPECT_EQ(m_drv->RecvOnce(deliver, nullptr), 1);
    ASSERT_EQ(deliveries.size(), 2U);
    EXPECT_THAT(deliveries[1].packet, ElementsAre(4));
    EXPECT_EQ(FakeEnyx::PollCount(), 2U);
}

TEST_F(DrvDmaRecv, RecvOnceReturnsTheResultOfThePollUnchanged) {
    Start();
    EXPECT_EQ(m_drv->RecvOnce(deliver, nullptr), 0);
    for (const int result : {-1, -7, 2, 11}) {
        FakeEnyx::Fail("a2c_stream_poll_once", 1, EIO, result);
        EXPECT_EQ(m_drv->RecvOnce(deliver, nullptr), result);
    }
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(DrvDmaRecv, RecvOnceIgnoresTheRegisteredHandler) {
    Start();
    int registered = 0;
    int given = 0;
    m_drv->RegisterHandler(nullptr, &registered);
    FakeEnyx::QueuePacket(stream, {1});
    EXPECT_EQ(m_drv->RecvOnce(deliver, &given), 1);
    EXPECT_EQ(deliveries.at(0).context, &given);
}

void OnPolled(const unsigned char* data, unsigned int size, void* context) {
    static_cast<std::vector<unsigned char>*>(context)->assign(data, data + size);
}

TEST_F(DrvDmaRecv, ThePollerDeliversAsRecvOnceDoes) {
    Start();
    const DrvDmaPoll_t poller = m_drv->Poller();
    FakeEnyx::QueuePacket(stream, {1, 2, 3});
    std::vector<unsigned char> packet;
    EXPECT_EQ(poller.poll(poller.polled, &OnPolled, &packet), 1);
    EXPECT_THAT(packet, ElementsAre(1, 2, 3));
    EXPECT_EQ(poller.poll(poller.polled, &OnPolled, &packet), 0);
    for (const int result : {-1, -7, 2, 11}) {
        FakeEnyx::Fail("a2c_stream_poll_once", 1, EIO, result);
        EXPECT_EQ(poller.poll(poller.polled, &OnPolled, &packet), result);
    }
    EXPECT_EQ(FakeEnyx::PollCount(), 6U);
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(DrvDmaRecv, ReceivingDoesNotAllocate) {
    Start();
    void* handler = reinterpret_cast<void*>(&Ignore);
    m_drv->RegisterHandler(handler, nullptr);
    for (int i = 0; i < 4; ++i) {
        FakeEnyx::QueuePacket(stream, {1, 2, 3});
    }
    const std::size_t before = AllocationCount();
    EXPECT_EQ(m_drv->RecvOnce(handler, nullptr), 1);
    EXPECT_EQ(m_drv->RecvOnceCb(), 0);
    EXPECT_EQ(m_drv->PollData(), 0);
    EXPECT_EQ(m_drv->RecvOnce(handler, nullptr), 1);
    EXPECT_EQ(m_drv->RecvOnce(handler, nullptr), 0);
    const DrvDmaPoll_t poller = m_drv->Poller();
    EXPECT_EQ(poller.poll(poller.polled, &Ignore, nullptr), 0);
    EXPECT_EQ(AllocationCount(), before);
}

// RecvOnceCb and PollData do the same.
class DrvDmaRegistered : public DrvDmaRecv,
                         public ::testing::WithParamInterface<int (IDrvDMA::*)()> {
  protected:
    int Poll() { return (static_cast<IDrvDMA&>(*m_drv).*GetParam())(); }
};

TEST_P(DrvDmaRegistered, DeliversOnePacketToTheRegisteredHandler) {
    Start();
    FakeEnyx::QueuePacket(stream, {1, 2});
    FakeEnyx::QueuePacket(stream, {3});
    int context = 0;
    m_drv->RegisterHandler(deliver, &context);
    EXPECT_EQ(Poll(), 0);
    ASSERT_EQ(deliveries.size(), 1U);
    EXPECT_THAT(deliveries[0].packet, ElementsAre(1, 2));
    EXPECT_EQ(deliveries[0].context, &context);
    m_drv->RegisterHandler(deliver, nullptr);
    EXPECT_EQ(Poll(), 0);
    EXPECT_EQ(deliveries.at(1).context, nullptr);
}

TEST_P(DrvDmaRegistered, NothingWaitingGivesMinus1WithoutALine) {
    Start();
    m_drv->RegisterHandler(deliver, nullptr);
    EXPECT_EQ(Poll(), -1);
    EXPECT_THAT(deliveries, IsEmpty());
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_P(DrvDmaRegistered, AnyResultBut1GivesMinus1) {
    Start();
    m_drv->RegisterHandler(deliver, nullptr);
    for (const int result : {-1, 0, 2}) {
        FakeEnyx::Fail("a2c_stream_poll_once", 1, EIO, result);
        EXPECT_EQ(Poll(), -1);
    }
    EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_P(DrvDmaRegistered, WithoutAHandlerNothingIsLostAndOneLineSaysSo) {
    Start();
    FakeEnyx::QueuePacket(stream, {1});
    EXPECT_EQ(Poll(), -1);
    EXPECT_EQ(Poll(), -1);
    EXPECT_EQ(m_drv->RecvOnce(nullptr, nullptr), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre("WARN Receive handler is NULL, nothing is received."));
    EXPECT_EQ(FakeEnyx::PollCount(), 0U);
    m_drv->RegisterHandler(deliver, nullptr);
    EXPECT_EQ(Poll(), 0);
    EXPECT_EQ(deliveries.size(), 1U);
}

TEST_P(DrvDmaRegistered, BeforeInitGivesMinus1) {
    m_drv->RegisterHandler(deliver, nullptr);
    EXPECT_EQ(Poll(), -1);
}

TEST(DrvDmaOverridden, PollDataHonoursAnOverridingRecvOnceCb) {
    class Answering : public CDrvDMAEnyx {
      public:
        int RecvOnceCb() override { return 77; }
    } drv;
    EXPECT_EQ(static_cast<IDrvDMA&>(drv).PollData(), 77);
}

INSTANTIATE_TEST_SUITE_P(Both, DrvDmaRegistered,
                         ::testing::Values(&IDrvDMA::RecvOnceCb, &IDrvDMA::PollData),
                         [](const auto& which) {
                             return std::string(which.index == 0 ? "RecvOnceCb" : "PollData");
                         });

}  // namespace
