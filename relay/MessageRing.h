#pragma once

#include <boost/lockfree/spsc_queue.hpp>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace ZceRelay {

// Messages of any size on their way from one thread to another, in memory that was all there at the
// beginning. Neither side ever waits, allocates or calls the system. `Head` is what goes with each
// message; its `size` says how many bytes of body follow.
template <class Head>
class CMessageRing {
  public:
    explicit CMessageRing(size_t bytes) : m_bytes(bytes) {}

    // Before the threads: the memory's first use, which costs page faults, is here and not Put's.
    void Touch() {
        const std::vector<unsigned char> some(65536);
        while (m_bytes.push(some.data(), some.size()) != 0) {}
        m_bytes.reset();
    }

    // The one thread's. False: there is no room, and nothing of the message is in the ring.
    bool Put(const Head& head, const unsigned char* body) {
        if (m_bytes.write_available() < sizeof(head) + head.size) [[unlikely]] {
            return false;
        }
        m_bytes.push(reinterpret_cast<const unsigned char*>(&head), sizeof(head));
        m_bytes.push(body, head.size);
        return true;
    }

    // The other's: the oldest message. False if no whole one is there.
    bool Take(Head& head, std::vector<unsigned char>& body) {
        if (!m_bHasHead) {
            if (m_bytes.read_available() < sizeof(m_head)) {
                return false;
            }
            m_bytes.pop(reinterpret_cast<unsigned char*>(&m_head), sizeof(m_head));
            m_bHasHead = true;
        }
        if (m_bytes.read_available() < m_head.size) {
            return false;
        }
        body.resize(m_head.size);
        m_bytes.pop(body.data(), body.size());
        m_bHasHead = false;
        head = m_head;
        return true;
    }

  private:
    boost::lockfree::spsc_queue<unsigned char> m_bytes;
    // The taker's: the head of a message whose body is not there yet.
    alignas(64) Head m_head{};
    bool m_bHasHead = false;
};

}  // namespace ZceRelay
