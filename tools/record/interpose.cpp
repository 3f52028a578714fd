// The calls of the vendor's library that the recorder stands in front of, but for those that all
// such libraries stand in front of (preload/).

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <exception>
#include <string>

#include "DrvEnyx/enyxHw.h"
#include "preload/Next.h"
#include "preload/Preload.h"
#include "preload/StreamTable.h"
#include "record/Recorder.h"
#include "record/TickClock.h"

namespace {

using ZceRecord::CMessageQueue;
static_assert(ZcePreload::BUS_UNKNOWN == ZCE_CAPTURE_BUS_UNKNOWN);
using CQueues = ZcePreload::CStreamTable<CMessageQueue>;

// All that there is, and never destroyed: a program may poll after its static objects are gone.
struct State {
    ZceRecord::CRecorder recorder{ZceRecord::ReadSettings()};
    CQueues queues;
};

State& Get() {
    static auto* state = new State;
    return *state;
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
    const CQueues* queues;
    enyx_hw_a2c_handler onPacket;
};
constinit std::atomic<const PollNeeds*> g_pollNeeds{nullptr};

template <int64_t (*stamp)()>
void OnPacket(const unsigned char* data, unsigned int size, void* context) {
    const Poll& poll = *static_cast<const Poll*>(context);
    poll.queue->Put(stamp(), data, size);
    poll.handler(data, size, poll.context);
}

// A function of its own, and the last thing that a poll does: so an ordinary poll saves no
// register.
[[gnu::cold, gnu::noinline]] int FirstPoll(enyx_hw_a2c_stream* stream, enyx_hw_a2c_handler handler,
                                           void* context) {
    static const PollNeeds needs{
        ZcePreload::Next(&enyx_hw_a2c_stream_poll_once, "enyx_hw_a2c_stream_poll_once"),
        &Get().queues,
        Get().recorder.Counts() ? &OnPacket<&ZceRecord::ReadCounter>
                                : &OnPacket<&ZceRecord::RealTimeNs>};
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
    ZcePreload::GetShared().mutex.lock();
    Get().recorder.BeforeFork();
}

void AfterFork(bool child) {
    Get().recorder.AfterFork(child);
    ZcePreload::GetShared().mutex.unlock();
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

const char* const ZcePreload::LIBRARY = "zce-record";
const char* const ZcePreload::NOT_DONE = "not recorded";

void ZcePreload::StreamOpened(enyx_hw_a2c_stream* stream, const CHandles::Stream& what) {
    State& state = Get();
    CMessageQueue* queue = state.recorder.StreamOpened(what.bus, what.channel);
    if (queue != nullptr && !state.queues.Add(stream, queue)) {
        queue->Close();
        ZceRecord::Say("too many open streams: one is not recorded");
    }
}

void ZcePreload::StreamCloses(enyx_hw_a2c_stream* stream) {
    CMessageQueue* queue = Get().queues.Remove(stream);
    if (queue != nullptr) {
        queue->Close();
    }
}

extern "C" {

ZCE_PRELOAD_EXPORT int enyx_hw_a2c_stream_poll_once(enyx_hw_a2c_stream* stream,
                                                    enyx_hw_a2c_handler handler, void* context) {
    const PollNeeds* needs = g_pollNeeds.load(std::memory_order_acquire);
    if (needs == nullptr) [[unlikely]] {
        return FirstPoll(stream, handler, context);
    }
    CMessageQueue* queue = needs->queues->Find(stream);
    if (queue == nullptr || handler == nullptr) [[unlikely]] {
        return needs->next(stream, handler, context);
    }
    Poll poll{queue, handler, context};
    return needs->next(stream, needs->onPacket, &poll);
}

ZCE_PRELOAD_EXPORT int enyx_hw_read(enyx_hw_core* core,
                                    const enyx_hw_register_description* description,
                                    uint64_t* value) {
    ZCE_PRELOAD_NEXT(enyx_hw_read);
    if (!WantsRegisters()) {
        return next(core, description, value);
    }
    const int64_t timeNs = ZceRecord::RealTimeNs();
    const int result = next(core, description, value);
    AddAccess(description, false, timeNs, result < 0 || value == nullptr ? 0 : *value, result);
    return result;
}

ZCE_PRELOAD_EXPORT int enyx_hw_write(enyx_hw_core* core,
                                     const enyx_hw_register_description* description,
                                     uint64_t value) {
    ZCE_PRELOAD_NEXT(enyx_hw_write);
    if (!WantsRegisters()) {
        return next(core, description, value);
    }
    const int64_t timeNs = ZceRecord::RealTimeNs();
    const int result = next(core, description, value);
    AddAccess(description, true, timeNs, value, result);
    return result;
}

}  // extern "C"
