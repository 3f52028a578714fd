#include <cerrno>
#include <map>
#include <memory>

#include "drvDmaFixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using velatest::FakeEnyx;

const std::string released = "INFO dma channel CUSTOM_CHAN3_DATA has released.";

class DrvDmaInit : public DrvDma {};
class DrvDmaRelease : public DrvDma {};

TEST_F(DrvDmaInit, NullParamIsRejected) {
    EXPECT_EQ(m_drv->Init(nullptr), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre("ERROR Init DMA param is NULL!"));
    EXPECT_THAT(FakeEnyx::Calls(), IsEmpty());
}

TEST_F(DrvDmaInit, NameWithoutChanFailsWithAnInfoLine) {
    EXPECT_EQ(Init("CUSTOM_Chan3_DATA"), -1);
    EXPECT_THAT(m_log.Lines(), ElementsAre("INFO Extract dma channel fail."));
    EXPECT_THAT(FakeEnyx::Calls(), IsEmpty());
}

TEST_F(DrvDmaInit, OpensThePairInTheOrderOfSteps) {
    EXPECT_EQ(Init(), 0);
    EXPECT_THAT(FakeEnyx::Calls(),
                ElementsAre("filter_create", "filter_set_index 0", "enumerate_accelerators",
                            "filter_destroy", "accelerator_get", "free_accelerator_descriptors 1",
                            "filter_create", "filter_set_name CUSTOM_CHAN3_DATA",
                            "accelerator_enumerate_a2c_streams", "a2c_stream_create 0",
                            "free_a2c_stream_descriptors 1", "accelerator_enumerate_c2a_streams",
                            "c2a_stream_create 0", "free_c2a_stream_descriptors 1",
                            "filter_destroy", "a2c_stream_get_mtu", "c2a_stream_get_mtu"));
    EXPECT_THAT(FakeEnyx::Live(), ElementsAre(Pair("a2c_stream", 1), Pair("c2a_stream", 1)));
    EXPECT_THAT(m_log.Lines(), ElementsAre("INFO Init dma channel :CUSTOM_CHAN3_DATA success."));
}

TEST_F(DrvDmaInit, UsesTheLow16BitsOfTheBusIndex) {
    FakeEnyx::SetBoards({1});
    EXPECT_EQ(Init(stream, 0x10001), 0);
    EXPECT_EQ(FakeEnyx::Calls()[1], "filter_set_index 1");
}

TEST_F(DrvDmaInit, RecordsTheAccelerator) {
    EXPECT_EQ(CDrvDMAEnyx::m_lpAcc, nullptr);
    EXPECT_EQ(Init(), 0);
    EXPECT_EQ(CDrvDMAEnyx::m_lpAcc, DrvEnyxCoreGetAcc(0));
    EXPECT_NE(CDrvDMAEnyx::m_lpAcc, nullptr);
}

TEST_F(DrvDmaInit, FailedOpenWithoutABoardClearsTheRecord) {
    EXPECT_EQ(Init(), 0);
    CDrvDMAEnyx other;
    DrvDmaInitParms_t parms{5, "CUSTOM_CHAN4_DATA", 0, 64, 0};
    EXPECT_EQ(other.Init(&parms), -1);
    EXPECT_EQ(CDrvDMAEnyx::m_lpAcc, nullptr);
}

TEST_F(DrvDmaInit, BusIndexOf10IsRejected) {
    EXPECT_EQ(Init(stream, 10), -1);
    EXPECT_THAT(m_log.Lines(),
                ElementsAre("ERROR Bus index out of range. busId:10, valid:0 to 9.",
                            "ERROR Init Accelerator error!", "ERROR Init DMA error!"));
}

TEST_F(DrvDmaInit, StreamHeldByAnotherProcessHasItsTwoLines) {
    FakeEnyx::SetStreamBusy(stream, true);
    EXPECT_EQ(Init(), -1);
    EXPECT_THAT(
        m_log.Lines(),
        ElementsAre("ERROR Could not create a2c stream.dmaName:CUSTOM_CHAN3_DATA,  err:Device or "
                    "resource busy",
                    "ERROR Note !! A software program can only have one instance running at a "
                    "time!",
                    "ERROR Init DMA error!"));
    EXPECT_THAT(FakeEnyx::Live(), IsEmpty());
}

