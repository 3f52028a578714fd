#include "ownDrivers.h"

#include "DrvEnyx/drvFactory.h"

namespace velatest {

std::vector<std::string> QueueDma::s_opened;
std::vector<std::string> QueueDma::s_closed;
std::vector<DrvDmaInitParms_t> QueueDma::s_records;
std::deque<Bytes_t> QueueDma::s_packets;
const std::vector<Bytes_t>* QueueDma::s_pRepeated = nullptr;
int QueueDma::s_initResult = 0;
std::function<void()> QueueDma::s_onInit;
const unsigned char* QueueDma::s_lastData = nullptr;

QueueDma::~QueueDma() {
    s_closed.push_back(m_strName);
}

int QueueDma::Init(void* param) {
    s_records.push_back(*static_cast<const DrvDmaInitParms_t*>(param));
    m_strName = s_records.back().chanName;
    s_opened.push_back(m_strName);
    if (s_onInit) {
        s_onInit();
    }
    return s_initResult;
}

int QueueDma::Send(void* /*packet*/, unsigned int /*size*/) {
    return -1;
}

int QueueDma::RecvOnce(void* handler, void* context) {
    if (s_pRepeated != nullptr) {
        if (++m_ulPolls % 2 == 0) {
            return 0;
        }
        const Bytes_t& packet = (*s_pRepeated)[m_ulPolls / 2 % s_pRepeated->size()];
        reinterpret_cast<DrvDmaHandler_t>(handler)(
            packet.data(), static_cast<unsigned int>(packet.size()), context);
        return 1;
    }
    if (s_packets.empty()) {
        return 0;
    }
    m_packet = s_packets.front();
    s_packets.pop_front();
    s_lastData = m_packet.data();
    reinterpret_cast<DrvDmaHandler_t>(handler)(m_packet.data(),
                                               static_cast<unsigned int>(m_packet.size()), context);
    return 1;
}

int QueueDma::RecvOnceCb() {
    return RecvOnce(m_pHandler, m_pContext) == 1 ? 0 : -1;
}

void QueueDma::RegisterHandler(void* handler, void* context) {
    m_pHandler = handler;
    m_pContext = context;
}

int QueueDma::PollData() {
    return RecvOnceCb();
}

IDrv* g_pProcessReg = nullptr;
std::function<IDrv*()> g_makeReg = [] { return new FakeDrv; };

}  // namespace velatest

IDrvDMA* DrvEnyxMakeDma() {
    return new velatest::QueueDma;
}

IDrv* DrvEnyxProcessReg() {
    if (velatest::g_pProcessReg == nullptr) {
        velatest::g_pProcessReg = velatest::g_makeReg();
    }
    return velatest::g_pProcessReg;
}

void DrvEnyxForgetReg(const IDrv* drv) {
    if (velatest::g_pProcessReg == drv) {
        velatest::g_pProcessReg = nullptr;
    }
}
