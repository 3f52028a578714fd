#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "DataType/ZceChannel.h"
#include "DataType/ZceSubsInfo.h"

class CTernBinFile;

namespace Vela2_U50 {

class CZceConfigFile;
class CZceFpgaServ;

// Which channel receives which instrument, and the rebuilding of the instrument list after a start
// inside trading time. The master channel's worker has the only object of the process and is the
// only thread in it.
class CContractServ {
  public:
    // Nothing is owned; everything must outlive this object. mapInst: instrument name to board
    // index. subsInfo: the rules of the 16 channels.
    CContractServ(std::map<std::string, unsigned short>& mapInst, CZceConfigFile* cfg,
                  CTernBinFile* binFile, CZceFpgaServ* fpgaServ, unsigned int channel,
                  ZceSubsInfoArray_t& subsInfo);
    virtual ~CContractServ();
    CContractServ(const CContractServ&) = delete;
    CContractServ& operator=(const CContractServ&) = delete;

    // The whole selection for all channels: rules, lack report, filter, record. Holds order_mutex.
    // Returns the result of StoreAllSubsInstToFpga.
    int FilterAndStoreToGlobMap();
    // Fills the selections of all channels; a second call adds to them. Deliberate.
    void JudgeAndFilterSubsInst();
    // Hands every channel's selection to the table service. Returns true.
    bool StoreAllSubsInstToFpga();
    // Whether an option (by its name) is selected on a channel.
    bool OptionIsMeetCondition(std::string name, unsigned int channel);
    // Whether an id, or a class, stands in a channel's rules, letter by letter.
    bool bOrderedId(const std::string& id, unsigned int channel);
    bool bOrderedClass(const std::string& cls, unsigned int channel);

    // Rebuilds the instrument list, from the cache file or from the board; waits up to 20 minutes
    // for a board that has been reset. Returns 0.
    int RecoverAllInst();
    // Returns 0, or -1 if the cache file cannot supply the list.
    int RecoverInstsFromBin();
    // Returns true.
    bool RecoverInstsFromFpga();
    // Minutes to wait before the board's tables are read.
    unsigned int GetExpireTime();
    // Whether the list has every id of the channel's rules; those it lacks go to m_vecLackIds.
    bool Id_chkPresent(unsigned int channel);
    // Names the ids that the list lacks, per channel. Returns false if the list is empty.
    bool DumpLackId();

    // Serialises whole selections, across all objects; taken before CZceFpgaServ::subscribe_mutex.
    static std::mutex order_mutex;

  protected:
    unsigned int m_uiChannel;
    // What each channel selected: board index to name.
    std::map<std::uint16_t, std::string> m_mapSglSubs[ZCE_CHANNEL_NUM];
    std::map<std::uint16_t, std::string> m_mapCmbSubs[ZCE_CHANNEL_NUM];
    std::map<std::string, unsigned short>& m_mapInst;
    CZceFpgaServ* m_pFpgaServ;
    CTernBinFile* m_pBinFile;
    CZceConfigFile* m_pCfg;
    std::vector<std::string> m_vecLackIds;
    ZceSubsInfoArray_t& m_pSubsInfo;

  private:
    void WaitForFpga(unsigned int minutes);
};

}  // namespace Vela2_U50
