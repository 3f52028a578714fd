#include "startBench.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "DataType/ContractServ.h"
#include "DataType/ZceConfigFile.h"
#include "DrvEnyx/drvCore.h"
#include "SignalProcess.h"
#include "Utils/clockSeam.h"
#include "VelaZceBinFile.h"
#include "fakeEnyx.h"
#include "log/elog.h"

ZceDmaChanTestPeer::Services::Services(const CZceDmaChanImpl& chan)
    : fpgaServ(chan.m_pFpgaServ), contractServ(chan.m_pContractServ), binFile(chan.m_pBinFile) {}

void ZceDmaChanTestPeer::Services::Free() const {
    delete contractServ;
    delete binFile;
    delete fpgaServ;
}

namespace velatest {

namespace {

constexpr unsigned int nameWords = 4;
constexpr std::size_t recordAreaLen = 12;  // where a map packet has the length of its records
constexpr std::size_t recordArea = 14;

bool& ExitForbidden() {
    static bool forbidden = false;
    return forbidden;
}

void PutBig16(std::vector<std::uint8_t>& bytes, std::size_t value) {
    bytes.push_back(static_cast<std::uint8_t>(value >> 8U));
    bytes.push_back(static_cast<std::uint8_t>(value));
}

}  // namespace

void MakeProcessNew() {
    Peer::SignalRegister() = 0;
    Peer::AllSubsOver() = 0;
    Peer::CallTimeExpired() = 0;
    Peer::LoadMapEnabled() = 1;
    Peer::FirstTmRead() = 0;
    Peer::FirstTm() = 0;
    CZceDmaChanImpl::g_uiContractSettleTm = 0;
    ResetedFlag::Get() = false;
    Vela2_U50::CZceConfigFile::m_SwitchReg = 0;
    CSignalProcess::m_isExit = 0;
    FakeEnyx::Reset();
    DrvEnyxVarClear();
}

void ForbidExit() {
    static const int registered = std::atexit([] {
        if (ExitForbidden()) {
            std::fputs("The code under test ended the process.\n", stderr);
            _exit(1);
        }
    });
    ASSERT_EQ(registered, 0);
    ExitForbidden() = true;
}

void AllowExit() {
    ExitForbidden() = false;
}

unsigned int LocalNow() {
    std::tm local{};
    VORBA2::Clock::LocalTime(VORBA2::Clock::WallSeconds(), local);
    return static_cast<unsigned int>(local.tm_hour * 10000 + local.tm_min * 100 + local.tm_sec);
}

std::string Shown(unsigned int hhmmss) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%02u:%02u:%02u", hhmmss / 10000 % 100,
                  hhmmss / 100 % 100, hhmmss % 100);
    return text.data();
}

std::vector<std::uint8_t> MapPacket(const Insts_t& insts) {
    std::vector<std::uint8_t> packet(recordAreaLen, 0);
    packet[0] = 2;
    PutBig16(packet, 0);
    for (const auto& [index, name] : insts) {
        const bool first = packet.size() == recordArea;
        PutBig16(packet, name.size() + (first ? 9 : 5));
        packet.resize(packet.size() + (first ? 5 : 1), 0x41);
        PutBig16(packet, index);
        packet.insert(packet.end(), name.begin(), name.end());
    }
    const std::size_t length = packet.size() - recordArea;
    packet[recordAreaLen] = static_cast<std::uint8_t>(length >> 8U);
    packet[recordAreaLen + 1] = static_cast<std::uint8_t>(length);
    return packet;
}

std::vector<std::uint8_t> MarketMessage(std::uint32_t type) {
    std::vector<std::uint8_t> message(16, 0);
    std::memcpy(message.data(), &type, sizeof(type));
    return message;
}

void CompactBoard::Clear() {
    for (Table* table : {&sgl, &cmb}) {
        std::fill(table->words.begin(), table->words.end(), 0);
        table->data = table->readAddr = 0;
        table->stores = table->storedAddr = table->reads = 0;
    }
    decode = mapTrans = tradeDate = resets = 0;
}

void CompactBoard::PutName(Table& table, unsigned int index, std::string_view name) {
    for (unsigned int part = 0; part < nameWords; ++part) {
        unsigned int word = 0;
        for (unsigned int at = part * 4; at < part * 4 + 4; ++at) {
            word = word << 8U | (at < name.size() ? static_cast<unsigned char>(name[at]) : 0U);
        }
        table.Word(index, nameWords - part) = word;
    }
}

unsigned int CompactBoard::ReadTable(Table& table) {
    ++table.reads;
    return table.readAddr < wordNum ? table.words[table.readAddr] : 0;
}