TEST_F(DrvDmaInit, UnknownStreamIsNotFound) {
    EXPECT_EQ(Init("CUSTOM_CHAN16_DATA"), -1);
    EXPECT_THAT(m_log.Lines(),
                ElementsAre("ERROR Could not find a2c stream. dmaName:CUSTOM_CHAN16_DATA, err:No "
                            "such device",
                            "ERROR Init DMA error!"));
}

TEST_F(DrvDmaInit, TwoA2cStreamsAreAFailureAndTheListIsFreedAfterTheFilter) {
    FakeEnyx::Fail("accelerator_enumerate_a2c_streams", 1, EIO, 2);
    EXPECT_EQ(Init(), -1);
    EXPECT_THAT(m_log.Lines(),
                ElementsAre("ERROR Could not find a2c stream. dmaName:CUSTOM_CHAN3_DATA, "
                            "err:Input/output error",
                            "ERROR Init DMA error!"));
    const Lines calls = FakeEnyx::Calls();
    EXPECT_THAT(Lines(calls.end() - 3, calls.end()),
                ElementsAre("accelerator_enumerate_a2c_streams", "filter_destroy",
                            "free_a2c_stream_descriptors 1"));
    EXPECT_THAT(FakeEnyx::Live(), IsEmpty());
}

TEST_F(DrvDmaInit, TwoC2aStreamsAreAFailureAndTheListIsFreedAfterTheFilter) {
    FakeEnyx::Fail("accelerator_enumerate_c2a_streams", 1, EIO, 2);
    EXPECT_EQ(Init(), -1);
    EXPECT_THAT(m_log.Lines(),
                ElementsAre("ERROR Could not find c2a stream. dmaName:CUSTOM_CHAN3_DATA, "
                            "err:Input/output error",
                            "ERROR Init DMA error!"));
    const Lines calls = FakeEnyx::Calls();
    EXPECT_THAT(Lines(calls.end() - 3, calls.end()),
                ElementsAre("accelerator_enumerate_c2a_streams", "filter_destroy",
                            "free_c2a_stream_descriptors 1"));
    EXPECT_THAT(FakeEnyx::Live(), ElementsAre(Pair("a2c_stream", 1)));
}

TEST_F(DrvDmaInit, EveryFailureHasItsLinesAndLeavesOnlyOpenedStreams) {
    struct Outcome {
        Lines lines;
        std::map<std::string, int> live;
    };
    const std::string acc = "ERROR Init Accelerator error!";
    const std::string last = "ERROR Init DMA error!";
    const std::string tail = "CUSTOM_CHAN3_DATA, err:Input/output error";
    const std::string noMtu = "ERROR Could not get mtu.dmaName:" + tail;
    const std::map<std::string, int> one = {{"a2c_stream", 1}};
    const std::map<std::string, int> both = {{"a2c_stream", 1}, {"c2a_stream", 1}};
    // In the order of the calls: those for the accelerator, then those for the streams.
    const std::vector<Outcome> expected = {
        {{"ERROR Could not create filter for DMA. errno:5", acc, last}, {}},
        {{"ERROR Could not set filter id. errno:5, errMsg:Input/output error.", acc, last}, {}},
        {{"ERROR Could not find accelerator. ernno:5, msg:Input/output error, get acc num:-1.", acc,
          last},
         {}},
        {{"ERROR Could not get accelerator. errno:5", acc, last}, {}},
        {{"ERROR Could not create dma filter. err:Input/output error", last}, {}},
        {{"ERROR Could not set dma filter name: CUSTOM_CHAN3_DATA. err:Input/output error", last},
         {}},
        {{"ERROR Could not find a2c stream. dmaName:" + tail, last}, {}},
        {{"ERROR Could not create a2c stream.dmaName:CUSTOM_CHAN3_DATA,  err:Input/output error",
          "ERROR Note !! A software program can only have one instance running at a time!", last},
         {}},
        {{"ERROR Could not find c2a stream. dmaName:" + tail, last}, one},
        {{"ERROR Could not create c2a stream. dmaName:" + tail, last}, one},
        {{noMtu, last}, both},
        {{noMtu, last}, both},
        {{"INFO Init dma channel :CUSTOM_CHAN3_DATA success."}, both},
    };
    std::size_t run = 0;
    const int runs = FakeEnyx::ForEachFailure(EIO, [&] {
        DrvEnyxVarClear();
        auto drv = std::make_unique<CDrvDMAEnyx>();
        m_log.Clear();
        DrvDmaInitParms_t parms{0, stream, 0, 64, 0};
        const int result = drv->Init(&parms);
        FakeEnyx::ClearFailures();
        const bool failed = !FakeEnyx::FailedCall().empty();
        EXPECT_EQ(result, failed ? -1 : 0);
        ASSERT_LT(run, expected.size());
        const Outcome& outcome = expected[run];
        ++run;
        EXPECT_EQ(m_log.Lines(), outcome.lines);
        EXPECT_EQ(FakeEnyx::Live(), outcome.live);
        EXPECT_EQ(FakeEnyx::CountOf("filter_create") -
                      (FakeEnyx::FailedCall() == "filter_create" ? 1 : 0),
                  FakeEnyx::CountOf("filter_destroy"));
        if (failed) {
            // The release does not close what a failed start had opened, and says one line.
            m_log.Clear();
            drv.reset();
            EXPECT_EQ(FakeEnyx::Live(), outcome.live);
            EXPECT_THAT(m_log.Lines(), ElementsAre(released));
        }
    });
    EXPECT_EQ(runs, 13);
}

