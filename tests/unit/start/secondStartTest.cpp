// More than one start in a process, on the library's own drivers and the fake of the vendor's
// calls, which fails a test when anything freed is used again. The sanitizers watch the rest.

#include <csignal>
#include <map>
#include <utility>

#include "DataType/ZceConfigFile.h"
#include "SignalProcess.h"
#include "fakeEnyx.h"
#include "startBench.h"

namespace velatest {
namespace {

constexpr unsigned int today = 20261120;

std::string StreamOf(int channel) {
    return "CUSTOM_CHAN" + std::to_string(channel) + "_DATA";
}

class SecondStart : public testing::Test {
  public:
    SecondStart() {
        ForbidExit();
        PutFile("master.ini", "[config]\ndevice=xilinx0:0\n[channel0]\ninsts=all\noptions=recv\n");
        PutFile("channel3.ini", "[config]\ndevice=xilinx0:3\n");
        FakeClock::Set(today, 83000);
        FakeEnyx::SetRegister(0x103, 0xF);
        FakeEnyx::SetRegister(0x106, today);
    }
    ~SecondStart() override {
        std::signal(SIGINT, SIG_DFL);
        std::signal(SIGTERM, SIG_DFL);
        MakeProcessNew();
        AllowExit();
    }
    void PacketAt(unsigned int hhmmss, const Insts_t& insts, IVelaZceMdApi& api) {
        FakeClock::SetTime(hhmmss);
        FakeEnyx::SetRegister(0x104, hhmmss);
        FakeEnyx::SetRegister(0x105, hhmmss);
        FakeEnyx::QueuePacket(StreamOf(0), MapPacket(insts));
        EXPECT_EQ(api.VelaRecv(), 0);
    }
    // Learns, finds the auction's end and subscribes.
    void HoldTheAuction(IVelaZceMdApi& api) {
        PacketAt(85000, {{5, "SR209"}}, api);
        PacketAt(85510, {{5, "SR209"}}, api);
        PacketAt(85511, {{5, "SR209"}}, api);
    }
    int Deliver(int channel, IVelaZceMdApi& api) {
        FakeEnyx::QueuePacket(StreamOf(channel), MarketMessage(17));
        return api.VelaRecv();
    }
    static int LoggersMade(const LogCapture& log) {
        int made = 0;
        for (const std::string& line : log.Lines()) {
            made += line == "INFO log is initialized successfully." ? 1 : 0;
        }
        return made;
    }

    TempDir dir{TempDir::Enter::yes};
    LogCapture log;
    CountingSpi spi;
};

TEST_F(SecondStart, CreateStartDestroyAndOnceMore) {
    for (int start = 1; start <= 3; ++start) {
        IVelaZceMdApi* const api = IVelaZceMdApi::CreateVelaZceMdApi();
        ASSERT_NE(CDrvEnyxReg::instance, nullptr);
        ASSERT_EQ(api->VelaStart(spi, "master.ini"), 0);
        EXPECT_EQ(FakeEnyx::Register(0x12), 1U);
        EXPECT_EQ(Deliver(0, *api), 1);
        EXPECT_EQ(spi.calls, start);
        IVelaZceMdApi::DestroyVelaZceMdApi(*api);
        // The master took the driver with it.
        EXPECT_EQ(CDrvEnyxReg::instance, nullptr);
        const auto live = FakeEnyx::Live();
        EXPECT_EQ(live.count("a2c_stream"), 0U);
        EXPECT_EQ(live.count("c2a_stream"), 0U);
        EXPECT_EQ(live.count("filter"), 0U);
    }
    EXPECT_EQ(LoggersMade(log), 1);
    // Every start found the board anew, reset its core and waited for it.
    EXPECT_EQ(FakeEnyx::CountOf("core_reset"), 3);
    EXPECT_EQ(FakeClock::Sleeps(), (std::vector<unsigned int>{1, 1, 1}));
    EXPECT_TRUE(log.LinesOf("ERROR").empty());
}

TEST_F(SecondStart, StartedTwiceTheFirstStreamIsGivenBackFirst) {
    IVelaZceMdApi* const api = IVelaZceMdApi::CreateVelaZceMdApi();
    ASSERT_EQ(api->VelaStart(spi, "master.ini"), 0);
    CountingSpi other;
    ASSERT_EQ(api->VelaStart(other, "master.ini"), 0);
    EXPECT_EQ(FakeEnyx::Live().at("a2c_stream"), 1);
    EXPECT_EQ(Deliver(0, *api), 1);
    EXPECT_EQ(spi.calls, 0);
    EXPECT_EQ(other.calls, 1);
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);
    EXPECT_LE(LoggersMade(log), 1);
    EXPECT_TRUE(log.LinesOf("ERROR").empty());
}

// From the master's channel to another and back, with one object.
TEST_F(SecondStart, StartedAgainOnAnotherChannel) {
    IVelaZceMdApi* const api = IVelaZceMdApi::CreateVelaZceMdApi();
    ASSERT_EQ(api->VelaStart(spi, "master.ini"), 0);
    ASSERT_EQ(api->VelaStart(spi, "channel3.ini"), 0);
    EXPECT_EQ(Deliver(3, *api), 1);
    ASSERT_EQ(api->VelaStart(spi, "master.ini"), 0);
    EXPECT_EQ(Deliver(0, *api), 1);
    EXPECT_EQ(spi.calls, 2);
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);
}

