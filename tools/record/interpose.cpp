// The calls of the vendor's library that the recorder stands in front of. Each one makes the call
// that it stands for, with the caller's arguments, and gives back its result and its errno.

#include <dlfcn.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <exception>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>

#include "DrvEnyx/enyxHw.h"
#include "record/Handles.h"
#include "record/Recorder.h"
#include "record/StreamTable.h"

#define ZCE_RECORD_EXPORT __attribute__((visibility("default")))

namespace {

using ZceRecord::CHandles;
using ZceRecord::CMessageQueue;

// All that there is, and never destroyed: a program may poll after its static objects are gone.
struct State {
    ZceRecord::CRecorder recorder{ZceRecord::ReadSettings()};
    ZceRecord::CStreamTable streams;
    std::mutex mutex;  // the handles, and changes of the table
    CHandles handles;
};

State& Get() {
    static auto* state = new State;
    return *state;
}

// For a library that is not there at all: the call fails.
template <class Result, class... Arguments>
Result Absent(Arguments... /*unused*/) {
    errno = ENOSYS;
    if constexpr (std::is_pointer_v<Result>) {
        return nullptr;
    } else if constexpr (!std::is_void_v<Result>) {
        return Result{-1};
    }
}

// The call behind this library's.
template <class Result, class... Arguments>
auto Next(Result (* /*unused*/)(Arguments...), const char* name) -> Result (*)(Arguments...) {
    void* found = dlsym(RTLD_NEXT, name);
    if (found == nullptr) {
        // A program that loads the vendor's library for itself alone.
        void* library = dlopen("libenyx-hw-c.so.5", RTLD_LAZY | RTLD_NOLOAD);
        found = library != nullptr ? dlsym(library, name) : nullptr;
    }
    if (found == nullptr) {
        ZceRecord::Say(std::string(name) + ": no library has it");
        return &Absent<Result, Arguments...>;
    }
    return reinterpret_cast<Result (*)(Arguments...)>(found);
}

#define NEXT(call) static const auto next = Next(&(call), #call)

// The recorder's own doing between two looks of the program at errno. What fails in it (there is
// only memory that can) is not recorded, and the program goes on.
template <class Work>
void Aside(Work work) noexcept {
    const int kept = errno;
    try {
        State& state = Get();
        const std::lock_guard guard(state.mutex);
        work(state);
    } catch (const std::exception& reason) {
        ZceRecord::Say(std::string("something is not recorded: ") + reason.what());
    }
    errno = kept;
}

int64_t Now() {
    constexpr int64_t nsPerSecond = 1'000'000'000;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec * nsPerSecond + now.tv_nsec;
}

size_t Filled(int found, size_t capacity) {
    return found > 0 ? std::min(static_cast<size_t>(found), capacity) : 0;
}

// What the recorder's handler needs of the poll that it runs in.
struct Poll {
    CMessageQueue* queue;
    enyx_hw_a2c_handler handler;
    void* context;
};

// What each poll needs, found once, by the first one.
struct PollNeeds {
    decltype(&enyx_hw_a2c_stream_poll_once) next;
    const ZceRecord::CStreamTable* streams;
};
constinit std::atomic<const PollNeeds*> g_pollNeeds{nullptr};

void OnPacket(const unsigned char* data, unsigned int size, void* context) {
    const Poll& poll = *static_cast<const Poll*>(context);
    poll.queue->Put(Now(), data, size);
    poll.handler(data, size, poll.context);
}

// A function of its own, and the last thing that a poll does: so an ordinary poll saves no
// register.
[[gnu::cold, gnu::noinline]] int FirstPoll(enyx_hw_a2c_stream* stream, enyx_hw_a2c_handler handler,
                                           void* context) {
    static const PollNeeds needs{
        Next(&enyx_hw_a2c_stream_poll_once, "enyx_hw_a2c_stream_poll_once"), &Get().streams};
    g_pollNeeds.store(&needs, std::memory_order_release);
    return enyx_hw_a2c_stream_poll_once(stream, handler, context);
}

void AddAccess(const enyx_hw_register_description* description, bool write, int64_t timeNs,
               uint64_t value, int result) noexcept {
    const int kept = errno;
    ZceRecord::RegisterAccess access;
    access.timeNs = timeNs;
    access.value = value;
    access.write = write;
    access.failed = result < 0;
    access.error = kept;
    if (description != nullptr) {
        access.described = true;
        access.byteOffset = description->byte_offset;
        access.bitOffset = description->bit_offset;
        access.width = description->width;
    }
    try {
        Get().recorder.AddAccess(access);
    } catch (const std::exception& reason) {
        ZceRecord::Say(std::string("a register access is not recorded: ") + reason.what());
    }
    errno = kept;
}

bool WantsRegisters() noexcept {
    const int kept = errno;
    bool wants = false;
    try {
        wants = Get().recorder.WantsRegisters();
    } catch (const std::exception& reason) {
        ZceRecord::Say(std::string("register accesses are not recorded: ") + reason.what());
    }
    errno = kept;
    return wants;
}

void BeforeFork() {
    Get().mutex.lock();
    Get().recorder.BeforeFork();
}

void AfterFork(bool child) {
    Get().recorder.AfterFork(child);
    Get().mutex.unlock();
}

// The environment is read before the program can change it.
__attribute__((constructor)) void Begin() {
    Get();
    pthread_atfork(
        &BeforeFork, [] { AfterFork(false); }, [] { AfterFork(true); });
}

// Runs behind the program's own exit handlers and the destructors of its static objects.
__attribute__((destructor)) void End() {
    Get().recorder.Finish();
}

}  // namespace

