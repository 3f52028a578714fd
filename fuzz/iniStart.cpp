// Any bytes as the INI file of a process, from the loading to the end of the start-up on a board of
// today: the first byte says whether the start is outside trading time, with a broadcast learnt and
// subscribed, or inside, with the list from the cache file.

#include <iniparser.h>

#include <memory>

#include "fakeClock.h"
#include "fuzzBoard.h"
#include "fuzzHost.h"
#include "fuzzInput.h"

namespace {

using namespace velafuzz;

constexpr unsigned char OUTSIDE = 0;  // 08:30:00
constexpr unsigned char AUCTION_OVER = 2;
constexpr unsigned char INSIDE = 7;

constexpr const char* CACHE_FILE =
    "1,SR209\n2,SR209C5000\n3,CF301\n4,SPD SR209&SR301\n5,IPS CF301&TA301\n"
    "contract's_corresponding_time=20261120085510\nbin_file_over_tag";

// A packet of one instrument.
const std::string PACKET("\2\0\0\0\0\0\0\0\0\0\0\0\0\17\0\16\0\0\0\0a\0\1SR209", 28);

int Silent(const char* /*format*/, ...) {
    return 0;
}

void Receive(CZceDmaChanImpl& chan) {
    const CExactBlock block(PACKET);
    CZceDmaChanImpl::DmaEntrance(block.Data(), block.Size(), &chan);
}

void Start(CFuzzBoard& board, Vela2_U50::CZceConfigFile& config, CFuzzApi& api, IDrv* drv,
           bool bInside) {
    Vela2_U50::ZceDmaInitParms_t parms{config.GetBusId(), 474, config.GetDmaChanName()};
    FUZZ_CHECK(parms.busId < 5);
    // A master takes the driver along when it goes.
    CZceDmaChanImpl chan(drv, &api, &config);
    FUZZ_CHECK(chan.Init(&parms) == 0);
    FUZZ_CHECK(chan.Work(&parms) == 0);
    if (config.bIsMasterChannel() && !bInside) {
        Receive(chan);  // reads the board's clock
        TimeOf(AUCTION_OVER);
        Receive(chan);  // finds the call auction over
        FUZZ_CHECK(Peer::IsCallTimeExpired());
        Receive(chan);  // selects and subscribes
    }
    if (config.bIsMasterChannel()) {
        FUZZ_CHECK(board.Reg(0x11) == Vela2_U50::CZceConfigFile::m_SwitchReg);
        FUZZ_CHECK(board.Reg(0x12) == 0);
        FUZZ_CHECK(board.Reg(0x106) == DATE);
    }
    Peer::FreeServices(chan);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    PrepareLibrary();
    iniparser_set_error_callback(&Silent);
    static auto& board = *new CFuzzBoard;
    CFuzzInput input(data, size);
    const bool bInside = input.Take<unsigned char>() % 2 != 0;
    TimeOf(bInside ? INSIDE : OUTSIDE);
    Peer::MakeProcessNew();
    board.Clear();
    WriteFile("bin", CACHE_FILE);
    WriteFile("start.ini", input.Rest());

    auto drv = std::make_unique<CFuzzDrv>(board);
    CCountingSpi spi;
    CFuzzApi api(drv.get(), &spi);
    Vela2_U50::CZceConfigFile config("start.ini", drv.get(), &api);
    if (config.Init() != 0) {
        return 0;
    }
    FUZZ_CHECK(config.GetDmaChannel() < 16);
    IDrv* const pDrv = config.bIsMasterChannel() ? drv.release() : drv.get();
    Start(board, config, api, pDrv, bInside);
    return 0;
}
