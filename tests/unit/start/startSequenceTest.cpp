// Every register access and every log line of a start outside trading time, in order.

#include "accessScript.h"
#include "fakeDrv.h"
#include "startBench.h"

namespace velatest {
namespace {

constexpr const char* fullIni =
    "[config]\n"
    "device=xilinx0:0\n"
    "czce_level1=enabled\n"
    "czce_level2=enabled\n"
    "L5_DSTMAC=01:00:5e:00:00:05\n"
    "L5_SRCMAC=00:1b:21:aa:bb:cc\n"
    "L5_DSTIP=239.3.1.5\n"
    "L5_SRCIP=192.168.1.10\n"
    "L5_DSTPORT=5005\n"
    "L5_SRCPORT=5006\n"
    "L1_DSTMAC=01:00:5e:00:00:01\n"
    "L1_SRCMAC=00:1b:21:dd:ee:ff\n"
    "L1_DSTIP=239.3.1.1\n"
    "L1_SRCIP=192.168.1.11\n"
    "L1_DSTPORT=1001\n"
    "L1_SRCPORT=1002\n";

FakeDrv* NewBoard(unsigned int tradeDate) {
    auto* drv = new FakeDrv;
    drv->SetReg(0x103, 0xF);
    drv->SetReg(0x106, tradeDate);
    return drv;
}

TEST(ColdStart, MakesTheseAccessesInThisOrder) {
    StartBench bench;
    PutFile("test.ini", fullIni);
    FakeClock::Set(20261120, 83000);
    FakeDrv* const drv = NewBoard(20261119);
    bench.Start(drv);

    ASSERT_EQ(drv->Inits().size(), 1U);
    EXPECT_EQ(drv->Inits()[0].busId, 0);
    EXPECT_EQ(drv->Inits()[0].coreId, 474);
    AccessScript script(drv->Accesses());
    script.Read(0x106, 20261119);
    script.Resets();
    script.Read(0x103, 0xF);
    script.Write(0x301, 0x0100);  // L5 destination
    script.Write(0x302, 0x5e000005);
    script.Write(0x303, 0xEF030105);
    script.Write(0x304, 5005);
    script.Write(0x305, 0x001b);  // L5 source
    script.Write(0x306, 0x21aabbcc);
    script.Write(0x307, 0xC0A8010A);
    script.Write(0x308, 5006);
    script.Write(0x311, 0x0100);  // L1 destination
    script.Write(0x312, 0x5e000001);
    script.Write(0x313, 0xEF030101);
    script.Write(0x314, 1001);
    script.Write(0x315, 0x001b);  // L1 source
    script.Write(0x316, 0x21ddeeff);
    script.Write(0x317, 0xC0A8010B);
    script.Write(0x318, 1002);
    script.Write(0x300, 1);
    script.Write(0x310, 1);
    script.Write(0x106, 20261120);
    script.UnsubscribesAll();
    script.LoggedWrite(0x12, 1);
    script.End();
    EXPECT_EQ(FakeClock::Sleeps(), (std::vector<unsigned int>{1}));
    EXPECT_EQ(FileText("bin"), "");
}

TEST(ColdStart, LogsTheseLinesInThisOrder) {
    StartBench bench(StartBench::Log::On);
    PutFile("test.ini", fullIni);
    FakeClock::Set(20261120, 83000);
    FakeDrv* const drv = NewBoard(20261119);
    drv->Record(false);
    bench.Start(drv);

    const Lines_t expected = {
        "INFO Successful load confie file test.ini",
        "INFO [channel:0] Busid:0, ChannelId:0.",
        "INFO [channel:0] Busid:0, ChannelId:0.",
        "INFO [channel:0] Doesn't need to bind cpu.",
        "INFO First time read fpga date:20261119, system date:20261120.",
        "INFO [channel:0] Clear all inst table over",
        "INFO Reset and Clear fpga table over.",
        "INFO [channel:0] Clear all inst table over",
        "INFO Current soft version 3.10.0.",
        "INFO Fiber linkstatus 0x103:0xf.",
        "INFO config:L5_DSTMAC=01:00:5e:00:00:05",
        "INFO config:L5_DSTIP=239.3.1.5",
        "INFO config:L5_DSTPORT=5005",
        "INFO config:L5_SRCMAC=00:1b:21:aa:bb:cc",
        "INFO config:L5_SRCIP=192.168.1.10",
        "INFO config:L5_SRCPORT=5006",
        "INFO config:L1_DSTMAC=01:00:5e:00:00:01",
        "INFO config:L1_DSTIP=239.3.1.1",
        "INFO config:L1_DSTPORT=1001",
        "INFO config:L1_SRCMAC=00:1b:21:dd:ee:ff",
        "INFO config:L1_SRCIP=192.168.1.11",
        "INFO config:L1_SRCPORT=1002",
        "INFO 0x300 write 1, L5 net version switch open!",
        "INFO 0x310 write 1, L1 net version switch open!",
        "INFO config:czce_level1=enabled.",
        "INFO config:czce_level2=enabled.",
        "INFO L1 and L5 switch on.",
        "INFO Update fpga addr 0x106 to 20261120 over",
        "INFO Unsubscribe all insts now",
        "INFO Fpga start transmit inst map pkt.",
        "INFO Init dma channel :CUSTOM_CHAN0_DATA success.",
    };
    ExpectLines(bench.log.Lines(), expected);
}

// The board ran today and its time of day is no reason for a reset.
TEST(KeptBoardStart, MakesTheseAccessesInThisOrder) {
    StartBench bench(StartBench::Log::On);
    FakeClock::Set(20261120, 83000);
    FakeDrv* const drv = NewBoard(20261120);
    bench.Start(drv);

    AccessScript script(drv->Accesses());
    script.Read(0x106, 20261120);
    script.Read(0x106, 20261120);
    script.Read(0x103, 0xF);
    script.Write(0x106, 20261120);
    script.UnsubscribesAll();
    script.LoggedWrite(0x12, 1);
    script.End();
    EXPECT_TRUE(FakeClock::Sleeps().empty());
    const Lines_t expected = {
        "INFO Successful load confie file test.ini",
        "INFO [channel:0] Busid:0, ChannelId:0.",
        "INFO [channel:0] Busid:0, ChannelId:0.",
        "INFO [channel:0] Doesn't need to bind cpu.",
        "INFO First time read fpga date:20261120, system date:20261120.",
        "INFO System time:83000.",
        "INFO Current soft version 3.10.0.",
        "INFO Fiber linkstatus 0x103:0xf.",
        "INFO L1 and L5 switch on.",
        "INFO Update fpga addr 0x106 to 20261120 over",
        "INFO Unsubscribe all insts now",
        "INFO Fpga start transmit inst map pkt.",
        "INFO Init dma channel :CUSTOM_CHAN0_DATA success.",
    };
    ExpectLines(bench.log.Lines(), expected);
}

// A channel that is not the master leaves the board alone.
TEST(OtherChannelStart, MakesNoAccess) {
    StartBench bench(StartBench::Log::On);
    PutFile("test.ini", "[config]\ndevice=xilinx0:3\n");
    FakeClock::Set(20261120, 83000);
    auto drv = std::make_unique<FakeDrv>();
    bench.Start(drv.get());
    bench.Stop();
    EXPECT_TRUE(drv->Inits().empty());
    AccessScript(drv->Accesses()).End();
    ExpectLines(bench.log.Lines(),
                {
                    "INFO Successful load confie file test.ini",
                    "INFO [channel:3] Busid:0, ChannelId:3.",
                    "INFO [channel:3] Doesn't need to bind cpu.",
                    "INFO Init dma channel :CUSTOM_CHAN3_DATA success.",
                    "INFO [channel:3] DMA count info: backpress:0, dma2soft:0, fifo:0, error:0.",
                    "INFO dma channel CUSTOM_CHAN3_DATA has released.",
                });
}

}  // namespace
}  // namespace velatest