extern "C" {

ZCE_RECORD_EXPORT int enyx_hw_filter_set_index(enyx_hw_filter* filter, uint32_t index) {
    NEXT(enyx_hw_filter_set_index);
    const int result = next(filter, index);
    if (result == 0) {
        Aside([&](State& state) { state.handles.FilterIndex(filter, index); });
    }
    return result;
}

ZCE_RECORD_EXPORT int enyx_hw_filter_set_name(enyx_hw_filter* filter, const char* name) {
    NEXT(enyx_hw_filter_set_name);
    const int result = next(filter, name);
    if (result == 0) {
        Aside([&](State& state) { state.handles.FilterName(filter, name); });
    }
    return result;
}

ZCE_RECORD_EXPORT void enyx_hw_filter_destroy(enyx_hw_filter* filter) {
    NEXT(enyx_hw_filter_destroy);
    Aside([&](State& state) { state.handles.FilterGone(filter); });
    next(filter);
}

ZCE_RECORD_EXPORT int enyx_hw_enumerate_accelerators(const enyx_hw_filter* filter,
                                                     enyx_hw_accelerator_descriptor** descriptors,
                                                     size_t capacity) {
    NEXT(enyx_hw_enumerate_accelerators);
    const int found = next(filter, descriptors, capacity);
    Aside([&](State& state) {
        for (size_t k = 0; k < Filled(found, capacity); ++k) {
            state.handles.AcceleratorFound(descriptors[k], filter);
        }
    });
    return found;
}

ZCE_RECORD_EXPORT void enyx_hw_free_accelerator_descriptors(
    enyx_hw_accelerator_descriptor** descriptors, size_t count) {
    NEXT(enyx_hw_free_accelerator_descriptors);
    Aside([&](State& state) {
        for (size_t k = 0; descriptors != nullptr && k < count; ++k) {
            state.handles.AcceleratorDescriptorGone(descriptors[k]);
        }
    });
    next(descriptors, count);
}

ZCE_RECORD_EXPORT enyx_hw_accelerator* enyx_hw_accelerator_get(
    const enyx_hw_accelerator_descriptor* descriptor) {
    NEXT(enyx_hw_accelerator_get);
    enyx_hw_accelerator* accelerator = next(descriptor);
    if (accelerator != nullptr) {
        Aside([&](State& state) { state.handles.AcceleratorOpened(accelerator, descriptor); });
    }
    return accelerator;
}

ZCE_RECORD_EXPORT int enyx_hw_accelerator_enumerate_a2c_streams(
    enyx_hw_accelerator* accelerator, const enyx_hw_filter* filter,
    enyx_hw_a2c_stream_descriptor** descriptors, size_t capacity) {
    NEXT(enyx_hw_accelerator_enumerate_a2c_streams);
    const int found = next(accelerator, filter, descriptors, capacity);
    Aside([&](State& state) {
        for (size_t k = 0; k < Filled(found, capacity); ++k) {
            state.handles.StreamFound(descriptors[k], accelerator, filter);
        }
    });
    return found;
}

ZCE_RECORD_EXPORT void enyx_hw_free_a2c_stream_descriptors(
    enyx_hw_a2c_stream_descriptor** descriptors, size_t count) {
    NEXT(enyx_hw_free_a2c_stream_descriptors);
    Aside([&](State& state) {
        for (size_t k = 0; descriptors != nullptr && k < count; ++k) {
            state.handles.StreamDescriptorGone(descriptors[k]);
        }
    });
    next(descriptors, count);
}

ZCE_RECORD_EXPORT enyx_hw_a2c_stream* enyx_hw_a2c_stream_create(
    const enyx_hw_a2c_stream_descriptor* descriptor, uint32_t flags) {
    NEXT(enyx_hw_a2c_stream_create);
    enyx_hw_a2c_stream* stream = next(descriptor, flags);
    if (stream == nullptr) {
        return nullptr;
    }
    Aside([&](State& state) {
        const std::optional<CHandles::Stream> what = state.handles.StreamOf(descriptor);
        if (!what) {
            ZceRecord::Say(
                "a stream that was not looked for as CUSTOM_CHAN<n>_DATA: "
                "it is not recorded");
            return;
        }
        CMessageQueue* queue = state.recorder.StreamOpened(what->bus, what->channel);
        if (queue != nullptr && !state.streams.Add(stream, queue)) {
            queue->Close();
            ZceRecord::Say("too many open streams: one is not recorded");
        }
    });
    return stream;
}

ZCE_RECORD_EXPORT void enyx_hw_a2c_stream_destroy(enyx_hw_a2c_stream* stream) {
    NEXT(enyx_hw_a2c_stream_destroy);
    if (stream != nullptr) {
        // Before the address can be another stream's.
        Aside([&](State& state) {
            CMessageQueue* queue = state.streams.Remove(stream);
            if (queue != nullptr) {
                queue->Close();
            }
        });
    }
    next(stream);
}

ZCE_RECORD_EXPORT int enyx_hw_a2c_stream_poll_once(enyx_hw_a2c_stream* stream,
                                                   enyx_hw_a2c_handler handler, void* context) {
    const PollNeeds* needs = g_pollNeeds.load(std::memory_order_acquire);
    if (needs == nullptr) [[unlikely]] {
        return FirstPoll(stream, handler, context);
    }
    CMessageQueue* queue = needs->streams->Find(stream);
    if (queue == nullptr || handler == nullptr) [[unlikely]] {
        return needs->next(stream, handler, context);
    }
    Poll poll{queue, handler, context};
    return needs->next(stream, &OnPacket, &poll);
}

ZCE_RECORD_EXPORT int enyx_hw_read(enyx_hw_core* core,
                                   const enyx_hw_register_description* description,
                                   uint64_t* value) {
    NEXT(enyx_hw_read);
    if (!WantsRegisters()) {
        return next(core, description, value);
    }
    const int64_t timeNs = Now();
    const int result = next(core, description, value);
    AddAccess(description, false, timeNs, result < 0 || value == nullptr ? 0 : *value, result);
    return result;
}

ZCE_RECORD_EXPORT int enyx_hw_write(enyx_hw_core* core,
                                    const enyx_hw_register_description* description,
                                    uint64_t value) {
    NEXT(enyx_hw_write);
    if (!WantsRegisters()) {
        return next(core, description, value);
    }
    const int64_t timeNs = Now();
    const int result = next(core, description, value);
    AddAccess(description, true, timeNs, value, result);
    return result;
}

}  // extern "C"
