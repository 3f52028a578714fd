#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "DrvEnyx/enyxHw.h"

namespace ZcePreload {

// What belongs to each open stream. Find is for the polling threads and takes no lock; Add and
// Remove are called one at a time, Remove by the thread that polled the stream or after it. Of
// static storage it is there before any code runs, and to the very end.
template <class Owned>
class CStreamTable {
  public:
    constexpr CStreamTable() = default;

    // The stream that was opened first, apart from the others: the path of nearly every poll is a
    // comparison and a jump. FindFirst, once IsFirst has said that it is the one; never null then.
    bool IsFirst(const enyx_hw_a2c_stream* stream) const {
        return m_entries[0].stream.load(std::memory_order_acquire) == KeyOf(stream);
    }
    Owned* FindFirst() const { return m_entries[0].owned.load(std::memory_order_relaxed); }
    // Null: the stream has nothing.
    Owned* Find(const enyx_hw_a2c_stream* stream) const {
        const size_t used = m_used.load(std::memory_order_acquire);
        for (size_t k = 0; k < used; ++k) {
            if (m_entries[k].stream.load(std::memory_order_acquire) == KeyOf(stream)) {
                return m_entries[k].owned.load(std::memory_order_relaxed);
            }
        }
        return nullptr;
    }

    // False: the table is full.
    bool Add(const enyx_hw_a2c_stream* stream, Owned* owned) {
        const size_t used = m_used.load(std::memory_order_relaxed);
        size_t k = 0;
        while (k < used && m_entries[k].stream.load(std::memory_order_relaxed) != NO_STREAM) {
            ++k;
        }
        if (k == m_entries.size()) {
            return false;
        }
        m_entries[k].owned.store(owned, std::memory_order_relaxed);
        m_entries[k].stream.store(KeyOf(stream), std::memory_order_release);
        m_used.store(k < used ? used : k + 1, std::memory_order_release);
        return true;
    }

    // What was the stream's, null if it had nothing.
    Owned* Remove(const enyx_hw_a2c_stream* stream) {
        const size_t used = m_used.load(std::memory_order_relaxed);
        for (size_t k = 0; k < used; ++k) {
            if (m_entries[k].stream.load(std::memory_order_relaxed) == KeyOf(stream)) {
                m_entries[k].stream.store(NO_STREAM, std::memory_order_release);
                return m_entries[k].owned.exchange(nullptr);
            }
        }
        return nullptr;
    }

    // Nothing has anything any more; nobody polls meanwhile.
    void Clear() {
        for (Entry& entry : m_entries) {
            entry.stream.store(NO_STREAM, std::memory_order_relaxed);
            entry.owned.store(nullptr, std::memory_order_relaxed);
        }
    }

  private:
    // In the place of a stream's address: no address of one, and not null, which a program may
    // poll.
    static constexpr uintptr_t NO_STREAM = 1;

    struct Entry {
        std::atomic<uintptr_t> stream{NO_STREAM};
        std::atomic<Owned*> owned{nullptr};
    };

    static uintptr_t KeyOf(const enyx_hw_a2c_stream* stream) {
        return reinterpret_cast<uintptr_t>(stream);
    }

    std::array<Entry, 256> m_entries{};
    std::atomic<size_t> m_used{0};
};

}  // namespace ZcePreload
