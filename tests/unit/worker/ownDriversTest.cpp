// The whole library, from the factory to the destruction, on drivers of the test's own: it uses
// IDrv and IDrvDMA and nothing below. This program has none of the vendor's calls, so that it would
// not even link otherwise.

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <utility>

#include "IVelaZceMdApi.h"
#include "VelaZceMdApiImpl.h"
#include "fakeClock.h"
#include "logCapture.h"
#include "ownDrivers.h"
#include "tempDir.h"
#include "wholeFile.h"

namespace velatest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Lines_t = std::vector<std::string>;
using Table = FakeDrv::Table;

class SlotSpi : public IVelaZceMdSpi {
  public:
    struct Call_t {
        int slot;
        const unsigned char* body;
        unsigned char first;
    };
    void OnDmaType17Msg(const unsigned char* body) override { calls.push_back({0, body, *body}); }
    void OnDmaType18Msg(const unsigned char* body) override { calls.push_back({1, body, *body}); }
    void OnDmaType19Msg(const unsigned char* body) override { calls.push_back({2, body, *body}); }
    void OnDmaType20Msg(const unsigned char* body) override { calls.push_back({3, body, *body}); }

    std::vector<Call_t> calls;
};

// A board that was used today, in a directory of its own.
class OwnDrivers : public testing::Test {
  public:
    OwnDrivers() {
        g_makeReg = [this] {
            drv = new FakeDrv;
            ++made;
            drv->OnDestroy([this] { ++destroyed; });
            drv->SetReg(0x103, 0xF);
            drv->SetReg(0x106, 20261120);
            if (prepare) {
                prepare();
            }
            return drv;
        };
        Put("master.ini",
            "[config]\ndevice=xilinx0:0\n[channel0]\ninsts=SR\noptions=norecv\n"
            "[channel3]\ninsts=SR,CF\noptions=recv\n");
        Put("chan3.ini", "[config]\ndevice=xilinx0:3\n");
    }
    ~OwnDrivers() override { delete g_pProcessReg; }
    OwnDrivers(const OwnDrivers&) = delete;
    OwnDrivers& operator=(const OwnDrivers&) = delete;

    static void Put(const std::string& path, const std::string& text) {
        std::ofstream(path, std::ios::binary) << text;
    }
    static Bytes_t Message(std::uint8_t type, std::uint8_t first) {
        return {type, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, first, 0xEE};
    }
    // Each type to its slot, at byte 12 of what the driver handed over; then an idle poll.
    void ExpectReceives(IVelaZceMdApi& api) {
        for (int slot = 0; slot < 4; ++slot) {
            const auto type = static_cast<std::uint8_t>(17 + slot);
            QueueDma::s_packets.push_back(Message(type, static_cast<std::uint8_t>(0xB0 + slot)));
            EXPECT_EQ(api.VelaRecv(), 1);
            ASSERT_EQ(spi.calls.size(), static_cast<std::size_t>(slot) + 1);
            EXPECT_EQ(spi.calls.back().slot, slot);
            EXPECT_EQ(spi.calls.back().body, QueueDma::s_lastData + 12);
            EXPECT_EQ(spi.calls.back().first, 0xB0 + slot);
        }
        EXPECT_EQ(api.VelaRecv(), 0);
        EXPECT_EQ(spi.calls.size(), 4U);
    }
    // What was written to these registers, in order, as often as it was.
    std::vector<DrvAccess> WritesTo(std::initializer_list<unsigned long> addrs) const {
        std::vector<DrvAccess> writes;
        for (const DrvAccess& write : drv->Writes()) {
            if (std::find(addrs.begin(), addrs.end(), write.addr) != addrs.end()) {
                writes.push_back(write);
            }
        }
        return writes;
    }

    TempDir dir{TempDir::Enter::yes};
    LogCapture log;
    SlotSpi spi;
    FakeDrv* drv = nullptr;
    std::function<void()> prepare;
    unsigned int parsed = 0;
    int made = 0;
    int destroyed = 0;
};

