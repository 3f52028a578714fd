#pragma once

#include "IVelaZceMdApi.h"
#include "SignalProcess.h"

class CZceDmaChanImpl;
class IDrv;
namespace Vela2_U50 {
class CZceConfigFile;
}

// The one implementation of IVelaZceMdApi. Not final: VelaRecvStart goes through the virtual table,
// so that a derived class may put its own start or poll in.
class CVelaZceMdApiImpl : public IVelaZceMdApi, public CSignalProcess {
  public:
    // drv: the register driver, shared by all API objects of the process, and not to be released
    // while this object is made; null: VelaStart takes the process's own.
    explicit CVelaZceMdApiImpl(IDrv* drv);
    ~CVelaZceMdApiImpl() override;

    CVelaZceMdApiImpl(const CVelaZceMdApiImpl&) = delete;
    CVelaZceMdApiImpl& operator=(const CVelaZceMdApiImpl&) = delete;

    int VelaRecvStart(IVelaZceMdSpi& spi, const char* cfgPath) override;
    int VelaStart(IVelaZceMdSpi& spi, const char* cfgPath) override;
    int VelaRecv() override;

    // The application's callback object; null before VelaStart. Read for every delivered message.
    IVelaZceMdSpi* GetSpi() const { return m_pSpi; }

    // The worker of channel 0 uses `drv` from HoldDriver on until ReleaseDriver, which it calls on
    // its way out: that destroys `drv`, unless another master still uses it or an object is being
    // started on it. The factory and every API object that holds it forget it, so that the next
    // start makes a new one. Any thread.
    static void HoldDriver(const IDrv* drv);
    static void ReleaseDriver(IDrv* drv);

  protected:
    // Loads the configuration and, on channel 0, starts the register driver. 0 or -1.
    int InitCfgInfo(const char* cfgPath);
    // Starts the log service once per process. 0 or -1; `cfgPath` is not used.
    int LogInit(const char* cfgPath);

    static unsigned char m_ChanReady;  // reserved

    CZceDmaChanImpl* m_pChan = nullptr;           // owned; null until VelaStart has succeeded
    IDrv* m_pDrv = nullptr;                       // not owned; a release by others makes it null
    Vela2_U50::CZceConfigFile* m_pCfg = nullptr;  // lives as long as the process
    IVelaZceMdSpi* m_pSpi = nullptr;              // the application's

  private:
    friend class IVelaZceMdApi;

    // m_pDrv for the time of a start, the process's driver if it is null: nobody destroys it before
    // EndStart.
    const IDrv* BeginStart();
    static void EndStart(const IDrv* drv);
    void DropWorker();
    [[gnu::cold, gnu::noinline]] static int RecvNotStarted();
};
