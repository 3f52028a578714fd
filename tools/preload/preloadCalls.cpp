// The calls of the vendor's library through which a program finds and opens its streams, for a
// library that stands in front of it.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "DrvEnyx/enyxHw.h"
#include "preload/Handles.h"
#include "preload/Next.h"
#include "preload/Preload.h"

using ZcePreload::Aside;
using ZcePreload::CHandles;

namespace {

size_t Filled(int found, size_t capacity) {
    return found > 0 ? std::min(static_cast<size_t>(found), capacity) : 0;
}

}  // namespace

ZcePreload::Shared& ZcePreload::GetShared() {
    static auto* shared = new Shared;
    return *shared;
}

extern "C" {

ZCE_PRELOAD_EXPORT int enyx_hw_filter_set_index(enyx_hw_filter* filter, uint32_t index) {
    ZCE_PRELOAD_NEXT(enyx_hw_filter_set_index);
    const int result = next(filter, index);
    if (result == 0) {
        Aside([&](CHandles& handles) { handles.FilterIndex(filter, index); });
    }
    return result;
}

ZCE_PRELOAD_EXPORT int enyx_hw_filter_set_name(enyx_hw_filter* filter, const char* name) {
    ZCE_PRELOAD_NEXT(enyx_hw_filter_set_name);
    const int result = next(filter, name);
    if (result == 0) {
        Aside([&](CHandles& handles) { handles.FilterName(filter, name); });
    }
    return result;
}

ZCE_PRELOAD_EXPORT void enyx_hw_filter_destroy(enyx_hw_filter* filter) {
    ZCE_PRELOAD_NEXT(enyx_hw_filter_destroy);
    Aside([&](CHandles& handles) { handles.FilterGone(filter); });
    next(filter);
}

ZCE_PRELOAD_EXPORT int enyx_hw_enumerate_accelerators(const enyx_hw_filter* filter,
                                                      enyx_hw_accelerator_descriptor** descriptors,
                                                      size_t capacity) {
    ZCE_PRELOAD_NEXT(enyx_hw_enumerate_accelerators);
    const int found = next(filter, descriptors, capacity);
    Aside([&](CHandles& handles) {
        for (size_t k = 0; k < Filled(found, capacity); ++k) {
            handles.AcceleratorFound(descriptors[k], filter);
        }
    });
    return found;
}

ZCE_PRELOAD_EXPORT void enyx_hw_free_accelerator_descriptors(
    enyx_hw_accelerator_descriptor** descriptors, size_t count) {
    ZCE_PRELOAD_NEXT(enyx_hw_free_accelerator_descriptors);
    Aside([&](CHandles& handles) {
        for (size_t k = 0; descriptors != nullptr && k < count; ++k) {
            handles.AcceleratorDescriptorGone(descriptors[k]);
        }
    });
    next(descriptors, count);
}

ZCE_PRELOAD_EXPORT enyx_hw_accelerator* enyx_hw_accelerator_get(
    const enyx_hw_accelerator_descriptor* descriptor) {
    ZCE_PRELOAD_NEXT(enyx_hw_accelerator_get);
    enyx_hw_accelerator* accelerator = next(descriptor);
    if (accelerator != nullptr) {
        Aside([&](CHandles& handles) { handles.AcceleratorOpened(accelerator, descriptor); });
    }
    return accelerator;
}

ZCE_PRELOAD_EXPORT int enyx_hw_accelerator_enumerate_a2c_streams(
    enyx_hw_accelerator* accelerator, const enyx_hw_filter* filter,
    enyx_hw_a2c_stream_descriptor** descriptors, size_t capacity) {
    ZCE_PRELOAD_NEXT(enyx_hw_accelerator_enumerate_a2c_streams);
    const int found = next(accelerator, filter, descriptors, capacity);
    Aside([&](CHandles& handles) {
        for (size_t k = 0; k < Filled(found, capacity); ++k) {
            handles.StreamFound(descriptors[k], accelerator, filter);
        }
    });
    return found;
}

ZCE_PRELOAD_EXPORT void enyx_hw_free_a2c_stream_descriptors(
    enyx_hw_a2c_stream_descriptor** descriptors, size_t count) {
    ZCE_PRELOAD_NEXT(enyx_hw_free_a2c_stream_descriptors);
    Aside([&](CHandles& handles) {
        for (size_t k = 0; descriptors != nullptr && k < count; ++k) {
            handles.StreamDescriptorGone(descriptors[k]);
        }
    });
    next(descriptors, count);
}

ZCE_PRELOAD_EXPORT enyx_hw_a2c_stream* enyx_hw_a2c_stream_create(
    const enyx_hw_a2c_stream_descriptor* descriptor, uint32_t flags) {
    ZCE_PRELOAD_NEXT(enyx_hw_a2c_stream_create);
    enyx_hw_a2c_stream* stream = next(descriptor, flags);
    if (stream == nullptr) {
        return nullptr;
    }
    Aside([&](const CHandles& handles) {
        const std::optional<CHandles::Stream> what = handles.StreamOf(descriptor);
        if (!what) {
            ZcePreload::SayHere(
                std::string("a stream that was not looked for as CUSTOM_CHAN<n>_DATA: it is ") +
                ZcePreload::NOT_DONE);
            return;
        }
        ZcePreload::StreamOpened(stream, *what);
    });
    return stream;
}

ZCE_PRELOAD_EXPORT void enyx_hw_a2c_stream_destroy(enyx_hw_a2c_stream* stream) {
    ZCE_PRELOAD_NEXT(enyx_hw_a2c_stream_destroy);
    if (stream != nullptr) {
        // Before the address can be another stream's.
        Aside([&](const CHandles& /*handles*/) { ZcePreload::StreamCloses(stream); });
    }
    next(stream);
}

}  // extern "C"