TEST_F(OwnDrivers, AStartBeforeTheSessionLearnsSubscribesAndReceives) {
    FakeClock::Set(20261120, 83000);
    IVelaZceMdApi* const api = IVelaZceMdApi::CreateVelaZceMdApi();
    ASSERT_EQ(api->VelaStart(spi, "master.ini"), 0);
    EXPECT_EQ(made, 1);
    ASSERT_EQ(drv->Inits().size(), 1U);
    EXPECT_EQ(drv->Inits()[0].busId, 0);
    EXPECT_EQ(drv->Inits()[0].coreId, 474);
    ASSERT_EQ(QueueDma::s_records.size(), 1U);
    EXPECT_EQ(QueueDma::s_records[0].busId, 0U);
    EXPECT_EQ(QueueDma::s_records[0].chanName, "CUSTOM_CHAN0_DATA");
    EXPECT_EQ(QueueDma::s_records[0].uiReserved0, 0U);
    EXPECT_EQ(QueueDma::s_records[0].uiReserved1, 64U);
    EXPECT_EQ(QueueDma::s_records[0].uiReserved2, 0U);
    // The date, every entry of both tables unsubscribed, and the exchange's list let through.
    EXPECT_THAT(WritesTo({0x10, 0x11, 0x12, 0x106}),
                ElementsAre(DrvAccess{"WriteInt32", 0x106, 20261120},
                            DrvAccess{"WriteInt32_Log", 0x12, 1}));

    drv->ClearAccesses();
    log.Clear();
    const Bytes_t packet =
        MapPacket().Add("SR301", 5).Add("CF301", 7).Add("SPD-SR301&SR303", 2).Packet();
    drv->SetReg(0x104, 83001);
    QueueDma::s_packets = {packet};
    EXPECT_EQ(api->VelaRecv(), 0);  // remembers the board's clock
    drv->SetReg(0x104, 85511);
    QueueDma::s_packets = {packet};
    EXPECT_EQ(api->VelaRecv(), 0);  // finds the auction over
    EXPECT_EQ(velatest::WholeFile("bin"),
              "5,SR301\n7,CF301\n2,SPD-SR301&SR303\n"
              "contract's_corresponding_time=20261120085511\nbin_file_over_tag");
    EXPECT_THAT(drv->Writes(), IsEmpty());
    QueueDma::s_packets = {packet};
    EXPECT_EQ(api->VelaRecv(), 0);  // subscribes
    EXPECT_EQ(log.Lines().back(), "INFO All channel subs over.");
    // Channels 0 and 3 have SR301, channel 3 has CF301, nobody the combination.
    EXPECT_EQ(drv->TableWord(Table::Sgl, 5, 0), 0x9U);
    EXPECT_EQ(drv->TableWord(Table::Sgl, 7, 0), 0x8U);
    EXPECT_EQ(drv->TableWord(Table::Cmb, 2, 0), 0U);
    EXPECT_THAT(WritesTo({0x11, 0x12}), ElementsAre(DrvAccess{"WriteInt32_Log", 0x11, 3},
                                                    DrvAccess{"WriteInt32_Log", 0x12, 0}));
    ExpectReceives(*api);

    EXPECT_THAT(QueueDma::s_closed, IsEmpty());
    drv->OnDestroy([this] {
        ++destroyed;
        EXPECT_THAT(QueueDma::s_closed, ElementsAre("CUSTOM_CHAN0_DATA"));  // the stream first
    });
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);
    EXPECT_THAT(QueueDma::s_closed, ElementsAre("CUSTOM_CHAN0_DATA"));
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(g_pProcessReg, nullptr);
}

TEST_F(OwnDrivers, AStartInTheSessionRecoversFromTheTablesAndReceives) {
    FakeClock::Set(20261120, 100000);
    prepare = [this] {
        drv->SetTableName(Table::Sgl, 5, "SR301");
        drv->SetTableName(Table::Sgl, 7, "CF301");
        drv->SetTableName(Table::Cmb, 2, "SPD-SR301&SR303");
        drv->SetReg(0x104, 100003);
        drv->SetReg(0x11, 3);
        drv->OnAccess([this](const DrvAccess& access) {
            if (access.addr == 0x200b) {
                drv->SetReg(0x200b, ++parsed);  // the board parses
            }
        });
    };
    IVelaZceMdApi* const api = IVelaZceMdApi::CreateVelaZceMdApi();
    ASSERT_EQ(api->VelaStart(spi, "master.ini"), 0);
    EXPECT_EQ(drv->TableWord(Table::Sgl, 5, 0), 0x9U);
    EXPECT_EQ(drv->TableWord(Table::Sgl, 7, 0), 0x8U);
    EXPECT_EQ(drv->TableWord(Table::Cmb, 2, 0), 0U);
    EXPECT_THAT(
        WritesTo({0x10, 0x11, 0x12, 0x106}),
        ElementsAre(DrvAccess{"WriteInt32", 0x106, 20261120}, DrvAccess{"WriteInt32_Log", 0x12, 0},
                    DrvAccess{"WriteInt32_Log", 0x11, 3}));
    EXPECT_THAT(QueueDma::s_opened, ElementsAre("CUSTOM_CHAN0_DATA"));
    ExpectReceives(*api);
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);
    EXPECT_THAT(QueueDma::s_closed, ElementsAre("CUSTOM_CHAN0_DATA"));
    EXPECT_EQ(destroyed, 1);
}

