#include "DrvEnyx/drvDMAEnyx.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "DrvEnyx/drvCore.h"
#include "DrvEnyx/enyxHw.h"
#include "DrvEnyx/enyxOwned.h"
#include "Utils/clockSeam.h"
#include "log/elog.h"

std::atomic<enyx_hw_accelerator*> CDrvDMAEnyx::m_lpAcc{nullptr};

namespace {

constexpr char g_szChannelMark[] = "CHAN";
constexpr std::uint32_t g_uiStreamFlags = 0;
constexpr int g_iOnePacket = 1;

// A send that the board was too busy for; it may be repeated until the clock's seconds have gone on
// by more than the limit.
constexpr int g_iSendTryAgain = 11;
constexpr std::int64_t g_iSendLimitSeconds = 2;

std::int64_t RealtimeSeconds() {
    constexpr std::uint64_t nsPerSecond = 1'000'000'000;
    return static_cast<std::int64_t>(VORBA2::Clock::RealtimeNs() / nsPerSecond);
}

struct A2cCounter_t {
    int (*get)(enyx_hw_a2c_stream*, std::uint32_t*);
    const char* failure;
};

// The errors counter bears the text of the FIFO counter. Deliberate.
constexpr A2cCounter_t g_arrA2cCounters[] = {
    {enyx_hw_a2c_stream_stats_get_backpressure, "get a2c stream backpress num fail."},
    {enyx_hw_a2c_stream_stats_get_packet_count, "get a2c stream packet count fail."},
    {enyx_hw_a2c_stream_stats_get_fifo_errors, "get a2c stream fifo count fail."},
    {enyx_hw_a2c_stream_stats_get_errors, "get a2c stream fifo count fail."},
};

// The stream called `name`, open; null after a failure, which has been logged. `found` is the
// caller's, so that a failed enumeration's list goes back after the filter.
enyx_hw_a2c_stream* OpenA2cStream(enyx_hw_accelerator* accelerator, const CEnyxFilter& filter,
                                  CEnyxA2cDescriptor& found, const char* name) {
    if (enyx_hw_accelerator_enumerate_a2c_streams(accelerator, filter.Get(), found.List(),
                                                  CEnyxA2cDescriptor::g_uiCapacity) != 1) {
        LOG_ERROR("Could not find a2c stream. dmaName:%s, err:%s", name, std::strerror(errno));
        return nullptr;
    }
    enyx_hw_a2c_stream* stream = enyx_hw_a2c_stream_create(found.Get(), g_uiStreamFlags);
    const int reason = errno;
    found.GiveBack();
    if (stream == nullptr) {
        LOG_ERROR("Could not create a2c stream.dmaName:%s,  err:%s", name, std::strerror(reason));
        LOG_ERROR("Note !! A software program can only have one instance running at a time!");
    }
    return stream;
}

// As OpenA2cStream.
enyx_hw_c2a_stream* OpenC2aStream(enyx_hw_accelerator* accelerator, const CEnyxFilter& filter,
                                  CEnyxC2aDescriptor& found, const char* name) {
    if (enyx_hw_accelerator_enumerate_c2a_streams(accelerator, filter.Get(), found.List(),
                                                  CEnyxC2aDescriptor::g_uiCapacity) != 1) {
        LOG_ERROR("Could not find c2a stream. dmaName:%s, err:%s", name, std::strerror(errno));
        return nullptr;
    }
    enyx_hw_c2a_stream* stream = enyx_hw_c2a_stream_create(found.Get(), g_uiStreamFlags);
    const int reason = errno;
    found.GiveBack();
    if (stream == nullptr) {
        LOG_ERROR("Could not create c2a stream. dmaName:%s, err:%s", name, std::strerror(reason));
    }
    return stream;
}

}  // namespace

CDrvDMAEnyx::~CDrvDMAEnyx() {
    if (m_bInited) {
        ReportCounters();
        enyx_hw_a2c_stream_destroy(m_pA2cStream);
        enyx_hw_c2a_stream_destroy(m_pC2aStream);
        m_pA2cStream = nullptr;
        m_pC2aStream = nullptr;
        m_lpAcc = nullptr;
    }
    DrvEnyxVarClear();
    LOG_INFO("dma channel %s has released.", m_strStreamName.c_str());
}

void CDrvDMAEnyx::ReportCounters() const {
    std::uint32_t values[std::size(g_arrA2cCounters)] = {};
    for (std::size_t i = 0; i < std::size(g_arrA2cCounters); ++i) {
        if (g_arrA2cCounters[i].get(m_pA2cStream, &values[i]) != 0) {
            LOG_INFO("%s", g_arrA2cCounters[i].failure);
        }
    }
    const auto [backPressure, packets, fifoErrors, errors] = values;
    LOG_INFO("[channel:%d] DMA count info: backpress:%u, dma2soft:%u, fifo:%u, error:%u.",
             m_iChannel, backPressure, packets, fifoErrors, errors);
    if (backPressure != 0) {
        LOG_WARN("Back pressure happens! may loss some data !");
    }
}

