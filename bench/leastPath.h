#pragma once

#include <atomic>
#include <cstdint>

#include "DrvEnyx/enyxHw.h"
#include "IVelaZceMdApi.h"

// What a poll with callbacks by type has to do, and nothing else, written by hand for one stream:
// no driver that could be another one's, no layers, no start-up. The measure for what is left in
// the library's own way.
namespace velabench {

class IPolled {
  public:
    virtual ~IPolled() = default;
    virtual int Recv() = 0;
};

class CLeastPath final : public IPolled {
  public:
    CLeastPath(enyx_hw_a2c_stream* stream, IVelaZceMdSpi& spi) : m_stream(stream), m_spi(&spi) {}
    // 1 if a callback was made, else 0; -1 once the process is to end.
    int Recv() override;

    static std::atomic<bool> m_bExit;

  private:
    static void OnMessage(const unsigned char* data, unsigned int size, void* context);

    int m_iDelivered = 0;
    enyx_hw_a2c_stream* m_stream;
    IVelaZceMdSpi* m_spi;
};

}  // namespace velabench
