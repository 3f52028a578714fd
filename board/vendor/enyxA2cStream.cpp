#include <memory>

#include "vendor/enyxHandles.h"

using ZceBoard::Fail;
using ZceBoard::FailNull;

namespace {

// A counter that the producer keeps, which may not have noticed this opening yet.
int ProducerCount(const enyx_hw_a2c_stream* stream, uint32_t* value,
                  std::atomic<uint32_t> ZceBoard::RingControl::*counter) {
    if (stream == nullptr || value == nullptr) {
        return Fail(EINVAL);
    }
    const ZceBoard::RingControl& control = *stream->ring.control;
    const bool noticed =
        control.statGeneration.load(std::memory_order_acquire) == stream->generation;
    *value = noticed ? (control.*counter).load(std::memory_order_relaxed) : 0;
    return 0;
}

}  // namespace

extern "C" {

ENYX_HW_EXPORT int enyx_hw_accelerator_enumerate_a2c_streams(
    enyx_hw_accelerator* accelerator, const enyx_hw_filter* filter,
    enyx_hw_a2c_stream_descriptor** descriptors, size_t capacity) {
    return ZceBoard::EnumerateStreams(accelerator, filter, descriptors, capacity);
}

ENYX_HW_EXPORT void enyx_hw_free_a2c_stream_descriptors(enyx_hw_a2c_stream_descriptor** descriptors,
                                                        size_t count) {
    ZceBoard::FreeDescriptors(descriptors, count);
}

ENYX_HW_EXPORT enyx_hw_a2c_stream* enyx_hw_a2c_stream_create(
    const enyx_hw_a2c_stream_descriptor* descriptor, uint32_t flags) {
    if (descriptor == nullptr || descriptor->accelerator == nullptr || flags != 0) {
        return FailNull(EINVAL);
    }
    const ZceBoard::CBoardMemory& memory = descriptor->accelerator->memory;
    auto stream = std::make_unique<enyx_hw_a2c_stream>();
    const int err =
        ZceBoard::HoldStream(memory, descriptor->channel,
                             ZceBoard::LOCK_A2C_FIRST + descriptor->channel, stream->holder);
    if (err != 0) {
        return FailNull(err);
    }
    stream->accelerator = descriptor->accelerator;
    stream->shm = &memory.Shm();
    stream->channel = descriptor->channel;
    stream->ring = ZceBoard::ViewOf(memory.Shm().a2c[descriptor->channel]);
    stream->generation = ZceBoard::OpenRing(stream->ring, true);
    stream->consumer = ZceBoard::CRingConsumer(stream->ring, stream->generation);
    stream->idle.passes = memory.Shm().stats.passes.load(std::memory_order_relaxed);
    return stream.release();
}

ENYX_HW_EXPORT void enyx_hw_a2c_stream_destroy(enyx_hw_a2c_stream* stream) {
    if (stream == nullptr) {
        return;
    }
    ZceBoard::CloseRing(stream->ring, stream->generation);
    delete stream;
}

ENYX_HW_EXPORT int enyx_hw_a2c_stream_get_mtu(enyx_hw_a2c_stream* stream, uint32_t* mtu) {
    if (stream == nullptr || mtu == nullptr) {
        return Fail(EINVAL);
    }
    *mtu = ZceBoard::STREAM_MTU;
    return 0;
}

ENYX_HW_EXPORT int enyx_hw_a2c_stream_poll_once(enyx_hw_a2c_stream* stream,
                                                enyx_hw_a2c_handler handler, void* context) {
    if (stream == nullptr || handler == nullptr) [[unlikely]] {
        return Fail(EINVAL);
    }
    const int result =
        stream->consumer.PollOnce([handler, context](const unsigned char* data, uint32_t size) {
            handler(data, size, context);
        });
    if (result == 0 && stream->idle.IsDue()) [[unlikely]] {
        ZceBoard::LookAfter(*stream);
    }
    return result;
}

ENYX_HW_EXPORT int enyx_hw_a2c_stream_stats_get_backpressure(enyx_hw_a2c_stream* stream,
                                                             uint32_t* value) {
    return ProducerCount(stream, value, &ZceBoard::RingControl::backPressure);
}

ENYX_HW_EXPORT int enyx_hw_a2c_stream_stats_get_packet_count(enyx_hw_a2c_stream* stream,
                                                             uint32_t* value) {
    return ProducerCount(stream, value, &ZceBoard::RingControl::packetCount);
}

ENYX_HW_EXPORT int enyx_hw_a2c_stream_stats_get_fifo_errors(enyx_hw_a2c_stream* stream,
                                                            uint32_t* value) {
    const int result = ProducerCount(stream, value, &ZceBoard::RingControl::fifoErrors);
    if (result == 0) {
        const ZceBoard::CFaults faults(*stream->shm);
        if (faults.IsOn(ZceBoard::Fault::FifoErrors, stream->channel)) {
            *value += faults.ValueOf(ZceBoard::Fault::FifoErrors);
        }
    }
    return result;
}

ENYX_HW_EXPORT int enyx_hw_a2c_stream_stats_get_errors(enyx_hw_a2c_stream* stream,
                                                       uint32_t* value) {
    if (stream == nullptr || value == nullptr) {
        return Fail(EINVAL);
    }
    *value = stream->ring.control->errors.load(std::memory_order_relaxed);
    return 0;
}

}  // extern "C"