TEST_F(OwnDrivers, AnotherChannelReceivesAndTouchesNoRegister) {
    FakeClock::Set(20261120, 100000);
    IVelaZceMdApi* const api = IVelaZceMdApi::CreateVelaZceMdApi();
    ASSERT_EQ(api->VelaStart(spi, "chan3.ini"), 0);
    EXPECT_THAT(QueueDma::s_opened, ElementsAre("CUSTOM_CHAN3_DATA"));
    ExpectReceives(*api);
    EXPECT_THAT(drv->Inits(), IsEmpty());
    EXPECT_THAT(drv->Accesses(), IsEmpty());
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);
    EXPECT_THAT(QueueDma::s_closed, ElementsAre("CUSTOM_CHAN3_DATA"));
    EXPECT_EQ(destroyed, 0);  // the process's, for the next one
}

// The process ends with status 0; the master's worker has taken the driver along before.
TEST_F(OwnDrivers, AStreamThatCannotBeOpenedEndsTheProcessWithoutTheDriver) {
    FakeClock::Set(20261120, 83000);
    IVelaZceMdApi* const api = IVelaZceMdApi::CreateVelaZceMdApi();
    drv->OnDestroy([] { std::fputs("driver destroyed\n", stderr); });
    QueueDma::s_initResult = -1;
    EXPECT_EXIT(
        {
            api->VelaStart(spi, "master.ini");
            std::_Exit(9);
        },
        testing::ExitedWithCode(0), "^driver destroyed\n$");
    EXPECT_THAT(log.LinesOf("ERROR"),
                ElementsAre("Dma init busid:0, chanName:CUSTOM_CHAN0_DATA fail!",
                            "[channel:0] Init dma fail! dma name CUSTOM_CHAN0_DATA.",
                            "Create Tern service failed!"));
    drv->OnDestroy(nullptr);
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);
}

// What two threads would do at once, in the one order in which it hurts: the master that had the
// driver ends in the middle of another's start.
TEST_F(OwnDrivers, AMasterThatEndsLeavesTheDriverToTheOneThatStarts) {
    FakeClock::Set(20261120, 83000);
    IVelaZceMdApi* first = IVelaZceMdApi::CreateVelaZceMdApi();
    IVelaZceMdApi* const second = IVelaZceMdApi::CreateVelaZceMdApi();
    ASSERT_EQ(first->VelaStart(spi, "master.ini"), 0);
    drv->OnAccess([&](const DrvAccess& /*access*/) {
        if (first != nullptr) {
            IVelaZceMdApi::DestroyVelaZceMdApi(*std::exchange(first, nullptr));
        }
    });
    ASSERT_EQ(second->VelaStart(spi, "master.ini"), 0);
    EXPECT_EQ(first, nullptr);
    ASSERT_EQ(destroyed, 0);
    EXPECT_EQ(g_pProcessReg, drv);
    ExpectReceives(*second);
    IVelaZceMdApi::DestroyVelaZceMdApi(*second);
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(g_pProcessReg, nullptr);
}

// As the master before, in the middle of a start that is no master's: there is no master left then,
// and the driver waits for the next one.
TEST_F(OwnDrivers, AMasterThatEndsDuringAnotherChannelsStartLeavesTheDriverToTheProcess) {
    FakeClock::Set(20261120, 83000);
    IVelaZceMdApi* first = IVelaZceMdApi::CreateVelaZceMdApi();
    IVelaZceMdApi* const second = IVelaZceMdApi::CreateVelaZceMdApi();
    ASSERT_EQ(first->VelaStart(spi, "master.ini"), 0);
    FakeDrv* const before = drv;
    QueueDma::s_onInit = [&] {
        IVelaZceMdApi::DestroyVelaZceMdApi(*std::exchange(first, nullptr));
    };
    ASSERT_EQ(second->VelaStart(spi, "chan3.ini"), 0);
    QueueDma::s_onInit = nullptr;
    EXPECT_EQ(first, nullptr);
    EXPECT_EQ(destroyed, 0);
    ExpectReceives(*second);
    IVelaZceMdApi::DestroyVelaZceMdApi(*second);
    EXPECT_EQ(destroyed, 0);
    IVelaZceMdApi* const third = IVelaZceMdApi::CreateVelaZceMdApi();
    ASSERT_EQ(third->VelaStart(spi, "master.ini"), 0);
    EXPECT_EQ(drv, before);
    IVelaZceMdApi::DestroyVelaZceMdApi(*third);
    EXPECT_EQ(destroyed, 1);
}

}  // namespace
}  // namespace velatest
