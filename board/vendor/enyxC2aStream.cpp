#include <cstring>
#include <memory>

#include "vendor/enyxHandles.h"

using ZceBoard::Fail;
using ZceBoard::FailNull;

namespace {

constexpr int SEND_TRY_AGAIN = 11;  // as the interface gives it

}  // namespace

extern "C" {

ENYX_HW_EXPORT int enyx_hw_accelerator_enumerate_c2a_streams(
    enyx_hw_accelerator* accelerator, const enyx_hw_filter* filter,
    enyx_hw_c2a_stream_descriptor** descriptors, size_t capacity) {
    return ZceBoard::EnumerateStreams(accelerator, filter, descriptors, capacity);
}

ENYX_HW_EXPORT void enyx_hw_free_c2a_stream_descriptors(enyx_hw_c2a_stream_descriptor** descriptors,
                                                        size_t count) {
    ZceBoard::FreeDescriptors(descriptors, count);
}

ENYX_HW_EXPORT enyx_hw_c2a_stream* enyx_hw_c2a_stream_create(
    const enyx_hw_c2a_stream_descriptor* descriptor, uint32_t flags) {
    if (descriptor == nullptr || descriptor->accelerator == nullptr || flags != 0) {
        return FailNull(EINVAL);
    }
    const ZceBoard::CBoardMemory& memory = descriptor->accelerator->memory;
    auto stream = std::make_unique<enyx_hw_c2a_stream>();
    const int err =
        ZceBoard::HoldStream(memory, descriptor->channel,
                             ZceBoard::LOCK_C2A_FIRST + descriptor->channel, stream->holder);
    if (err != 0) {
        return FailNull(err);
    }
    stream->shm = &memory.Shm();
    stream->channel = descriptor->channel;
    stream->ring = ZceBoard::ViewOf(memory.Shm().c2a[descriptor->channel]);
    stream->generation = ZceBoard::OpenRing(stream->ring, false);
    stream->producer = ZceBoard::CRingProducer(stream->ring);
    stream->producer.Begin(ZceBoard::C2A_TAG_GENERATION);
    return stream.release();
}

ENYX_HW_EXPORT void enyx_hw_c2a_stream_destroy(enyx_hw_c2a_stream* stream) {
    if (stream == nullptr) {
        return;
    }
    ZceBoard::CloseRing(stream->ring, stream->generation);
    delete stream;
}

ENYX_HW_EXPORT int enyx_hw_c2a_stream_get_mtu(enyx_hw_c2a_stream* stream, uint32_t* mtu) {
    if (stream == nullptr || mtu == nullptr) {
        return Fail(EINVAL);
    }
    *mtu = ZceBoard::STREAM_MTU;
    return 0;
}

ENYX_HW_EXPORT int enyx_hw_c2a_stream_send(enyx_hw_c2a_stream* stream, const void* packet,
                                           uint32_t size) {
    if (stream == nullptr || packet == nullptr || size == 0) {
        return Fail(EINVAL);
    }
    if (size > ZceBoard::STREAM_MTU) {
        return Fail(EMSGSIZE);
    }
    const bool busy =
        ZceBoard::CFaults(*stream->shm).Strikes(ZceBoard::Fault::SendBusy, stream->channel) != 0;
    unsigned char* place = busy ? nullptr : stream->producer.PrepareWrite(size);
    if (place == nullptr) {
        stream->producer.CountBackPressure();
        errno = EAGAIN;
        return SEND_TRY_AGAIN;
    }
    memcpy(place, packet, size);
    stream->producer.CommitWrite(size);
    return 0;
}

}  // extern "C"
