#pragma once

#include <iniparser.h>

#include <string>

#include "DataType/ZceChannel.h"
#include "DataType/ZceSubsInfo.h"

class CVelaZceMdApiImpl;
class IDrv;

namespace Vela2_U50 {

// config:cpucore of a loaded file (null: of none); ZCE_NO_CPU_CORE if no CPU is asked for.
constexpr int ZCE_NO_CPU_CORE = -1;
int ZceCpuCoreOf(const dictionary* loaded);

struct ZceNetGroup_t;

// The INI file of a receiving process, and what it says for the process's DMA channel.
//
// Used by the one thread that starts the API; nothing locks. Every operation may be called on an
// object whose file could not be loaded: each key then counts as absent.
class CZceConfigFile {
  public:
    // path: the INI file. drv and api stay the caller's; they must outlive this object. No file and
    // no register is touched.
    CZceConfigFile(std::string path, IDrv* drv, CVelaZceMdApiImpl* api);
    // Frees what was loaded.
    ~CZceConfigFile();
    CZceConfigFile(const CZceConfigFile&) = delete;
    CZceConfigFile& operator=(const CZceConfigFile&) = delete;

    // Loads the file and settles the channel. Returns 0, or -1 after an ERROR line.
    int Init();

    // The process's DMA channel number (0 to 15), parsed from config:device at the first successful
    // call; 0xFFFFFFFF, after a line on standard output, if the value is bad. A rejected value
    // whose channel number could be parsed is nevertheless returned by later calls. Deliberate.
    unsigned int GetDmaChannel();
    // The bus number of config:device, parsed again at every call, in lower case only; if that
    // fails, an ERROR line and the number parsed before (0 at the start).
    unsigned int GetBusId();
    // The name of the channel's DMA stream; empty until GetDmaChannel has succeeded.
    const std::string& GetDmaChanName() const { return m_strDmaChanName; }
    // True on channel 0, the one that sets the board up.
    bool bIsMasterChannel() const { return m_uiChannel == ZCE_MASTER_CHANNEL; }
    // The rules of the 16 channels; they live as long as this object. The reference turns into a
    // pointer to the first of them where one is wanted.
    ZceSubsInfoArray_t& getArrayReference() { return m_arrSubsInfo; }

    // Binds the calling thread to config:cpucore; a failure is only logged.
    void BindCpu();
    // Logs the library's version.
    void ShowVersion();
    // Reads the two feed switches into m_SwitchReg; no register is written.
    void DumpDevInfo();

    // Logs the state of the board's fibres.
    void PrintSwitchStatus();
    // Programs the addresses of both feeds; a feed with a full set is let in.
    void CfgNetReg();

    // Reads the rules of all channels. Returns 0, or -1 if a channel with instruments lacks its
    // options key: the channels before it stay filled, those after it untouched. A second call
    // appends the same items again. Deliberate.
    int ParseSubsInst();
    // Splits one list of instruments and classes into the rules of `channel` (0 to 15).
    void ParseRawInsts(std::string raw, unsigned int channel);

    // Feed switch word: bit 1 level-1 feed (L1) on, bit 0 level-2 feed (L5) on.
    static unsigned int m_SwitchReg;
    // Nothing sets it.
    static std::string m_ini_path;

  private:
    // The value of `key`, or null if it is absent; valid until the object's destruction.
    const char* GetString(const std::string& key) const;
    int GetInt(const char* key, int absent) const;
    unsigned int CfgNetGroup(const ZceNetGroup_t& group);
    void ParseInsts(const char* insts, unsigned int channel);

    unsigned int m_uiChannel = ZCE_CHANNEL_UNKNOWN;
    std::string m_strPath;
    IDrv* m_pDrv;
    dictionary* m_pDict = nullptr;
    unsigned int m_uiBusId = 0;
    CVelaZceMdApiImpl* m_pApi;
    std::string m_strDmaChanName;
    ZceSubsInfoArray_t m_arrSubsInfo;
};

}  // namespace Vela2_U50
