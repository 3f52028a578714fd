// libzce-watch.so: counts what an application polls, and shows it in a page of shared memory.

#include <pthread.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "DrvEnyx/enyxHw.h"
#include "preload/Next.h"
#include "preload/Preload.h"
#include "preload/StreamTable.h"
#include "watch/PageFile.h"
#include "watch/StreamWatch.h"
#include "watch/Ticks.h"
#include "watch/WatchPage.h"

namespace {

using ZceWatch::CStreamWatch;
static_assert(ZcePreload::BUS_UNKNOWN == ZceWatch::BUS_NOT_KNOWN);

// There before any code runs: a poll looks at nothing else of what is static.
constinit ZcePreload::CStreamTable<CStreamWatch> g_streams;

// All else, never destroyed: a program may poll after its static objects are gone. Under the lock.
struct State {
    std::string directory;  // absolute; empty: not named
    ZceWatch::TickSource source = ZceWatch::FindTickSource();
    ZceWatch::CTickRate rate{source};
    enum class Making { NotTried, Made, Failed } making = Making::NotTried;
    ZceWatch::CPageFile page;
    ZceWatch::VendorCalls calls;
};

State& Get() {
    static auto* state = new State;
    return *state;
}

// An application that changes its directory later does not move its page.
std::string Directory() {
    const char* value = std::getenv("ZCE_WATCH");  // NOLINT(concurrency-mt-unsafe): no thread yet
    std::string name = value != nullptr ? value : "";
    std::error_code failed;
    const std::filesystem::path path = std::filesystem::absolute(name, failed);
    if (failed || name.empty()) {
        return name;
    }
    name = path.lexically_normal().string();
    if (name.size() > 1 && name.ends_with('/')) {
        name.pop_back();
    }
    return name;
}

void FindCalls(ZceWatch::VendorCalls& calls) {
#define FIND(call) ZcePreload::Next(&(call), #call)
    calls.poll = FIND(enyx_hw_a2c_stream_poll_once);
    calls.backPressure = FIND(enyx_hw_a2c_stream_stats_get_backpressure);
    calls.packets = FIND(enyx_hw_a2c_stream_stats_get_packet_count);
    calls.fifoErrors = FIND(enyx_hw_a2c_stream_stats_get_fifo_errors);
    calls.errors = FIND(enyx_hw_a2c_stream_stats_get_errors);
#undef FIND
    // The software board's library alone has it.
    calls.boardState = reinterpret_cast<int (*)()>(ZcePreload::FindBehind("zce_board_state"));
}

// The page, made for the first stream.
bool HasPage(State& state) {
    if (state.making == State::Making::NotTried) {
        state.making = State::Making::Failed;
        std::string error = "ZCE_WATCH names no directory";
        if (!state.directory.empty() &&
            state.page.Open(state.directory, {state.source, state.rate.PerSecond()}, error)) {
            FindCalls(state.calls);
            state.making = State::Making::Made;
        } else {
            ZcePreload::SayHere(error + ": nothing is counted");
        }
    }
    return state.making == State::Making::Made;
}

[[gnu::cold, gnu::noinline]] int PassOn(enyx_hw_a2c_stream* stream, enyx_hw_a2c_handler handler,
                                        void* context) {
    ZCE_PRELOAD_NEXT(enyx_hw_a2c_stream_poll_once);
    return next(stream, handler, context);
}

// The poll at which the clock is read. What comes once a second is done behind a poll that found
// nothing: then there is time, and no handler has closed the stream.
[[gnu::noinline]] int MeasuredPoll(CStreamWatch* watch, enyx_hw_a2c_stream* stream) {
    watch->Tick();
    const int result = watch->NextPoll()(stream, &CStreamWatch::OnPacket, watch);
    if (result == 0 && watch->CareIsDue()) [[unlikely]] {
        watch->TakeCare(stream);
    }
    return result;
}

inline int Poll(CStreamWatch* watch, enyx_hw_a2c_stream* stream, enyx_hw_a2c_handler handler,
                void* context) {
    if (watch->CountPoll(handler, context)) [[unlikely]] {
        return MeasuredPoll(watch, stream);
    }
    return watch->NextPoll()(stream, &CStreamWatch::OnPacket, watch);
}

// Of a stream that is not the table's first.
[[gnu::noinline]] int PollFurther(enyx_hw_a2c_stream* stream, enyx_hw_a2c_handler handler,
                                  void* context) {
    CStreamWatch* watch = g_streams.Find(stream);
    if (watch == nullptr || handler == nullptr) [[unlikely]] {
        return PassOn(stream, handler, context);
    }
    return Poll(watch, stream, handler, context);
}

void BeforeFork() {
    ZcePreload::GetShared().mutex.lock();
}

void AfterFork(bool child) {
    if (child && !Get().page.BecomeChild()) {
        Get().making = State::Making::Failed;
        g_streams.Clear();
    }
    ZcePreload::GetShared().mutex.unlock();
}

// The environment is read before the program can change it.
__attribute__((constructor)) void Begin() {
    Get().directory = Directory();
    pthread_atfork(
        &BeforeFork, [] { AfterFork(false); }, [] { AfterFork(true); });
}

// Runs behind the program's own exit handlers and the destructors of its static objects.
__attribute__((destructor)) void End() {
    Get().page.Finish();
}

}  // namespace

const char* const ZcePreload::LIBRARY = "zce-watch";
const char* const ZcePreload::NOT_DONE = "not counted";

void ZcePreload::StreamOpened(enyx_hw_a2c_stream* stream, const CHandles::Stream& what) {
    State& state = Get();
    if (!HasPage(state)) {
        return;
    }
    CStreamWatch* watch = state.page.StreamOf(what.bus, what.channel);
    if (watch == nullptr) {
        SayHere("too many channels: one is not counted");
        return;
    }
    watch->Opened(state.calls);
    if (!g_streams.Add(stream, watch)) {
        watch->Closed(stream);
        SayHere("too many open streams: one is not counted");
    }
}

void ZcePreload::StreamCloses(enyx_hw_a2c_stream* stream) {
    CStreamWatch* watch = g_streams.Remove(stream);
    if (watch != nullptr) {
        watch->Closed(stream);
    }
}

extern "C" {

// Ends with a jump: what the vendor's poll calls and gives back passes by this function.
ZCE_PRELOAD_EXPORT int enyx_hw_a2c_stream_poll_once(enyx_hw_a2c_stream* stream,
                                                    enyx_hw_a2c_handler handler, void* context) {
    if (!g_streams.IsFirst(stream) || handler == nullptr) [[unlikely]] {
        return PollFurther(stream, handler, context);
    }
    return Poll(g_streams.FindFirst(), stream, handler, context);
}

}  // extern "C"
