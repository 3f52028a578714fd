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
    // drv: the register driver, shared by all API objects of the process; null: VelaStart takes the
    // process's own.
    explicit CVelaZceMdApiImpl(IDrv* drv);
    ~CVelaZceMdApiImpl() override;

    CVelaZceMdApiImpl(const CVelaZceMdApiImpl&) = delete;
    CVelaZceMdApiImpl& operator=(const CVelaZceMdApiImpl&) = delete;

    int VelaRecvStart(IVelaZceMdSpi& spi, const char* cfgPath) override;
    int VelaStart(IVelaZceMdSpi& spi, const char* cfgPath) override;
    int VelaRecv() override;

    // The application's callback object; null before VelaStart. Read for every delivered message.
    IVelaZceMdSpi* GetSpi() const { return m_pSpi; }

    // Called by a channel-0 worker on its way out: destroys `drv`, unless another started master
    // still uses it. The factory and every API object that holds it forget it, so that the next
    // start makes a new one.
    static void ReleaseDriver(IDrv* drv);

  protected:
    // Loads the configuration and, on channel 0, starts the register driver. 0 or -1.
    int InitCfgInfo(const char* cfgPath);
    // Starts the log service once per process. 0 or -1; `cfgPath` is not used.
    int LogInit(const char* cfgPath);

    static unsigned char m_ChanReady;  // reserved

    CZceDmaChanImpl* m_pChan = nullptr;           // owned; null until VelaStart has succeeded
    IDrv* m_pDrv = nullptr;                       // not owned; null once it was released
    Vela2_U50::CZceConfigFile* m_pCfg = nullptr;  // lives as long as the process
    IVelaZceMdSpi* m_pSpi = nullptr;              // the application's

  private:
    friend class IVelaZceMdApi;

    // The register driver of the process, made if there is none.
    static IDrv* TakeDriver();
    void DropWorker();
    [[gnu::cold, gnu::noinline]] static int RecvNotStarted();
};
