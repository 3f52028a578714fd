#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <span>
#include <string>

#include "DataType/ZceRegMap.h"

class IDrv;

namespace Vela2_U50 {

// The board's two instrument tables and the control registers around them: the one place that
// touches them. The master channel's worker has the only object of the process.
//
// Type 0 means the single-leg table, any other type the combination table. The results of all
// writes and of the table reads are ignored; a failed read counts as 0. Where an operation holds
// subscribe_mutex it says so; the lock is not recursive.
class CZceFpgaServ {
  public:
    using InstNames_t = std::map<std::uint16_t, std::string>;  // board index to name

    // mapInst: instrument name to board index; it must outlive this object. channel: the creating
    // worker's DMA channel.
    CZceFpgaServ(std::map<std::string, unsigned short>& mapInst, unsigned int channel);
    virtual ~CZceFpgaServ();
    CZceFpgaServ(const CZceFpgaServ&) = delete;
    CZceFpgaServ& operator=(const CZceFpgaServ&) = delete;

    // Must precede every other call. drv stays the caller's.
    void Init(IDrv* drv);

    // Writes today's local date to the board; without a local time it logs an ERROR line and leaves
    // the board's date as it is.
    void UpdateTimeStamp();
    // Reads the board's date and the local date (yyyymmdd) and compares them. Without a local time
    // sysDate is 0, and the dates are not equal.
    bool bDataEqual(unsigned int& fpgaDate, unsigned int& sysDate);
    // The time of day to rely on, hhmmss: inside trading time and with equal dates the board's, if
    // it is near the host's, else the host's. 0xFFFFFFFF, after an ERROR line, if the board's time
    // or the local time cannot be read.
    unsigned int GetRealTime();
    // Whether the board was reset in this process.
    bool bIsReseted() const { return m_bReseted; }
    // True if the board decodes and its parse counters have stood still for two seconds (which the
    // call takes).
    bool FpgaCounterEqual();

    // Let the board send instrument-map packets, or stop it.
    void FpgaStartTrans();
    void FpgaCloseTrans();
    // Switches the delivery of subscribed data on, for the feeds that the configuration wants.
    void StartDecode();

    // Resets the board and clears its tables; on the master channel only.
    void ResetFpga();
    // Clears all words of both tables. Holds subscribe_mutex.
    void ClearAllInstTable();
    // Clears the channel masks of both tables.
    void UnSubsAllInsts();

    // Record that `channel` receives an instrument, or a channel's whole selection (index to name).
    // The single record is made under subscribe_mutex.
    void StoreInstToGlob(std::uint8_t type, std::uint16_t index, std::string name,
                         unsigned int channel);
    void StoreInstsToGlob(const InstNames_t& sglInsts, const InstNames_t& cmbInsts,
                          unsigned int channel);
    // The same for as many channels as there are selections, from `first` on: all of them are put
    // together before the record is made.
    void StoreChannelsToGlob(std::span<const InstNames_t> sglInsts,
                             std::span<const InstNames_t> cmbInsts, unsigned int first);
    // Writes every recorded mask to the board and reads it back.
    void SubsFromGlobInsts();
    // Writes one mask.
    void SubsOneInst(std::uint8_t type, std::uint16_t index, std::uint16_t chanbit);
    // Whether the mask on the board has a bit in common with `shouldbe`. Holds subscribe_mutex.
    bool IsSubscribeOk(std::uint8_t type, std::uint16_t index, std::uint16_t shouldbe);
    // Checks every recorded mask; a failure is only logged.
    void ReadBackAllInst();

    // Packs a name into four words, the first character in the most significant byte of the first.
    // words: room for 4. A name of more than 16 characters is cut after one WARN line.
    void conToAscii(const char* name, unsigned int* words);
    // Writes mask and name of one entry. Holds subscribe_mutex.
    void SubsOneInstWithName(std::uint8_t type, std::string name, std::uint16_t index);
    void DebugLogAllInst();

    // Reads the names in both tables into the instrument map. Holds subscribe_mutex.
    void FetchAllInst();

    // Guards the board's tables, across all objects. Taken after CContractServ::order_mutex where
    // both are held.
    static std::mutex subscribe_mutex;

  protected:
    unsigned int m_uiChannel;
    IDrv* m_pDrv = nullptr;
    std::map<std::string, unsigned short>& m_mapInst;
    // What some channel subscribes, by board index: names and channel masks. They only grow.
    std::map<std::uint16_t, std::string> m_mapSglInsts;
    std::map<std::uint16_t, std::string> m_mapCmbInsts;
    std::map<std::uint16_t, std::uint16_t> m_mapSglChanBit;
    std::map<std::uint16_t, std::uint16_t> m_mapCmbChanBit;

    static bool m_bReseted;

  private:
    // The parse counters, read in the order of their registers.
    using Counters_t = std::array<unsigned int, ZCE_REG_PARSE_COUNTERS.size()>;

    Counters_t ReadCounters() const;
    unsigned int ReadReg(unsigned long addr) const;
    unsigned int ReadTableWord(const ZceTableRegs_t& regs, unsigned int addr) const;
    void WriteTableWord(const ZceTableRegs_t& regs, unsigned int addr, unsigned int value);
    void ClearTable(const ZceTableRegs_t& regs, unsigned int addrStep);
    bool ReadBoardTime(unsigned int& boardTime) const;
    std::string ReadName(const ZceTableRegs_t& regs, unsigned int index) const;
    static void StoreTable(std::span<const InstNames_t> selections, unsigned int first,
                           InstNames_t& names, std::map<std::uint16_t, std::uint16_t>& masks);
    void FetchEntry(const ZceTableRegs_t& regs, std::uint16_t index);
    void FetchTable(const ZceTableRegs_t& regs);
};

}  // namespace Vela2_U50
