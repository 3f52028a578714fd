#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <iceoryx_hoofs/cxx/string.hpp>
#include <iceoryx_posh/popo/publisher.hpp>
#include <iceoryx_posh/popo/subscriber.hpp>
#include <optional>

#include "benchMessage.h"
#include "benchProcess.h"
#include "memory/ShmLayout.h"

// iceoryx between two processes: its daemon, a process on the board's side and one on the
// application's. The daemon takes its time to know a process, so the two are started once and given
// jobs.
namespace velabench {

// The daemon, iox-roudi, of this program alone. There is one on a machine: while another one runs,
// the constructor waits, and at last ends the program.
class CIceoryxDaemon {
  public:
    CIceoryxDaemon();
    ~CIceoryxDaemon();
    CIceoryxDaemon(const CIceoryxDaemon&) = delete;
    CIceoryxDaemon& operator=(const CIceoryxDaemon&) = delete;

  private:
    bool Start();

    pid_t m_pid = -1;
    int m_output = -1;
};

// So many messages wait for the receiver at most; a sender that keeps to it loses none.
constexpr std::uint64_t iceoryxOnTheWay = 192;

// One process's end of both directions, for messages of one size: what is sent is built in the
// memory that the other process reads it from.
template <class Element>
class CIceoryxEnd {
  public:
    CIceoryxEnd(bool bBoard, const char* name)
        : m_publisher(Service(name, bBoard ? "there" : "back")),
          m_subscriber(Service(name, bBoard ? "back" : "there"), Options()) {}

    bool IsConnected() const {
        return m_publisher.hasSubscribers() &&
               m_subscriber.getSubscriptionState() == iox::SubscribeState::SUBSCRIBED;
    }
    // False if there is no memory for the message.
    bool Push(const Element& element) {
        auto loan = m_publisher.loan(element);
        if (loan.has_error()) [[unlikely]] {
            return false;
        }
        loan.value().publish();
        return true;
    }
    template <class Deliver>
    int Poll(Deliver deliver) {
        auto taken = m_subscriber.take();
        if (taken.has_error()) {
            return 0;
        }
        deliver(*taken.value());
        return 1;
    }

  private:
    static iox::capro::ServiceDescription Service(const char* name, const char* direction) {
        using iox::capro::IdString_t;
        return {IdString_t(iox::cxx::TruncateToCapacity, name), "bench",
                IdString_t(iox::cxx::TruncateToCapacity, direction)};
    }
    static iox::popo::SubscriberOptions Options() {
        iox::popo::SubscriberOptions options;
        options.queueCapacity = 256;
        return options;
    }

    iox::popo::Publisher<Element> m_publisher;
    iox::popo::Subscriber<Element> m_subscriber;
};

// Both sizes' ends.
struct IceoryxEnds {
    explicit IceoryxEnds(bool bBoard) : l1End(bBoard, "L1"), l5End(bBoard, "L5") {}

    CIceoryxEnd<Message<ZceBoardL1_t>> l1End;
    CIceoryxEnd<Message<ZceBoardL5_t>> l5End;
};

// The daemon and the two processes, each of which does its side of a job when it is told to. To be
// made before the program has threads or a board; ends with the program.
class CIceoryxPair {
  public:
    // One side's work on a job; false ends the program. The number is the job's.
    using Work = std::function<bool(IceoryxEnds& ends, int job)>;
    CIceoryxPair(Work board, Work application);
    ~CIceoryxPair();
    CIceoryxPair(const CIceoryxPair&) = delete;
    CIceoryxPair& operator=(const CIceoryxPair&) = delete;

    // Both sides do this job; returns when both are done.
    void Do(int job);

  private:
    struct Side {
        alignas(ZceBoard::CACHE_LINE) std::atomic<int> done{0};
        std::atomic<bool> failed{false};
        std::atomic<bool> ready{false};
    };
    struct Orders {
        alignas(ZceBoard::CACHE_LINE) std::atomic<int> given{0};  // orders so far
        std::atomic<int> job{0};
        std::atomic<bool> end{false};
        Side sides[2];
    };
    static bool Serve(Orders& orders, Side& side, bool bBoard, const Work& work);
    void WaitFor(const std::function<bool(const Side&)>& good) const;

    CIceoryxDaemon m_daemon;
    CShared<Orders> m_orders;
    std::optional<CChild> m_board;
    std::optional<CChild> m_application;
};

}  // namespace velabench