TEST_F(DrvDmaInit, SecondInitOpensASecondPair) {
    EXPECT_EQ(Init("CUSTOM_CHAN3_DATA"), 0);
    EXPECT_EQ(Init("CUSTOM_CHAN4_DATA"), 0);
    EXPECT_THAT(FakeEnyx::Live(), ElementsAre(Pair("a2c_stream", 2), Pair("c2a_stream", 2)));
    m_log.Clear();
    m_drv.reset();
    EXPECT_THAT(FakeEnyx::Live(), ElementsAre(Pair("a2c_stream", 1), Pair("c2a_stream", 1)));
    EXPECT_EQ(m_log.Lines().back(), "INFO dma channel CUSTOM_CHAN4_DATA has released.");
}

TEST_F(DrvDmaInit, FailedSecondInitKeepsTheFirstPair) {
    EXPECT_EQ(Init(), 0);
    FakeEnyx::Fail("a2c_stream_create", 1, EIO);
    EXPECT_EQ(Init(), -1);
    m_drv.reset();
    EXPECT_THAT(FakeEnyx::Live(), IsEmpty());
}

TEST_F(DrvDmaRelease, ReadsTheCountersThenClosesTheStreams) {
    Start();
    FakeEnyx::SetCounters({0, 12345, 2, 3});
    m_drv.reset();
    EXPECT_THAT(
        FakeEnyx::Calls(),
        ElementsAre("a2c_stream_stats_get_backpressure", "a2c_stream_stats_get_packet_count",
                    "a2c_stream_stats_get_fifo_errors", "a2c_stream_stats_get_errors",
                    "a2c_stream_destroy", "c2a_stream_destroy"));
    EXPECT_THAT(FakeEnyx::Live(), IsEmpty());
    EXPECT_THAT(m_log.Lines(), ElementsAre("INFO [channel:3] DMA count info: backpress:0, "
                                           "dma2soft:12345, fifo:2, error:3.",
                                           released));
}

TEST_F(DrvDmaRelease, BackPressureIsWarnedOf) {
    Start();
    FakeEnyx::SetCounters({4294967295U, 1, 0, 0});
    m_drv.reset();
    EXPECT_THAT(m_log.Lines(),
                ElementsAre("INFO [channel:3] DMA count info: "
                            "backpress:4294967295, dma2soft:1, fifo:0, error:0.",
                            "WARN Back pressure happens! may loss some data !", released));
}