// The two share the driver of the process; the master's end takes it, the other goes on.
TEST_F(SecondStart, TwoObjectsShareTheDriverAndTheMasterGoesFirst) {
    IVelaZceMdApi* const master = IVelaZceMdApi::CreateVelaZceMdApi();
    const IDrv* const shared = CDrvEnyxReg::instance;
    IVelaZceMdApi* const other = IVelaZceMdApi::CreateVelaZceMdApi();
    EXPECT_EQ(CDrvEnyxReg::instance, shared);
    ASSERT_EQ(master->VelaStart(spi, "master.ini"), 0);
    CountingSpi otherSpi;
    ASSERT_EQ(other->VelaStart(otherSpi, "channel3.ini"), 0);
    EXPECT_EQ(Deliver(0, *master), 1);
    EXPECT_EQ(Deliver(3, *other), 1);

    IVelaZceMdApi::DestroyVelaZceMdApi(*master);
    EXPECT_EQ(CDrvEnyxReg::instance, nullptr);
    EXPECT_EQ(Deliver(3, *other), 1);
    // And it may become the master itself: it takes a new driver.
    ASSERT_EQ(other->VelaStart(otherSpi, "master.ini"), 0);
    EXPECT_NE(CDrvEnyxReg::instance, nullptr);
    EXPECT_EQ(Deliver(0, *other), 1);
    EXPECT_EQ(otherSpi.calls, 3);
    IVelaZceMdApi::DestroyVelaZceMdApi(*other);
    EXPECT_EQ(CDrvEnyxReg::instance, nullptr);
    EXPECT_LE(LoggersMade(log), 1);
}

TEST_F(SecondStart, TwoObjectsShareTheDriverAndTheMasterGoesLast) {
    IVelaZceMdApi* const master = IVelaZceMdApi::CreateVelaZceMdApi();
    IVelaZceMdApi* const other = IVelaZceMdApi::CreateVelaZceMdApi();
    ASSERT_EQ(other->VelaStart(spi, "channel3.ini"), 0);
    ASSERT_EQ(master->VelaStart(spi, "master.ini"), 0);
    IVelaZceMdApi::DestroyVelaZceMdApi(*other);
    EXPECT_NE(CDrvEnyxReg::instance, nullptr);
    HoldTheAuction(*master);
    EXPECT_EQ(FakeEnyx::Register(0x11), 3U);
    EXPECT_EQ(Deliver(0, *master), 1);
    IVelaZceMdApi::DestroyVelaZceMdApi(*master);
    EXPECT_EQ(CDrvEnyxReg::instance, nullptr);
}

// An object made before the driver was released is not left with it.
TEST_F(SecondStart, ObjectMadeBeforeTheReleaseStartsOnANewDriver) {
    IVelaZceMdApi* const first = IVelaZceMdApi::CreateVelaZceMdApi();
    IVelaZceMdApi* const second = IVelaZceMdApi::CreateVelaZceMdApi();
    ASSERT_EQ(first->VelaStart(spi, "master.ini"), 0);
    IVelaZceMdApi::DestroyVelaZceMdApi(*first);
    ASSERT_EQ(second->VelaStart(spi, "master.ini"), 0);
    EXPECT_EQ(Deliver(0, *second), 1);
    IVelaZceMdApi::DestroyVelaZceMdApi(*second);
}

// A master whose list was subscribed leaves its flags to the process: a second one in the same
// process does not learn again, whatever packets come.
TEST_F(SecondStart, FlagsOfTheProcessStay) {
    IVelaZceMdApi* api = IVelaZceMdApi::CreateVelaZceMdApi();
    ASSERT_EQ(api->VelaStart(spi, "master.ini"), 0);
    EXPECT_EQ(Peer::SignalRegister(), 0);
    HoldTheAuction(*api);
    EXPECT_EQ(Deliver(0, *api), 1);
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);

    const auto expectKept = [] {
        EXPECT_EQ(Peer::FirstTmRead(), 1);
        EXPECT_EQ(Peer::FirstTm(), 85000U);
        EXPECT_EQ(Peer::CallTimeExpired(), 1);
        EXPECT_EQ(Peer::LoadMapEnabled(), 0);
        EXPECT_EQ(Peer::AllSubsOver(), 1);
        EXPECT_EQ(Peer::SignalRegister(), 1);
        EXPECT_EQ(CZceDmaChanImpl::g_uiContractSettleTm, 20261120085510UL);
        EXPECT_EQ(Vela2_U50::CZceConfigFile::m_SwitchReg, 3U);
        EXPECT_FALSE(ResetedFlag::Get());
    };
    expectKept();
    FakeEnyx::SetRegister(0x11, 0);
    FakeClock::SetTime(85000);
    api = IVelaZceMdApi::CreateVelaZceMdApi();
    ASSERT_EQ(api->VelaStart(spi, "master.ini"), 0);
    EXPECT_EQ(FakeEnyx::Register(0x12), 1U);
    expectKept();
    log.Clear();
    HoldTheAuction(*api);
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_EQ(FakeEnyx::Register(0x11), 0U);
    EXPECT_EQ(FakeEnyx::Register(0x12), 1U);
    EXPECT_EQ(FileText("bin"), "");
    expectKept();
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);
}

