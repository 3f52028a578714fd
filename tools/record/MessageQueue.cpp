#include "record/MessageQueue.h"

#include <sys/mman.h>

#include <algorithm>
#include <new>

namespace ZceRecord {

CMessageQueue::CMessageQueue(const StreamId& id, size_t bytes)
    : m_id(id), m_size(bytes), m_straight(bytes) {
    // Large pages where there are some: the polling thread comes by a new place with each message.
    constexpr size_t largePage = size_t{2} << 20;
    const size_t page = bytes >= largePage ? largePage : LINE;
    const size_t all = (bytes + AHEAD + MAX_MESSAGE + page - 1) / page * page;
    m_bytes.reset(static_cast<unsigned char*>(std::aligned_alloc(page, all)));
    if (m_bytes == nullptr) {
        throw std::bad_alloc();
    }
    if (page == largePage) {
        madvise(m_bytes.get(), all, MADV_HUGEPAGE);
    }
    std::memset(m_bytes.get(), 0, bytes);
}

void CMessageQueue::PutOtherwise(int64_t stamp, const unsigned char* data, uint32_t size) {
    const uint64_t number = ++m_number;
    const size_t need = sizeof(RecordHead) + size;
    const size_t room = m_size - (m_put - m_writer.takenTold.load(std::memory_order_acquire));
    if (size <= MAX_MESSAGE && need <= room) {
        const RecordHead head{stamp, number, size};
        CopyAround(&head, sizeof(head));
        CopyAround(data, size);
        m_straight = std::min(m_size, m_putAt + room - need);
        m_put += need;
        m_putTold.store(m_put, std::memory_order_release);
    } else {
        m_lostStamp.store(stamp, std::memory_order_relaxed);
    }
    m_counted.store(number, std::memory_order_release);
}

void CMessageQueue::DeliverOtherwise(int64_t stamp, const unsigned char* data, uint32_t size) {
    PutOtherwise(stamp, data, size);
    m_handler(data, size, m_context);
}

void CMessageQueue::CopyAround(const void* from, size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(from);
    const size_t first = std::min(size, m_size - m_putAt);
    std::memcpy(m_bytes.get() + m_putAt, bytes, first);
    std::memcpy(m_bytes.get(), bytes + first, size - first);
    m_putAt = (m_putAt + size) % m_size;
}

}  // namespace ZceRecord
