#pragma once

#include <atomic_queue/atomic_queue.h>
#include <readerwriterqueue/readerwriterqueue.h>

#include <boost/lockfree/spsc_queue.hpp>
#include <cstddef>

#include "memory/ShmLayout.h"

// Queues between two threads that one would take instead of the board's ring, behind one face:
// Push gives false while the queue is full, Poll hands at most one element to deliver(element).
// Each takes about a ring's bytes.
namespace velabench {

template <class Element>
constexpr std::size_t queueElements = ZceBoard::A2C_RING_BYTES / sizeof(Element);

template <class Element>
class CBoostQueue {
  public:
    bool Push(const Element& element) { return m_queue.push(element); }
    // The element is handed out where it lies.
    template <class Deliver>
    int Poll(Deliver deliver) {
        return m_queue.consume_one(deliver) ? 1 : 0;
    }

  private:
    boost::lockfree::spsc_queue<Element, boost::lockfree::capacity<queueElements<Element>>> m_queue;
};

// The optimist form: both ends take their place first and wait for it then, so neither looks at the
// other's position. Poll returns when something has come. Elements are copied out.
template <class Element>
class COptimistQueue {
  public:
    bool Push(const Element& element) {
        m_queue.push(element);
        return true;
    }
    template <class Deliver>
    int Poll(Deliver deliver) {
        const Element element = m_queue.pop();
        deliver(element);
        return 1;
    }

  private:
    // What is fastest for one producer and one consumer: elements side by side (true spreads
    // neighbours over cache lines, and a message took four times as long), and a pause of the
    // processor while it waits.
    static constexpr bool minimizeContention = false;
    static constexpr bool maximizeThroughput = true;
    static constexpr bool totalOrder = false;
    static constexpr bool singleProducer = true;
    atomic_queue::AtomicQueue2<Element, queueElements<Element>, minimizeContention,
                               maximizeThroughput, totalOrder, singleProducer>
        m_queue;
};

template <class Element>
class CReaderWriterQueue {
  public:
    bool Push(const Element& element) { return m_queue.try_enqueue(element); }
    // The element is handed out where it lies.
    template <class Deliver>
    int Poll(Deliver deliver) {
        const Element* element = m_queue.peek();
        if (element == nullptr) {
            return 0;
        }
        deliver(*element);
        m_queue.pop();
        return 1;
    }

  private:
    moodycamel::ReaderWriterQueue<Element> m_queue{queueElements<Element>};
};

}  // namespace velabench
