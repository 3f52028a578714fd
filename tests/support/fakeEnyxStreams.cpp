#include <algorithm>
#include <cerrno>
#include <utility>

#include "fakeEnyxState.h"

namespace {

using namespace velatest;

constexpr int tryAgain = 11;
constexpr std::uint8_t poison = 0xDD;

std::vector<Candidate> Streams(const EnyxState& state) {
    std::vector<Candidate> streams;
    for (const std::string& name : state.streams) {
        streams.push_back({static_cast<std::uint32_t>(streams.size()), name});
    }
    return streams;
}

template <typename Stream>
Stream* CreateStream(const char* call, const char* kind, const EnyxObject* descriptor,
                     uint32_t flags) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    if (Enter(state, call, std::to_string(flags)) || !Usable(state, descriptor, call)) {
        return nullptr;
    }
    const auto isThisStream = [descriptor, kind](const auto& object) {
        return object->alive && std::string_view(object->kind) == kind &&
               object->name == descriptor->name;
    };
    const bool taken = !state.sharedStreams &&
                       std::any_of(state.objects.begin(), state.objects.end(), isThisStream);
    if (taken || state.busyStreams.contains(descriptor->name)) {
        errno = EBUSY;
        return nullptr;
    }
    auto* stream = Make<Stream>(state, kind);
    stream->name = descriptor->name;
    return stream;
}

int GetValue(const char* call, const EnyxObject* handle, std::uint32_t EnyxState::*source,
             std::uint32_t* value) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    if (const std::optional<int> failure = Enter(state, call)) {
        return *failure;
    }
    if (!Usable(state, handle, call)) {
        return -1;
    }
    *value = state.*source;
    return 0;
}

int GetCounter(const char* call, const EnyxObject* handle, std::uint32_t EnyxCounters::*source,
               std::uint32_t* value) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    if (const std::optional<int> failure = Enter(state, call)) {
        return *failure;
    }
    if (!Usable(state, handle, call)) {
        return -1;
    }
    *value = state.counters.*source;
    return 0;
}

}  // namespace

extern "C" {

int enyx_hw_accelerator_enumerate_a2c_streams(enyx_hw_accelerator* accelerator,
                                              const enyx_hw_filter* filter,
                                              enyx_hw_a2c_stream_descriptor** descriptors,
                                              size_t capacity) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    return Enumerate(state,
                     {"accelerator_enumerate_a2c_streams", "a2c_descriptor", accelerator, false},
                     filter, descriptors, capacity, Streams(state));
}

void enyx_hw_free_a2c_stream_descriptors(enyx_hw_a2c_stream_descriptor** descriptors,
                                         size_t count) {
    FreeDescriptors("free_a2c_stream_descriptors", descriptors, count);
}

enyx_hw_a2c_stream* enyx_hw_a2c_stream_create(const enyx_hw_a2c_stream_descriptor* descriptor,
                                              uint32_t flags) {
    return CreateStream<enyx_hw_a2c_stream>("a2c_stream_create", "a2c_stream", descriptor, flags);
}

void enyx_hw_a2c_stream_destroy(enyx_hw_a2c_stream* stream) {
    Destroy("a2c_stream_destroy", stream);
}

int enyx_hw_a2c_stream_get_mtu(enyx_hw_a2c_stream* stream, uint32_t* mtu) {
    return GetValue("a2c_stream_get_mtu", stream, &EnyxState::a2cMtu, mtu);
}

