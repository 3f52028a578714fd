#pragma once

#include <cstddef>

#include "DrvEnyx/enyxHw.h"

// Objects of the vendor's library that are given back when their owner goes. Giving back may change
// errno: who wants the reason of a failure reads it before, or holds a CKeptErrno of longer life.

// A filter of its own. False if the library made none.
class CEnyxFilter {
  public:
    CEnyxFilter() : m_pFilter(enyx_hw_filter_create()) {}
    CEnyxFilter(const CEnyxFilter&) = delete;
    CEnyxFilter& operator=(const CEnyxFilter&) = delete;
    ~CEnyxFilter() {
        if (m_pFilter != nullptr) {
            enyx_hw_filter_destroy(m_pFilter);
        }
    }

    explicit operator bool() const { return m_pFilter != nullptr; }
    enyx_hw_filter* Get() const { return m_pFilter; }

  private:
    enyx_hw_filter* m_pFilter;
};

// A list with room for one descriptor; the library fills it, and has it back through `Free`.
template <typename Descriptor, void (*Free)(Descriptor**, std::size_t)>
class CEnyxDescriptor {
  public:
    static constexpr std::size_t g_uiCapacity = 1;

    CEnyxDescriptor() = default;
    CEnyxDescriptor(CEnyxDescriptor&& other) noexcept : m_pDescriptor(other.m_pDescriptor) {
        other.m_pDescriptor = nullptr;
    }
    CEnyxDescriptor(const CEnyxDescriptor&) = delete;
    CEnyxDescriptor& operator=(const CEnyxDescriptor&) = delete;
    CEnyxDescriptor& operator=(CEnyxDescriptor&&) = delete;
    ~CEnyxDescriptor() { GiveBack(); }

    // What an enumeration fills.
    Descriptor** List() { return &m_pDescriptor; }
    const Descriptor* Get() const { return m_pDescriptor; }

    // Now instead of at the end.
    void GiveBack() {
        if (m_pDescriptor != nullptr) {
            Free(&m_pDescriptor, g_uiCapacity);
            m_pDescriptor = nullptr;
        }
    }

  private:
    Descriptor* m_pDescriptor = nullptr;
};

using CEnyxAccDescriptor =
    CEnyxDescriptor<enyx_hw_accelerator_descriptor, enyx_hw_free_accelerator_descriptors>;
using CEnyxMmioDescriptor = CEnyxDescriptor<enyx_hw_mmio_descriptor, enyx_hw_free_mmio_descriptors>;
using CEnyxA2cDescriptor =
    CEnyxDescriptor<enyx_hw_a2c_stream_descriptor, enyx_hw_free_a2c_stream_descriptors>;
using CEnyxC2aDescriptor =
    CEnyxDescriptor<enyx_hw_c2a_stream_descriptor, enyx_hw_free_c2a_stream_descriptors>;

// Exclusive use of a core. Released on every path, whatever becomes of a log line.
class CCoreLock {
  public:
    explicit CCoreLock(enyx_hw_core* core) : m_pCore(core) { enyx_hw_core_lock(m_pCore); }
    CCoreLock(const CCoreLock&) = delete;
    CCoreLock& operator=(const CCoreLock&) = delete;
    ~CCoreLock() { enyx_hw_core_unlock(m_pCore); }

  private:
    enyx_hw_core* m_pCore;
};
