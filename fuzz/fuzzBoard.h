#pragma once

#include <array>
#include <map>
#include <string>

#include "DataType/ContractServ.h"
#include "DataType/ZceConfigFile.h"
#include "DataType/ZceFpgaServ.h"
#include "DrvEnyx/IDrv.h"
#include "IVelaZceMdApi.h"
#include "VelaZceBinFile.h"
#include "VelaZceMdApiImpl.h"
#include "VelaZceUpdmaImpl.h"

// The worker's services and the flags of the process.
struct ZceDmaChanTestPeer {
    static std::map<std::string, unsigned short>& Insts(CZceDmaChanImpl& chan) {
        return chan.m_mapInst;
    }
    static void SetServices(CZceDmaChanImpl& chan, Vela2_U50::CZceFpgaServ* fpgaServ,
                            Vela2_U50::CContractServ* contractServ, CTernBinFile* binFile) {
        chan.m_pFpgaServ = fpgaServ;
        chan.m_pContractServ = contractServ;
        chan.m_pBinFile = binFile;
    }
    static void FreeServices(CZceDmaChanImpl& chan);
    static unsigned int GotData(CZceDmaChanImpl& chan) { return chan.m_bGotData; }
    static bool IsCallTimeExpired() { return CZceDmaChanImpl::s_bCallTimeExpired != 0; }
    // The first value of every flag, but that the signals are the fuzzer's already.
    static void MakeProcessNew();
};

namespace velafuzz {

using Peer = ZceDmaChanTestPeer;

// Day and time of the inputs; the board and the host have the same clock.
constexpr unsigned int DATE = 20261120;
// One of the times at which a start, a packet or a cache file means something else.
unsigned int TimeOf(unsigned char choice);

// The registers of a board, of its tables the masks alone.
class CFuzzBoard {
  public:
    unsigned int Read(unsigned long addr);
    void Write(unsigned long addr, unsigned int value);
    // Today's date, all fibres, decoding nothing.
    void Clear();
    unsigned int Reg(unsigned long addr) { return m_registers[addr]; }

  private:
    std::map<unsigned long, unsigned int> m_registers;
    std::array<std::array<unsigned int, 4096>, 2> m_masks{};
    std::array<unsigned int, 2> m_data{};
    std::array<unsigned int, 2> m_readAddr{};
};

// A driver to it; what no start uses fails.
class CFuzzDrv final : public IDrv {
  public:
    explicit CFuzzDrv(CFuzzBoard& board) : m_board(board) {}

    int Init(void* /*param*/) override { return 0; }
    int ReadInt32(unsigned long addr, unsigned int& value) override;
    int WriteInt32(unsigned long addr, unsigned int value) override;
    int WriteInt32_Log(unsigned long addr, unsigned int value) override;
    int WriteInt32_LogWithRead(unsigned long addr, unsigned int value) override;

    int ReadInt8(unsigned long, unsigned char&) override { return -1; }
    int ReadInt16(unsigned long, unsigned short&) override { return -1; }
    int ReadInt64(unsigned long, unsigned long&) override { return -1; }
    long ReadLess128Bytes(unsigned long, unsigned char*, unsigned long) override { return -1; }
    long ReadBytes(unsigned long, unsigned char*, unsigned long) override { return -1; }
    int WriteInt8(unsigned long, unsigned char) override { return -1; }
    int WriteInt16(unsigned long, unsigned short) override { return -1; }
    int WriteInt64(unsigned long, unsigned long) override { return -1; }
    long WriteLess128Bytes(unsigned long, unsigned char*, unsigned long) override { return -1; }
    long WriteBytes(unsigned long, unsigned char*, unsigned long) override { return -1; }

  private:
    CFuzzBoard& m_board;
};

// The API object, without a start.
class CFuzzApi : public CVelaZceMdApiImpl {
  public:
    CFuzzApi(IDrv* drv, IVelaZceMdSpi* spi) : CVelaZceMdApiImpl(drv) { m_pSpi = spi; }
};

// Counts the callbacks and keeps the last one's body.
class CCountingSpi final : public IVelaZceMdSpi {
  public:
    void OnDmaType17Msg(const unsigned char* body) override { Count(17, body); }
    void OnDmaType18Msg(const unsigned char* body) override { Count(18, body); }
    void OnDmaType19Msg(const unsigned char* body) override { Count(19, body); }
    void OnDmaType20Msg(const unsigned char* body) override { Count(20, body); }

    unsigned int m_calls = 0;
    unsigned int m_type = 0;
    const unsigned char* m_body = nullptr;

  private:
    void Count(unsigned int type, const unsigned char* body) {
        ++m_calls;
        m_type = type;
        m_body = body;
    }
};

// A master's worker that has been started outside trading time, made anew for each input: what it
// has learnt goes with it. Its start on the board is left out, which is 98,304 register writes.
class CLearningMaster {
  public:
    CLearningMaster();

    CFuzzBoard m_board;
    CFuzzDrv m_drv{m_board};
    CCountingSpi m_spi;
    CFuzzApi m_api{&m_drv, &m_spi};
    Vela2_U50::CZceConfigFile& m_config;
    CZceDmaChanImpl m_chan;
    Vela2_U50::CZceFpgaServ m_fpgaServ;
    CTernBinFile m_binFile;
    Vela2_U50::CContractServ m_contractServ;
};

// Once a process, by the first input: standard output silenced, a working directory of its own, and
// the library's log on, as an application has it, with standard output as its only place.
void PrepareLibrary();

}  // namespace velafuzz
