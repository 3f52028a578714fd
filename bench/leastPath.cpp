#include "leastPath.h"

#include <cstdlib>
#include <cstring>

#include "ZceBoardMsg.h"

namespace velabench {

std::atomic<bool> CLeastPath::m_bExit{false};

namespace {

[[gnu::cold, gnu::noinline]] void OnOther() {
    std::abort();  // nobody sends one
}

}  // namespace

int CLeastPath::Recv() {
    if (m_bExit.load(std::memory_order_relaxed)) [[unlikely]] {
        return -1;
    }
    enyx_hw_a2c_stream_poll_once(m_stream, OnMessage, this);
    const int delivered = m_iDelivered;
    m_iDelivered = 0;
    return delivered;
}

void CLeastPath::OnMessage(const unsigned char* data, unsigned int size, void* context) {
    auto& self = *static_cast<CLeastPath*>(context);
    std::uint32_t type = 0;
    if (size < ZCE_BOARD_HEAD_SIZE) [[unlikely]] {
        return OnOther();
    }
    std::memcpy(&type, data, sizeof(type));
    const unsigned char* body = data + ZCE_BOARD_HEAD_SIZE;
    self.m_iDelivered = 1;
    switch (type) {
        case ZCE_BOARD_TYPE_L1_SINGLE:
            return self.m_spi->OnDmaType17Msg(body);
        case ZCE_BOARD_TYPE_L1_COMBINE:
            return self.m_spi->OnDmaType18Msg(body);
        case ZCE_BOARD_TYPE_L5_SINGLE:
            return self.m_spi->OnDmaType19Msg(body);
        case ZCE_BOARD_TYPE_L5_COMBINE:
            return self.m_spi->OnDmaType20Msg(body);
        default:
            self.m_iDelivered = 0;
            return OnOther();
    }
}

}  // namespace velabench
