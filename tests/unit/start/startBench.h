#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "DataType/ZceFpgaServ.h"
#include "DrvEnyx/IDrv.h"
#include "DrvEnyx/drvEnyx.h"
#include "IVelaZceMdApi.h"
#include "VelaZceMdApiImpl.h"
#include "VelaZceUpdmaImpl.h"
#include "fakeClock.h"
#include "logCapture.h"
#include "tempDir.h"
#include "wholeFile.h"

// What is inside a worker, and the flags of the process.
struct ZceDmaChanTestPeer {
    static std::map<std::string, unsigned short>& Insts(CZceDmaChanImpl& chan) {
        return chan.m_mapInst;
    }
    // Frees the services that a worker leaves to the process; the worker itself must be gone.
    struct Services {
        explicit Services(const CZceDmaChanImpl& chan);
        void Free() const;
        Vela2_U50::CZceFpgaServ* fpgaServ;
        Vela2_U50::CContractServ* contractServ;
        CTernBinFile* binFile;
    };
    static std::atomic<unsigned char>& SignalRegister() {
        return CZceDmaChanImpl::m_bSignalRegister;
    }
    static unsigned char& AllSubsOver() { return CZceDmaChanImpl::s_bAllSubsOver; }
    static unsigned char& CallTimeExpired() { return CZceDmaChanImpl::s_bCallTimeExpired; }
    static unsigned char& LoadMapEnabled() { return CZceDmaChanImpl::s_bLoadMapEnabled; }
    static unsigned char& FirstTmRead() { return CZceDmaChanImpl::s_bFirstTmRead; }
    static unsigned int& FirstTm() { return CZceDmaChanImpl::s_uiFirstTm; }
};

namespace velatest {

using Peer = ZceDmaChanTestPeer;
using Lines_t = std::vector<std::string>;

// The process-wide flag that says that the board was reset.
struct ResetedFlag : Vela2_U50::CZceFpgaServ {
    static bool& Get() { return m_bReseted; }
};

// What the loader gives the process: every flag that outlives a start at its first value.
void MakeProcessNew();

// Ends the process with a failure if the code under test ends it with its status 0, which would
// look like a passed test.
void ForbidExit();
void AllowExit();

// Seconds of the day and hhmmss.
constexpr unsigned int SecondsOf(unsigned int hhmmss) {
    return hhmmss / 10000 * 3600 + hhmmss / 100 % 100 * 60 + hhmmss % 100;
}
constexpr unsigned int TimeOf(unsigned int seconds) {
    return seconds / 3600 % 24 * 10000 + seconds / 60 % 60 * 100 + seconds % 60;
}
// hhmmss of the fake clock's present second.
unsigned int LocalNow();

// "08:59:57".
std::string Shown(unsigned int hhmmss);

using Insts_t = std::vector<std::pair<unsigned short, std::string>>;
// An instrument-map packet with these records.
std::vector<std::uint8_t> MapPacket(const Insts_t& insts);
// A message of 12 bytes of head and a body of 4.
std::vector<std::uint8_t> MarketMessage(std::uint32_t type);

// Takes every callback and counts them.
class CountingSpi : public IVelaZceMdSpi {
  public:
    void OnDmaType17Msg(const unsigned char* /*body*/) override { ++calls; }
    void OnDmaType18Msg(const unsigned char* /*body*/) override { ++calls; }
    void OnDmaType19Msg(const unsigned char* /*body*/) override { ++calls; }
    void OnDmaType20Msg(const unsigned char* /*body*/) override { ++calls; }

    int calls = 0;
};

// The API object with its inside open.
class OpenApi : public CVelaZceMdApiImpl {
  public:
    explicit OpenApi(IDrv* drv) : CVelaZceMdApiImpl(drv) {}
    using CVelaZceMdApiImpl::LogInit;
    using CVelaZceMdApiImpl::m_pCfg;
    using CVelaZceMdApiImpl::m_pChan;
    using CVelaZceMdApiImpl::m_pDrv;
    using CVelaZceMdApiImpl::m_pSpi;
};

// A board in memory that outlives the drivers to it, counts instead of recording, and whose clock
// is the host's. Cheap enough for a start that writes two million registers in a few milliseconds.
class CompactBoard {
  public:
    enum class Counters { Moving, Standing };
    static constexpr unsigned int entryWords = 64;
    static constexpr unsigned int wordNum = 4096 * entryWords;

