// The calls of the vendor's library that the recorder stands in front of, but for those that all
// such libraries stand in front of (preload/).

#include <pthread.h>

#include <cerrno>
#include <cstdint>
#include <exception>
#include <string>

#include "DrvEnyx/enyxHw.h"
#include "preload/Next.h"
#include "preload/Preload.h"
#include "preload/StreamTable.h"
#include "record/Recorder.h"
#include "record/Stamps.h"
#include "record/TickClock.h"

namespace {

using ZceRecord::CMessageQueue;
static_assert(ZcePreload::BUS_UNKNOWN == ZCE_CAPTURE_BUS_UNKNOWN);

// What a poll looks at; there before any code runs. The calls are found before the first stream is
// in the table, whose first entry is in their cache line.
struct alignas(64) Polls {
    decltype(&enyx_hw_a2c_stream_poll_once) next = nullptr;
    enyx_hw_a2c_handler onPacket = nullptr;
    const ZceRecord::Beat* beat = nullptr;
    ZcePreload::CStreamTable<CMessageQueue> queues;
};
constinit Polls g_polls;

// Never destroyed: a program may poll after its static objects are gone.
ZceRecord::CRecorder& Recorder() {
    static auto* recorder = new ZceRecord::CRecorder(ZceRecord::ReadSettings());
    return *recorder;
}

[[gnu::tls_model("initial-exec")]] constinit thread_local ZceRecord::CStamps t_stamps;

// The handlers that stand in the application's place; `context` is the stream's queue.
void OnPacket(const unsigned char* data, unsigned int size, void* context) {
    static_cast<CMessageQueue*>(context)->Deliver(
        t_stamps.Next<&ZceRecord::ReadCounter>(*g_polls.beat), data, size);
}
void OnPacketByClock(const unsigned char* data, unsigned int size, void* context) {
    static_cast<CMessageQueue*>(context)->Deliver(ZceRecord::RealTimeNs(), data, size);
}

void FindCalls() {
    if (g_polls.next == nullptr) {
        g_polls.beat = &Recorder().GetBeat();
        g_polls.onPacket = Recorder().Counts() ? &OnPacket : &OnPacketByClock;
        g_polls.next =
            ZcePreload::Next(&enyx_hw_a2c_stream_poll_once, "enyx_hw_a2c_stream_poll_once");
    }
}

[[gnu::cold, gnu::noinline]] int PassOn(enyx_hw_a2c_stream* stream, enyx_hw_a2c_handler handler,
                                        void* context) {
    ZCE_PRELOAD_NEXT(enyx_hw_a2c_stream_poll_once);
    return next(stream, handler, context);
}

inline int Poll(CMessageQueue* queue, enyx_hw_a2c_stream* stream, enyx_hw_a2c_handler handler,
                void* context) {
    queue->BeginPoll(handler, context);
    t_stamps.BeginPoll();
    return g_polls.next(stream, g_polls.onPacket, queue);
}

// Of a stream that is not the table's first.
[[gnu::noinline]] int PollFurther(enyx_hw_a2c_stream* stream, enyx_hw_a2c_handler handler,
                                  void* context) {
    CMessageQueue* queue = g_polls.queues.Find(stream);
    if (queue == nullptr || handler == nullptr) [[unlikely]] {
        return PassOn(stream, handler, context);
    }
    return Poll(queue, stream, handler, context);
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
        Recorder().AddAccess(access);
    } catch (const std::exception& reason) {
        ZceRecord::Say(std::string("a register access is not recorded: ") + reason.what());
    }
    errno = kept;
}

bool WantsRegisters() noexcept {
    const int kept = errno;
    bool wants = false;
    try {
        wants = Recorder().WantsRegisters();
    } catch (const std::exception& reason) {
        ZceRecord::Say(std::string("register accesses are not recorded: ") + reason.what());
    }
    errno = kept;
    return wants;
}

void BeforeFork() {
    ZcePreload::GetShared().mutex.lock();
    Recorder().BeforeFork();
}

void AfterFork(bool child) {
    if (child) {
        g_polls.queues.Clear();  // nobody there writes what is in them
    }
    Recorder().AfterFork(child);
    ZcePreload::GetShared().mutex.unlock();
}

// The environment is read before the program can change it.
__attribute__((constructor)) void Begin() {
    Recorder();
    pthread_atfork(
        &BeforeFork, [] { AfterFork(false); }, [] { AfterFork(true); });
}

// Runs behind the program's own exit handlers and the destructors of its static objects.
__attribute__((destructor)) void End() {
    Recorder().Finish();
}

}  // namespace

const char* const ZcePreload::LIBRARY = "zce-record";
const char* const ZcePreload::NOT_DONE = "not recorded";

void ZcePreload::StreamOpened(enyx_hw_a2c_stream* stream, const CHandles::Stream& what) {
    CMessageQueue* queue = Recorder().StreamOpened(what.bus, what.channel);
    FindCalls();
    if (queue != nullptr && !g_polls.queues.Add(stream, queue)) {
        queue->Close();
        ZceRecord::Say("too many open streams: one is not recorded");
    }
}

void ZcePreload::StreamCloses(enyx_hw_a2c_stream* stream) {
    CMessageQueue* queue = g_polls.queues.Remove(stream);
    if (queue != nullptr) {
        queue->Close();
    }
}

extern "C" {

// Ends with a jump: what the vendor's poll calls and gives back passes by this function.
ZCE_PRELOAD_EXPORT int enyx_hw_a2c_stream_poll_once(enyx_hw_a2c_stream* stream,
                                                    enyx_hw_a2c_handler handler, void* context) {
    if (!g_polls.queues.IsFirst(stream) || handler == nullptr) [[unlikely]] {
        return PollFurther(stream, handler, context);
    }
    return Poll(g_polls.queues.FindFirst(), stream, handler, context);
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