// The feed switches are the one thing that each start of a master sets anew.
TEST_F(SecondStart, FeedSwitchesAreThoseOfTheLastMaster) {
    PutFile("l1.ini", "[config]\ndevice=xilinx0:0\nczce_level2=disabled\n");
    IVelaZceMdApi* const api = IVelaZceMdApi::CreateVelaZceMdApi();
    ASSERT_EQ(api->VelaStart(spi, "l1.ini"), 0);
    EXPECT_EQ(Vela2_U50::CZceConfigFile::m_SwitchReg, 2U);
    ASSERT_EQ(api->VelaStart(spi, "channel3.ini"), 0);
    EXPECT_EQ(Vela2_U50::CZceConfigFile::m_SwitchReg, 2U);
    ASSERT_EQ(api->VelaStart(spi, "master.ini"), 0);
    EXPECT_EQ(Vela2_U50::CZceConfigFile::m_SwitchReg, 3U);
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);
}

// Once a signal has come, no object of the process receives any more.
TEST_F(SecondStart, ExitFlagStays) {
    IVelaZceMdApi* api = IVelaZceMdApi::CreateVelaZceMdApi();
    ASSERT_EQ(api->VelaStart(spi, "channel3.ini"), 0);
    EXPECT_EQ(Deliver(3, *api), 1);
    std::raise(SIGTERM);
    EXPECT_EQ(api->VelaRecv(), -1);
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);
    api = IVelaZceMdApi::CreateVelaZceMdApi();
    EXPECT_EQ(api->VelaRecvStart(spi, "channel3.ini"), 0);
    EXPECT_EQ(api->VelaRecv(), -1);
    EXPECT_EQ(spi.calls, 1);
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);
}

// A reset of the board is remembered by the process: a later start inside trading time waits for
// the list although it kept the board.
TEST(SecondStartAfterReset, StillWaitsForTheBoardToGather) {
    StartBench bench;
    bench.board.tradeDate = 20261119;
    FakeClock::Set(today, 83000);
    bench.Start();
    EXPECT_TRUE(ResetedFlag::Get());
    EXPECT_EQ(bench.board.resets, 1U);
    const Peer::Services left(*bench.api->m_pChan);
    const Vela2_U50::CZceConfigFile* const leftCfg = bench.api->m_pCfg;
    bench.api.reset();

    for (const bool cached : {false, true}) {
        FakeClock::Set(today, 100000);
        FakeClock::ClearSleeps();
        if (cached) {
            PutFile("bin",
                    "5,SR209\ncontract's_corresponding_time=20261120085515\n"
                    "bin_file_over_tag");
            bench.board.decode = 0;
        }
        OpenApi api(new CompactDrv(bench.board));
        ASSERT_EQ(api.VelaStart(bench.spi, "test.ini"), 0);
        EXPECT_TRUE(ResetedFlag::Get());
        EXPECT_EQ(bench.board.resets, 1U);
        std::vector<unsigned int> sleeps = {1};
        sleeps.insert(sleeps.end(), cached ? 1 : 24, cached ? 120 : 10);
        EXPECT_EQ(FakeClock::Sleeps(), sleeps);
        const Peer::Services services(*api.m_pChan);
        delete std::exchange(api.m_pChan, nullptr);
        services.Free();
        delete api.m_pCfg;
    }
    left.Free();
    delete leftCfg;
}

// A worker is destroyed with what it received waiting: nothing of it is delivered any more, and
// what the next one receives is its own.
TEST_F(SecondStart, PacketsOfTheFirstDoNotReachTheSecond) {
    IVelaZceMdApi* api = IVelaZceMdApi::CreateVelaZceMdApi();
    ASSERT_EQ(api->VelaStart(spi, "master.ini"), 0);
    PacketAt(85000, {{5, "SR209"}, {6, "TA209"}}, *api);
    EXPECT_EQ(FileText("bin"), "5,SR209\n6,TA209\n");
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);
    api = IVelaZceMdApi::CreateVelaZceMdApi();
    ASSERT_EQ(api->VelaStart(spi, "master.ini"), 0);
    EXPECT_EQ(FileText("bin"), "") << "a new file is begun";
    PacketAt(85100, {{7, "CF209"}}, *api);
    EXPECT_EQ(FileText("bin"), "7,CF209\n");
    PacketAt(85510, {{7, "CF209"}}, *api);
    log.Clear();
    PacketAt(85511, {{7, "CF209"}}, *api);
    EXPECT_TRUE(log.Has("INFO Begin match needed inst! AllInstNum:1."));
    EXPECT_TRUE(log.Has("INFO Subscribes:Write to fpga:chanbit:0x1, index:7, instId:CF209"));
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);
}

}  // namespace
}  // namespace velatest
