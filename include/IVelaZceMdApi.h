#pragma once

#include "VelaZceExport.h"

/// @file
/// Market data of the Zhengzhou Commodity Exchange as the FPGA board decodes it.
///
/// The order of the calls: CreateVelaZceMdApi; then either VelaRecvStart, which comes back
/// only after SIGINT or SIGTERM, or VelaStart once and VelaRecv again and again until it returns
/// -1; then DestroyVelaZceMdApi. One thread does the starting and the receiving: the library has no
/// thread of its own.

/// What the application implements: one operation for each kind of market-data message.
///
/// Each is called from inside VelaRecv (so on the thread that polls), before VelaRecv returns. It
/// should be quick: the next message waits for it. It must not throw (the board vendor's C library
/// stands between it and VelaRecv), and must not destroy, start or poll the API object. `body`
/// points at byte 12 of the board's message, in the receive buffer itself; it is valid during the
/// call alone, so what is to be kept must be copied. The layout of the four bodies is the board's
/// and the application's; the library neither reads nor checks it.
///
/// The order of the four is part of the binary interface (slots 0 to 3 of the table).
class IVelaZceMdSpi {
  public:
    /// A message of type 17. @param body its byte 12, valid during the call
    virtual void OnDmaType17Msg(const unsigned char* body) = 0;
    /// A message of type 18. @param body its byte 12, valid during the call
    virtual void OnDmaType18Msg(const unsigned char* body) = 0;
    /// A message of type 19. @param body its byte 12, valid during the call
    virtual void OnDmaType19Msg(const unsigned char* body) = 0;
    /// A message of type 20. @param body its byte 12, valid during the call
    virtual void OnDmaType20Msg(const unsigned char* body) = 0;

  protected:
    /// The library never destroys an application's object; not virtual, so that the table holds the
    /// four operations and nothing else.
    ~IVelaZceMdSpi() = default;
};

/// One channel of the board. The order of the virtual operations is part of the binary interface.
class VELA_ZCE_API IVelaZceMdApi {
  public:
    /// Starts, and then receives on the calling thread without sleeping (it takes a whole CPU).
    ///
    /// @param spi the application's object; must live until the API object is destroyed
    /// @param cfgPath path of the INI file
    /// @return 0 after SIGINT or SIGTERM ended the reception, -1 if the log service cannot start.
    /// Every other failure of the start is logged and ends the process with exit(0).
    virtual int VelaRecvStart(IVelaZceMdSpi& spi, const char* cfgPath) = 0;

    /// Starts without receiving: log service, configuration, board, DMA stream. Arguments and
    /// failures as for VelaRecvStart; returns 0 once VelaRecv may be called. Outside trading time
    /// it takes seconds (the board may be reset), inside trading time up to 20 minutes (the board
    /// may have to gather the instrument list first). On an object that is started already the
    /// earlier start is undone first.
    virtual int VelaStart(IVelaZceMdSpi& spi, const char* cfgPath) = 0;

    /// Polls the board once and delivers what is there. Never to be called by two threads at once.
    /// Returns 1 if a callback was made, 0 if not, -1 once SIGINT or SIGTERM has been received (the
    /// board is then not touched any more) or when the object is not started.
    virtual int VelaRecv() = 0;

    /// Use DestroyVelaZceMdApi.
    virtual ~IVelaZceMdApi();

    /// Makes an object; touches no hardware. Several objects may live in one process, each for a
    /// channel of its own. Null, after a line in the log if its service is up, if there is no
    /// memory for it.
    static IVelaZceMdApi* CreateVelaZceMdApi();

    /// Destroys an object that CreateVelaZceMdApi made, closing its DMA stream; does nothing with
    /// any other. Not to be called while another thread polls the object, starts one or destroys
    /// one.
    static void DestroyVelaZceMdApi(IVelaZceMdApi& api);

    /// Not copied: an object holds its stream.
    IVelaZceMdApi(const IVelaZceMdApi&) = delete;
    /// Not assigned, either.
    IVelaZceMdApi& operator=(const IVelaZceMdApi&) = delete;

  protected:
    /// The factory's.
    IVelaZceMdApi() = default;
};