unsigned int CompactBoard::Read(unsigned long addr) {
    switch (addr) {
        case 0x11003:
            return ReadTable(sgl);
        case 0x12003:
            return ReadTable(cmb);
        case 0x11:
            return decode;
        case 0x103:
            return 0xF;
        case 0x104:
        case 0x105:
            return LocalNow();
        case 0x106:
            return tradeDate;
        default:
            break;
    }
    // The parse counters: any one that moves is enough.
    if (addr == 0x210d && counters == Counters::Moving) {
        ++m_counter;
    }
    return m_counter;
}

void CompactBoard::WriteOther(unsigned long addr, unsigned int value) {
    switch (addr) {
        case 0x11002:
            sgl.readAddr = value;
            break;
        case 0x12002:
            cmb.readAddr = value;
            break;
        case 0x10:
            if (value == 1) {
                ++resets;
                std::fill(sgl.words.begin(), sgl.words.end(), 0);
                std::fill(cmb.words.begin(), cmb.words.end(), 0);
                decode = 0;
                mapTrans = 0;
            }
            break;
        case 0x11:
            decode = value;
            break;
        case 0x12:
            mapTrans = value;
            break;
        case 0x106:
            tradeDate = value;
            break;
        default:
            ADD_FAILURE() << "write of " << value << " to register " << addr;
    }
}

namespace {

int Unexpected(const char* operation) {
    ADD_FAILURE() << operation << " in a start";
    return -1;
}

}  // namespace

int CompactDrv::ReadInt8(unsigned long /*addr*/, unsigned char& /*value*/) {
    return Unexpected("ReadInt8");
}
int CompactDrv::ReadInt16(unsigned long /*addr*/, unsigned short& /*value*/) {
    return Unexpected("ReadInt16");
}
int CompactDrv::ReadInt64(unsigned long /*addr*/, unsigned long& /*value*/) {
    return Unexpected("ReadInt64");
}
long CompactDrv::ReadLess128Bytes(unsigned long /*addr*/, unsigned char* /*dst*/,
                                  unsigned long /*len*/) {
    return Unexpected("ReadLess128Bytes");
}
long CompactDrv::ReadBytes(unsigned long /*addr*/, unsigned char* /*dst*/, unsigned long /*len*/) {
    return Unexpected("ReadBytes");
}
int CompactDrv::WriteInt8(unsigned long /*addr*/, unsigned char /*value*/) {
    return Unexpected("WriteInt8");
}
int CompactDrv::WriteInt16(unsigned long /*addr*/, unsigned short /*value*/) {
    return Unexpected("WriteInt16");
}
int CompactDrv::WriteInt64(unsigned long /*addr*/, unsigned long /*value*/) {
    return Unexpected("WriteInt64");
}
long CompactDrv::WriteLess128Bytes(unsigned long /*addr*/, unsigned char* /*src*/,
                                   unsigned long /*len*/) {
    return Unexpected("WriteLess128Bytes");
}
long CompactDrv::WriteBytes(unsigned long /*addr*/, unsigned char* /*src*/, unsigned long /*len*/) {
    return Unexpected("WriteBytes");
}

StartBench::StartBench(Log logging) {
    ForbidExit();
    // The process's logger is made here: it finds the capture's file open and keeps it.
    EXPECT_EQ(OpenApi(nullptr).LogInit(""), 0);
    log.Clear();
    elog_set_enabled(logging == Log::On);
    PutFile("test.ini", "[config]\ndevice=xilinx0:0\n");
}

StartBench::~StartBench() {
    Stop();
    FakeClock::OnSleep(nullptr);
    AllowExit();
}

void StartBench::Start(IDrv* drv) {
    Stop();
    MakeProcessNew();
    FakeClock::ClearSleeps();
    api = std::make_unique<OpenApi>(drv);
    ASSERT_EQ(api->VelaStart(spi, "test.ini"), 0);
    ASSERT_NE(api->m_pChan, nullptr);
}

void StartBench::Start() {
    Start(new CompactDrv(board));
}

int StartBench::Receive(std::vector<std::uint8_t> packet) {
    FakeEnyx::QueuePacket("CUSTOM_CHAN0_DATA", std::move(packet));
    return api->VelaRecv();
}

void StartBench::Stop() {
    if (api == nullptr) {
        return;
    }
    const Peer::Services services(Chan());
    const Vela2_U50::CZceConfigFile* cfg = api->m_pCfg;
    api.reset();
    services.Free();
    delete cfg;
}

}  // namespace velatest