int enyx_hw_a2c_stream_poll_once(enyx_hw_a2c_stream* stream, enyx_hw_a2c_handler handler,
                                 void* context) {
    EnyxState& state = TheEnyxState();
    std::vector<std::uint8_t> packet;
    {
        const std::lock_guard<std::mutex> guard(state.mutex);
        ++state.polls;
        if (const auto failure = ScriptedFailure(state, "a2c_stream_poll_once")) {
            return *failure;
        }
        if (!Usable(state, stream, "a2c_stream_poll_once")) {
            return -1;
        }
        if (handler == nullptr) {
            errno = EINVAL;
            return -1;
        }
        const auto queue = state.packets.find(stream->name);
        if (queue == state.packets.end() || queue->second.empty()) {
            return 0;
        }
        packet = std::move(queue->second.front());
        queue->second.pop_front();
    }
    handler(packet.data(), static_cast<unsigned int>(packet.size()), context);
    std::fill(packet.begin(), packet.end(), poison);
    return 1;
}

int enyx_hw_a2c_stream_stats_get_backpressure(enyx_hw_a2c_stream* stream, uint32_t* value) {
    return GetCounter("a2c_stream_stats_get_backpressure", stream, &EnyxCounters::backPressure,
                      value);
}

int enyx_hw_a2c_stream_stats_get_packet_count(enyx_hw_a2c_stream* stream, uint32_t* value) {
    return GetCounter("a2c_stream_stats_get_packet_count", stream, &EnyxCounters::packets, value);
}

int enyx_hw_a2c_stream_stats_get_fifo_errors(enyx_hw_a2c_stream* stream, uint32_t* value) {
    return GetCounter("a2c_stream_stats_get_fifo_errors", stream, &EnyxCounters::fifoErrors, value);
}

int enyx_hw_a2c_stream_stats_get_errors(enyx_hw_a2c_stream* stream, uint32_t* value) {
    return GetCounter("a2c_stream_stats_get_errors", stream, &EnyxCounters::errors, value);
}

int enyx_hw_accelerator_enumerate_c2a_streams(enyx_hw_accelerator* accelerator,
                                              const enyx_hw_filter* filter,
                                              enyx_hw_c2a_stream_descriptor** descriptors,
                                              size_t capacity) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    return Enumerate(state,
                     {"accelerator_enumerate_c2a_streams", "c2a_descriptor", accelerator, false},
                     filter, descriptors, capacity, Streams(state));
}

void enyx_hw_free_c2a_stream_descriptors(enyx_hw_c2a_stream_descriptor** descriptors,
                                         size_t count) {
    FreeDescriptors("free_c2a_stream_descriptors", descriptors, count);
}

enyx_hw_c2a_stream* enyx_hw_c2a_stream_create(const enyx_hw_c2a_stream_descriptor* descriptor,
                                              uint32_t flags) {
    return CreateStream<enyx_hw_c2a_stream>("c2a_stream_create", "c2a_stream", descriptor, flags);
}

void enyx_hw_c2a_stream_destroy(enyx_hw_c2a_stream* stream) {
    Destroy("c2a_stream_destroy", stream);
}

int enyx_hw_c2a_stream_get_mtu(enyx_hw_c2a_stream* stream, uint32_t* mtu) {
    return GetValue("c2a_stream_get_mtu", stream, &EnyxState::c2aMtu, mtu);
}

int enyx_hw_c2a_stream_send(enyx_hw_c2a_stream* stream, const void* packet, uint32_t size) {
    EnyxState& state = TheEnyxState();
    std::function<void()> hook;
    int result = 0;
    {
        const std::lock_guard<std::mutex> guard(state.mutex);
        const auto failure = Enter(state, "c2a_stream_send", "size=" + std::to_string(size));
        if (failure) {
            result = *failure;
        } else if (!Usable(state, stream, "c2a_stream_send")) {
            return -1;
        } else if (!state.sendResults.empty()) {
            result = state.sendResults.front();
            state.sendResults.pop_front();
            errno = result == tryAgain ? EAGAIN : EIO;
        }
        if (result == 0) {
            const auto* bytes = static_cast<const std::uint8_t*>(packet);
            state.sent.emplace_back(bytes, bytes + size);
        }
        hook = state.onSend;
    }
    const int reason = errno;
    if (hook) {
        hook();
    }
    errno = reason;
    return result;
}

}  // extern "C"