    struct Table {
        std::vector<unsigned int> words = std::vector<unsigned int>(wordNum, 0);
        unsigned int data = 0;
        unsigned int readAddr = 0;
        unsigned long stores = 0;      // words written
        unsigned long storedAddr = 0;  // sum of their addresses
        unsigned long reads = 0;       // words read

        unsigned int& Word(std::size_t entry, std::size_t word) {
            return words.at(entry * entryWords + word);
        }
        unsigned int& Mask(std::size_t entry) { return Word(entry, 0); }
    };

    // Everything as after power-on, with all fibres.
    void Clear();
    // The name as the board writes it, 16 characters at most.
    static void PutName(Table& table, unsigned int index, std::string_view name);

    unsigned int Read(unsigned long addr);
    void Write(unsigned long addr, unsigned int value) {
        switch (addr) {
            case 0x11001:
                sgl.data = value;
                break;
            case 0x11000:
                Store(sgl, value);
                break;
            case 0x12001:
                cmb.data = value;
                break;
            case 0x12000:
                Store(cmb, value);
                break;
            default:
                WriteOther(addr, value);
        }
    }

    Table sgl;
    Table cmb;
    Counters counters = Counters::Standing;
    unsigned int decode = 0;     // 0x11
    unsigned int mapTrans = 0;   // 0x12
    unsigned int tradeDate = 0;  // 0x106
    unsigned int resets = 0;     // times that 0x10 went to 1

  private:
    static void Store(Table& table, unsigned int addr) {
        if (addr < wordNum) {
            table.words[addr] = table.data;
        }
        ++table.stores;
        table.storedAddr += addr;
    }
    static unsigned int ReadTable(Table& table);
    void WriteOther(unsigned long addr, unsigned int value);

    unsigned int m_counter = 0;
};

// A driver to a CompactBoard. Its Init is that of the library's own driver on the fake of the
// vendor's calls, so that the start takes the time that it takes.
class CompactDrv final : public IDrv {
  public:
    explicit CompactDrv(CompactBoard& board) : m_board(board) {}

    int Init(void* param) override { return m_reg.Init(param); }
    int ReadInt32(unsigned long addr, unsigned int& value) override {
        value = m_board.Read(addr);
        return 0;
    }
    int WriteInt32(unsigned long addr, unsigned int value) override {
        m_board.Write(addr, value);
        return 0;
    }
    int WriteInt32_Log(unsigned long addr, unsigned int value) override {
        m_board.Write(addr, value);
        return 0;
    }
    int WriteInt32_LogWithRead(unsigned long addr, unsigned int value) override {
        m_board.Write(addr, value);
        return 0;
    }

    // No start uses these.
    int ReadInt8(unsigned long addr, unsigned char& value) override;
    int ReadInt16(unsigned long addr, unsigned short& value) override;
    int ReadInt64(unsigned long addr, unsigned long& value) override;
    long ReadLess128Bytes(unsigned long addr, unsigned char* dst, unsigned long len) override;
    long ReadBytes(unsigned long addr, unsigned char* dst, unsigned long len) override;
    int WriteInt8(unsigned long addr, unsigned char value) override;
    int WriteInt16(unsigned long addr, unsigned short value) override;
    int WriteInt64(unsigned long addr, unsigned long value) override;
    long WriteLess128Bytes(unsigned long addr, unsigned char* src, unsigned long len) override;
    long WriteBytes(unsigned long addr, unsigned char* src, unsigned long len) override;

  private:
    CompactBoard& m_board;
    CDrvEnyxReg m_reg;
};

// Starts of the API, one after the other, each in a process as new. The working directory is one
// of its own.
class StartBench {
  public:
    enum class Log { On, Off };
    explicit StartBench(Log log = Log::Off);
    ~StartBench();
    StartBench(const StartBench&) = delete;
    StartBench& operator=(const StartBench&) = delete;

    // VelaStart of a new API object with the file "test.ini"; the driver becomes the library's (a
    // master frees it).
    void Start(IDrv* drv);
    // VelaStart on a new driver to `board`.
    void Start();
    // The packet arrives and is polled; the result of VelaRecv.
    int Receive(std::vector<std::uint8_t> packet);
    // Destroys the API object and all that it leaves behind.
    void Stop();
    CZceDmaChanImpl& Chan() { return *api->m_pChan; }
    const std::map<std::string, unsigned short>& Insts() { return Peer::Insts(Chan()); }

    TempDir dir{TempDir::Enter::yes};
    LogCapture log;
    CompactBoard board;
    CountingSpi spi;
    std::unique_ptr<OpenApi> api;
};

}  // namespace velatest
