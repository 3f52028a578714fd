#pragma once

#include <array>
#include <atomic>
#include <cstddef>

#include "DrvEnyx/enyxHw.h"

namespace ZcePreload {

// What belongs to each open stream. Find is for the polling threads and takes no lock; Add and
// Remove are called one at a time, Remove by the thread that polled the stream or after it. Of
// static storage it is there before any code runs, and to the very end.
template <class Owned>
class CStreamTable {
  public:
    constexpr CStreamTable() = default;

    // Quickest for the stream that was opened first.
    Owned* Find(const enyx_hw_a2c_stream* stream) const {
        const Entry* entry = m_entries.data();
        if (entry->stream.load(std::memory_order_acquire) != stream) [[unlikely]] {
            entry = FindFurther(stream);
        }
        return entry->owned.load(std::memory_order_relaxed);
    }

    // False: the table is full.
    bool Add(const enyx_hw_a2c_stream* stream, Owned* owned) {
        const size_t used = m_used.load(std::memory_order_relaxed);
        size_t k = 0;
        while (k < used && m_entries[k].stream.load(std::memory_order_relaxed) != nullptr) {
            ++k;
        }
        if (k == m_entries.size()) {
            return false;
        }
        m_entries[k].owned.store(owned, std::memory_order_relaxed);
        m_entries[k].stream.store(stream, std::memory_order_release);
        m_used.store(k < used ? used : k + 1, std::memory_order_release);
        return true;
    }

    // What was the stream's, null if it had nothing.
    Owned* Remove(const enyx_hw_a2c_stream* stream) {
        const size_t used = m_used.load(std::memory_order_relaxed);
        for (size_t k = 0; k < used; ++k) {
            if (m_entries[k].stream.load(std::memory_order_relaxed) == stream) {
                m_entries[k].stream.store(nullptr, std::memory_order_release);
                return m_entries[k].owned.exchange(nullptr);
            }
        }
        return nullptr;
    }

    // Nothing has anything any more; nobody polls meanwhile.
    void Clear() {
        for (Entry& entry : m_entries) {
            entry.stream.store(nullptr, std::memory_order_relaxed);
            entry.owned.store(nullptr, std::memory_order_relaxed);
        }
    }

  private:
    struct Entry {
        std::atomic<const enyx_hw_a2c_stream*> stream{nullptr};
        std::atomic<Owned*> owned{nullptr};
    };

    // An entry without anything if there is none.
    const Entry* FindFurther(const enyx_hw_a2c_stream* stream) const {
        const size_t used = m_used.load(std::memory_order_acquire);
        for (size_t k = 1; k < used; ++k) {
            if (m_entries[k].stream.load(std::memory_order_acquire) == stream) {
                return &m_entries[k];
            }
        }
        return &m_nothing;
    }

    std::array<Entry, 256> m_entries{};
    Entry m_nothing;
    std::atomic<size_t> m_used{0};
};

}  // namespace ZcePreload
