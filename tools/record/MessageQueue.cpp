#include "record/MessageQueue.h"

#include <sys/mman.h>

#include <new>

namespace ZceRecord {

CMessageQueue::CMessageQueue(const StreamId& id, size_t bytes)
    : m_id(id), m_size(bytes), m_room(bytes) {
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

}  // namespace ZceRecord
