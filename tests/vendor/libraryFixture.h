#pragma once

#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include "DrvEnyx/enyxHw.h"
#include "tests/memory/boardFixture.h"

namespace boardtest {

// The calls that lead from a bus index to cores and streams, as the drivers make them.
class LibraryFixture : public BoardFixture {
  protected:
    static enyx_hw_filter* Filter() {
        enyx_hw_filter* filter = enyx_hw_filter_create();
        EXPECT_NE(filter, nullptr);
        return filter;
    }

    // The accelerator of a bus; null if there is none.
    static enyx_hw_accelerator* Accelerator(uint32_t bus = 0) {
        enyx_hw_filter* filter = Filter();
        enyx_hw_filter_set_index(filter, bus);
        enyx_hw_accelerator_descriptor* descriptor = nullptr;
        const int found = enyx_hw_enumerate_accelerators(filter, &descriptor, 1);
        enyx_hw_filter_destroy(filter);
        if (found != 1) {
            return nullptr;
        }
        enyx_hw_accelerator* accelerator = enyx_hw_accelerator_get(descriptor);
        enyx_hw_free_accelerator_descriptors(&descriptor, 1);
        return accelerator;
    }

    static enyx_hw_mmio* Mmio(enyx_hw_accelerator* accelerator) {
        enyx_hw_filter* filter = Filter();
        enyx_hw_filter_set_index(filter, 0);
        enyx_hw_mmio_descriptor* descriptor = nullptr;
        EXPECT_EQ(enyx_hw_accelerator_enumerate_mmios(accelerator, filter, &descriptor, 1), 1);
        enyx_hw_mmio* mmio = enyx_hw_mmio_create(descriptor);
        enyx_hw_free_mmio_descriptors(&descriptor, 1);
        enyx_hw_filter_destroy(filter);
        return mmio;
    }

    static enyx_hw_a2c_stream* OpenA2c(enyx_hw_accelerator* accelerator, const std::string& name) {
        enyx_hw_filter* filter = Filter();
        enyx_hw_filter_set_name(filter, name.c_str());
        enyx_hw_a2c_stream_descriptor* descriptor = nullptr;
        EXPECT_EQ(enyx_hw_accelerator_enumerate_a2c_streams(accelerator, filter, &descriptor, 1),
                  1);
        enyx_hw_a2c_stream* stream = enyx_hw_a2c_stream_create(descriptor, 0);
        const int err = errno;
        enyx_hw_free_a2c_stream_descriptors(&descriptor, 1);
        enyx_hw_filter_destroy(filter);
        errno = err;
        return stream;
    }

    static enyx_hw_c2a_stream* OpenC2a(enyx_hw_accelerator* accelerator, const std::string& name) {
        enyx_hw_filter* filter = Filter();
        enyx_hw_filter_set_name(filter, name.c_str());
        enyx_hw_c2a_stream_descriptor* descriptor = nullptr;
        EXPECT_EQ(enyx_hw_accelerator_enumerate_c2a_streams(accelerator, filter, &descriptor, 1),
                  1);
        enyx_hw_c2a_stream* stream = enyx_hw_c2a_stream_create(descriptor, 0);
        const int err = errno;
        enyx_hw_free_c2a_stream_descriptors(&descriptor, 1);
        enyx_hw_filter_destroy(filter);
        errno = err;
        return stream;
    }

    // The messages that wait in a stream.
    static std::vector<std::vector<unsigned char>> Drain(enyx_hw_a2c_stream* stream) {
        std::vector<std::vector<unsigned char>> messages;
        const auto keep = [](const unsigned char* data, unsigned int size, void* context) {
            static_cast<decltype(messages)*>(context)->emplace_back(data, data + size);
        };
        while (enyx_hw_a2c_stream_poll_once(stream, keep, &messages) == 1) {}
        return messages;
    }
};

}  // namespace boardtest