int CDrvDMAEnyx::Init(void* param) {
    if (param == nullptr) {
        LOG_ERROR("Init DMA param is NULL!");
        return -1;
    }
    const auto& parms = *static_cast<const DrvDmaInitParms_t*>(param);
    m_usBusId = static_cast<unsigned short>(parms.busId);
    m_strDmaName = parms.chanName;
    m_uiReserved0 = parms.uiReserved0;
    m_uiReserved1 = parms.uiReserved1;
    m_uiReserved2 = parms.uiReserved2;

    const std::string::size_type mark = m_strDmaName.find(g_szChannelMark);
    if (mark == std::string::npos) {
        // At INFO level, unlike every other failure. Deliberate.
        LOG_INFO("Extract dma channel fail.");
        return -1;
    }
    const char* digits = m_strDmaName.c_str() + mark + std::strlen(g_szChannelMark);
    m_iChannel = static_cast<int>(std::strtol(digits, nullptr, 10));

    if (InitDma(m_strDmaName) != 0) {
        LOG_ERROR("Init DMA error!");
        return -1;
    }
    return 0;
}

int CDrvDMAEnyx::InitDma(std::string& name) {
    m_strStreamName = name;
    enyx_hw_accelerator* accelerator = DrvEnyxCoreGetAcc(m_usBusId);
    m_lpAcc = accelerator;
    if (accelerator == nullptr) {
        LOG_ERROR("Init Accelerator error!");
        return -1;
    }
    if (!OpenStreams(accelerator)) {
        return -1;
    }
    if (enyx_hw_a2c_stream_get_mtu(m_pA2cStream, &m_uiA2cMtu) != 0 ||
        enyx_hw_c2a_stream_get_mtu(m_pC2aStream, &m_uiC2aMtu) != 0) {
        LOG_ERROR("Could not get mtu.dmaName:%s, err:%s", m_strStreamName.c_str(),
                  std::strerror(errno));
        return -1;
    }
    LOG_INFO("Init dma channel :%s success.", m_strStreamName.c_str());
    m_bInited = true;
    return 0;
}

bool CDrvDMAEnyx::OpenStreams(enyx_hw_accelerator* accelerator) {
    // Given back after the filter, if a failure leaves one held.
    CEnyxA2cDescriptor a2c;
    CEnyxC2aDescriptor c2a;
    const CEnyxFilter filter;
    if (!filter) {
        LOG_ERROR("Could not create dma filter. err:%s", std::strerror(errno));
        return false;
    }
    if (enyx_hw_filter_set_name(filter.Get(), m_strStreamName.c_str()) != 0) {
        LOG_ERROR("Could not set dma filter name: %s. err:%s", m_strStreamName.c_str(),
                  std::strerror(errno));
        return false;
    }
    // A stream of an earlier Init is replaced by a new one only.
    if (auto* const stream = OpenA2cStream(accelerator, filter, a2c, m_strStreamName.c_str())) {
        m_pA2cStream = stream;
    } else {
        return false;
    }
    if (auto* const stream = OpenC2aStream(accelerator, filter, c2a, m_strStreamName.c_str())) {
        m_pC2aStream = stream;
        return true;
    }
    return false;
}

int CDrvDMAEnyx::Send(void* packet, unsigned int size) {
    int result = enyx_hw_c2a_stream_send(m_pC2aStream, packet, size);
    int reason = errno;
    std::int64_t start = RealtimeSeconds();
    bool late = false;
    while (result == g_iSendTryAgain && !late) {
        result = enyx_hw_c2a_stream_send(m_pC2aStream, packet, size);
        reason = errno;
        const std::int64_t now = RealtimeSeconds();
        // Judged whatever this last try returned. Deliberate: a packet that the board took only
        // now counts as failed.
        late = now - start > g_iSendLimitSeconds;
        if (now < start) {
            start = now;  // the clock was set back: the wait must still end
        }
    }
    if (late || result != 0) {
        LOG_ERROR("DMA(%s) Send failed. err:%s", m_strDmaName.c_str(), std::strerror(reason));
        return -1;
    }
    return 0;
}

int CDrvDMAEnyx::RecvOnce(void* handler, void* context) {
    if (handler == nullptr) [[unlikely]] {
        return RejectNullHandler();
    }
    return enyx_hw_a2c_stream_poll_once(m_pA2cStream,
                                        reinterpret_cast<enyx_hw_a2c_handler>(handler), context);
}

int CDrvDMAEnyx::RecvOnceCb() {
    return CDrvDMAEnyx::RecvOnce(m_pHandler, m_pContext) == g_iOnePacket ? 0 : -1;
}

void CDrvDMAEnyx::RegisterHandler(void* handler, void* context) {
    m_pHandler = handler;
    m_pContext = context;
}

// Through the table: a RecvOnceCb that overrides this class's is honoured.
int CDrvDMAEnyx::PollData() {
    return RecvOnceCb();
}

// The hot path.
DrvDmaPoll_t CDrvDMAEnyx::Poller() {
    return {[](void* polled, DrvDmaHandler_t handler, void* context) {
                return enyx_hw_a2c_stream_poll_once(static_cast<enyx_hw_a2c_stream*>(polled),
                                                    handler, context);
            },
            m_pA2cStream};
}

int CDrvDMAEnyx::RejectNullHandler() {
    if (!m_bNullHandlerWarned) {
        m_bNullHandlerWarned = true;
        LOG_WARN("Receive handler is NULL, nothing is received.");
    }
    return -1;
}
