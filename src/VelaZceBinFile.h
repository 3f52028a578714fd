#pragma once

#include <cstdio>
#include <map>
#include <string>
#include <string_view>

// The exchange's time (hhmmss) at which the call auction was found over. The worker sets it;
// CTernBinFile widens it to yyyymmddhhmmss when it writes the end of the cache file.
class CZceSettleTime {
  public:
    static unsigned long g_uiContractSettleTm;

  protected:
    CZceSettleTime() = default;
    ~CZceSettleTime() = default;
};

// The instrument cache file, "bin" in the working directory: what the call auction taught, for a
// program that starts later in the same session.
//
// Plain text, lines ended by "\n": "<index>,<name>" for each instrument, then
// "contract's_corresponding_time=<yyyymmddhhmmss>", then "bin_file_over_tag" with no line end. The
// Normal_ operations write it while the exchange's broadcast is learnt; the Intrade_ ones read it
// (or write it anew) in trading time. Used by one thread, the master worker's. Two processes in one
// directory share the file.
class CTernBinFile {
  public:
    // map: the process's instrument map, must outlive the object; channel: for messages.
    // Opens nothing.
    CTernBinFile(std::map<std::string, unsigned short>& map, unsigned int channel);
    virtual ~CTernBinFile();

    CTernBinFile(const CTernBinFile&) = delete;
    CTernBinFile& operator=(const CTernBinFile&) = delete;

    // Begins an empty file. Failure is logged; the operations below then write nothing.
    void Normal_FileInit();
    // Appends one instrument, to the disk at once; a line is cut at 127 bytes. 0, also when no file
    // is open; -1 if the line was not written. A write that fails is reported once and ends the
    // writing, so that a file with a hole in it never gets its end tag.
    int Normal_WriteInstToBin(std::string name, unsigned short index);
    // Widens CZceSettleTime::g_uiContractSettleTm to a full date and time and ends the file with
    // it. 0, also when no file is open (then only the time is widened); -1 if the write failed.
    int WriteEndToBin();

    // Writes the whole file anew from the instrument map. 0 or -1.
    int Intrade_WrInstFromFpga();
    // Loads the file into the instrument map if it is complete and of the session that is running.
    // 0, or -1 with the reason logged. Closes the file either way.
    int Intrade_CheckAndGetAllInstFromBin();

    // Opens a file of another name, for the steps below: 0, or -1 with errno set. For programs that
    // look at a file of any place and day.
    int Intrade_OpenFile(const char* path);
    // The steps of Intrade_CheckAndGetAllInstFromBin, on the open file: whether the end tag is
    // there; the creation time (0, or -1 if there is none); whether that time is of this session (0
    // or -1); the loading itself (0, or -1 if the file cannot be read).
    bool Intrade_IsBinComplete();
    int Intrade_ExtractBinCreTime();
    int Intrade_ChkBinTimeValidate();
    int Intrade_GetAllInstFromBin();

  private:
    bool OpenFile(const char* mode);
    bool OpenForWriting();
    void CloseFile();
    bool Put(std::string_view text);
    bool PutTime(unsigned long time);
    bool Flush();
    int FailWriting();
    int CheckAndLoad();
    bool FindLine(std::string_view prefix, std::string& text);

    std::map<std::string, unsigned short>& m_mapInst;
    unsigned long m_ulCreTime = 0;  // yyyymmddhhmmss, read from the file
    std::FILE* m_fp = nullptr;      // null while no file is open
    unsigned int m_uiChannel;
};
