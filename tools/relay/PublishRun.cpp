#include "relay-tool/PublishRun.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

#include "relay-tool/Ending.h"

namespace ZceRelay {

namespace {

constexpr int64_t NS_PER_SECOND = 1'000'000'000;
constexpr int64_t LINGER_NS = 5 * NS_PER_SECOND;
constexpr int64_t FINISH_REST_NS = 1'000'000;

void Rest(int64_t ns) {
    if (ns > 0) {
        std::this_thread::sleep_for(std::chrono::nanoseconds(ns));
    }
}

}  // namespace

CPublishRun::CPublishRun(CPublisher& publisher, CTakenMessages& taken, const Options& options)
    : m_publisher(publisher),
      m_taken(taken),
      m_options(options),
      m_instruments(options.instruments),
      m_thread(&CPublishRun::Run, this) {}

void CPublishRun::Finish() {
    m_bEnd = true;
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void CPublishRun::Run() {
    while (!m_bEnd) {
        const int64_t nowNs = NowNs();
        if (nowNs >= m_nextSecondNs) {
            EverySecond(nowNs);
        }
        if (!m_publisher.Pass(m_taken)) {
            Rest(m_options.restNs);
        }
    }
    for (const int64_t end = NowNs() + LINGER_NS; !m_publisher.IsDone(m_taken) && NowNs() < end;) {
        if (!m_publisher.Pass(m_taken)) {
            Rest(FINISH_REST_NS);
        }
    }
}

void CPublishRun::EverySecond(int64_t nowNs) {
    m_nextSecondNs = nowNs + NS_PER_SECOND;
    if (m_instruments.Look()) {
        m_publisher.SetInstruments(m_instruments.List());
    }
    if (m_options.bStatus) {
        TellStatus(fmt::format(
            "zce-relay status {} {} taken={} confirmed={} ring-full={} resent={}\n", m_options.name,
            m_publisher.IsConnected() ? "connected" : "not-connected", m_taken.Counted(),
            m_publisher.Counts().confirmed, m_taken.Lost(), m_publisher.Counts().resent));
    }
}

uint64_t CPublishRun::Unconfirmed() const {
    return m_taken.Counted() - m_taken.Lost() - m_publisher.Counts().confirmed;
}

std::string CPublishRun::LastLine() const {
    const PublishCounts counts = m_publisher.Counts();
    return fmt::format(
        "zce-relay publish {} taken={} confirmed={} ring-full={} unconfirmed={} resent={} "
        "connects={}\n",
        m_options.name, m_taken.Counted(), counts.confirmed, m_taken.Lost(), Unconfirmed(),
        counts.resent, m_publisher.Connects());
}

bool CPublishRun::IsAllOut() const {
    return m_taken.Lost() == 0 && Unconfirmed() == 0;
}

}  // namespace ZceRelay