TEST_F(DrvDmaRelease, EachCounterThatCannotBeReadHasItsLineAndCountsAs0) {
    const std::map<std::string, Lines> expected = {
        {"a2c_stream_stats_get_backpressure",
         {"INFO get a2c stream backpress num fail.",
          "INFO [channel:3] DMA count info: backpress:0, dma2soft:2, fifo:3, error:4.", released}},
        {"a2c_stream_stats_get_packet_count",
         {"INFO get a2c stream packet count fail.",
          "INFO [channel:3] DMA count info: backpress:1, dma2soft:0, fifo:3, error:4.",
          "WARN Back pressure happens! may loss some data !", released}},
        {"a2c_stream_stats_get_fifo_errors",
         {"INFO get a2c stream fifo count fail.",
          "INFO [channel:3] DMA count info: backpress:1, dma2soft:2, fifo:0, error:4.",
          "WARN Back pressure happens! may loss some data !", released}},
        {"a2c_stream_stats_get_errors",
         {"INFO get a2c stream fifo count fail.",
          "INFO [channel:3] DMA count info: backpress:1, dma2soft:2, fifo:3, error:0.",
          "WARN Back pressure happens! may loss some data !", released}},
    };
    for (const auto& [call, lines] : expected) {
        SCOPED_TRACE(call);
        m_drv = std::make_unique<CDrvDMAEnyx>();
        Start();
        FakeEnyx::SetCounters({1, 2, 3, 4});
        FakeEnyx::Fail(call, 1, EIO, 1);
        m_drv.reset();
        EXPECT_EQ(m_log.Lines(), lines);
        EXPECT_THAT(FakeEnyx::Live(), IsEmpty());
    }
}

TEST_F(DrvDmaRelease, ChannelNumberIsTheNumberAfterTheFirstChan) {
    const std::map<std::string, int> channels = {
        {"CUSTOM_CHAN15_DATA", 15}, {"CHAN7_CHAN9", 7}, {"CHAN", 0},
        {"X_CHANNEL_3", 0},         {"CHAN 12", 12},    {"CHAN-2x", -2},
    };
    for (const auto& [name, channel] : channels) {
        SCOPED_TRACE(name);
        FakeEnyx::SetStreams({name});
        m_drv = std::make_unique<CDrvDMAEnyx>();
        ASSERT_EQ(Init(name), 0);
        m_log.Clear();
        m_drv.reset();
        EXPECT_EQ(m_log.Lines().at(0),
                  "INFO [channel:" + std::to_string(channel) +
                      "] DMA count info: backpress:0, dma2soft:0, fifo:0, error:0.");
    }
}

TEST_F(DrvDmaRelease, ObjectNeverOpenedSaysOneLineWithoutAName) {
    m_drv.reset();
    EXPECT_THAT(m_log.Lines(), ElementsAre("INFO dma channel  has released."));
    EXPECT_THAT(FakeEnyx::Calls(), IsEmpty());
}

TEST_F(DrvDmaRelease, NameWithoutChanIsNotYetTheStreamName) {
    EXPECT_EQ(Init("NOTHING"), -1);
    m_log.Clear();
    m_drv.reset();
    EXPECT_THAT(m_log.Lines(), ElementsAre("INFO dma channel  has released."));
}

TEST_F(DrvDmaRelease, ClearsTheDiscoveryInEveryCase) {
    EXPECT_NE(DrvEnyxCoreGetAcc(0), nullptr);
    m_drv.reset();  // never opened
    EXPECT_NE(DrvEnyxCoreGetAcc(0), nullptr);
    EXPECT_EQ(FakeEnyx::CountOf("accelerator_get"), 2);
    m_drv = std::make_unique<CDrvDMAEnyx>();
    ASSERT_EQ(Init(), 0);
    EXPECT_EQ(FakeEnyx::CountOf("accelerator_get"), 2);
    m_drv.reset();
    EXPECT_NE(DrvEnyxCoreGetAcc(0), nullptr);
    EXPECT_EQ(FakeEnyx::CountOf("accelerator_get"), 3);
}

TEST_F(DrvDmaRelease, AnyInitialisedObjectClearsTheRecordedAccelerator) {
    ASSERT_EQ(Init(), 0);
    { const CDrvDMAEnyx neverOpened; }
    EXPECT_NE(CDrvDMAEnyx::m_lpAcc, nullptr);
    m_drv.reset();
    EXPECT_EQ(CDrvDMAEnyx::m_lpAcc, nullptr);
}

TEST_F(DrvDmaRelease, StreamIsFreeForTheNextOne) {
    ASSERT_EQ(Init(), 0);
    m_drv.reset();
    m_drv = std::make_unique<CDrvDMAEnyx>();
    EXPECT_EQ(Init(), 0);
}

}  // namespace
