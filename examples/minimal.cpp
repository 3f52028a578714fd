// The smallest application: start, receive until Ctrl-C, destroy.
#include <cstdio>

#include "IVelaZceMdApi.h"

namespace {

// The callbacks run on the thread that polls; `body` is valid only during the call.
class CCounter final : public IVelaZceMdSpi {
  public:
    void OnDmaType17Msg(const unsigned char* /*body*/) override { ++m_ulCount; }
    void OnDmaType18Msg(const unsigned char* /*body*/) override { ++m_ulCount; }
    void OnDmaType19Msg(const unsigned char* /*body*/) override { ++m_ulCount; }
    void OnDmaType20Msg(const unsigned char* /*body*/) override { ++m_ulCount; }
    unsigned long m_ulCount = 0;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s CONFIG\n", argv[0]);
        return 2;
    }
    CCounter counter;
    IVelaZceMdApi* api = IVelaZceMdApi::CreateVelaZceMdApi();
    const int result = api->VelaRecvStart(counter, argv[1]);  // returns after SIGINT or SIGTERM
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);
    std::printf("%lu messages\n", counter.m_ulCount);
    return result == 0 ? 0 : 1;
}
