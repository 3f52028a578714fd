#pragma once

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "DrvEnyx/enyxHw.h"
#include "fakeEnyx.h"

// What fakeEnyx.cpp (the script) and fakeEnyxCalls.cpp (the C calls) share.
namespace velatest {

// What a handle of the library points to. Objects are never deallocated, only marked dead, so that
// a use after the free is seen and not undefined.
struct EnyxObject {
    const char* kind = "";
    bool alive = true;
    const EnyxObject* owner = nullptr;  // dies with it
    std::uint32_t index = 0;
    std::string name;

    EnyxObject() = default;
    EnyxObject(const EnyxObject&) = delete;
    EnyxObject& operator=(const EnyxObject&) = delete;
    virtual ~EnyxObject() = default;
};

struct EnyxScript {
    std::string call;
    int nth = 1;  // counts down; 0: every call
    int errnoValue = 0;
    int result = -1;
};

struct EnyxState {
    std::mutex mutex;
    std::vector<std::unique_ptr<EnyxObject>> objects;
    std::set<const EnyxObject*> known;

    std::vector<std::uint32_t> boards;
    std::map<std::uint16_t, int> cores;
    std::vector<std::string> streams;
    std::set<std::string> busyStreams;
    bool sharedStreams = false;
    std::uint32_t a2cMtu = 0;
    std::uint32_t c2aMtu = 0;
    EnyxCounters counters;
    std::map<std::uint64_t, std::uint8_t> registers;

    std::vector<EnyxScript> scripts;
    std::optional<EnyxScript> nth;
    std::string failedCall;

    std::map<std::string, std::deque<std::vector<std::uint8_t>>, std::less<>> packets;
    std::deque<int> sendResults;
    std::function<void()> onSend;
    std::vector<std::vector<std::uint8_t>> sent;
    std::uint64_t polls = 0;
    std::vector<std::string> calls;
    std::map<std::string, std::function<void()>, std::less<>> onCall;
};

EnyxState& TheEnyxState();

// The result of a scripted failure of this call, errno set; none: the call goes its way.
std::optional<int> ScriptedFailure(EnyxState& state, std::string_view call);

}  // namespace velatest

struct enyx_hw_filter : velatest::EnyxObject {
    std::optional<std::uint32_t> wantedIndex;
    std::optional<std::string> wantedName;
};
struct enyx_hw_accelerator_descriptor : velatest::EnyxObject {};
struct enyx_hw_accelerator : velatest::EnyxObject {};
struct enyx_hw_mmio_descriptor : velatest::EnyxObject {};
struct enyx_hw_mmio : velatest::EnyxObject {};
struct enyx_hw_core_tree : velatest::EnyxObject {};
struct enyx_hw_core : velatest::EnyxObject {
    std::mutex lock;
    std::thread::id holder;
};
struct enyx_hw_a2c_stream_descriptor : velatest::EnyxObject {};
struct enyx_hw_a2c_stream : velatest::EnyxObject {};
struct enyx_hw_c2a_stream_descriptor : velatest::EnyxObject {};
struct enyx_hw_c2a_stream : velatest::EnyxObject {};

namespace velatest {

// What a call without a result leaves in errno, and an enumeration that found nothing.
constexpr int errnoOfVoid = ENOTTY;
constexpr int errnoOfNothing = ENODEV;

// Adds to the list of calls.
void Record(EnyxState& state, std::string text);
// Enters a call that can fail: adds it to the list; if it is to fail, its result, errno set.
std::optional<int> Enter(EnyxState& state, const char* call, const std::string& arguments = "");
// Whether the handle may be used; if not, errno is EINVAL, and all but null is the caller's fault.
bool Usable(const EnyxState& state, const EnyxObject* handle, const char* call);
void Destroy(const char* call, EnyxObject* handle);

template <typename Object>
Object* Make(EnyxState& state, const char* kind, const EnyxObject* owner = nullptr) {
    auto object = std::make_unique<Object>();
    object->kind = kind;
    object->owner = owner;
    Object* handle = object.get();
    state.known.insert(handle);
    state.objects.push_back(std::move(object));
    return handle;
}

struct Candidate {
    std::uint32_t index;
    std::string name;
};

struct Enumeration {
    const char* call;
    const char* kind;
    const EnyxObject* on;  // the object enumerated; null: the machine
    bool onMachine;
};

template <typename Descriptor>
int Enumerate(EnyxState& state, const Enumeration& what, const enyx_hw_filter* filter,
              Descriptor** descriptors, std::size_t capacity,
              const std::vector<Candidate>& candidates) {
    const std::optional<int> failure = Enter(state, what.call);
    if (failure && *failure <= 0) {
        return *failure;
    }
    if (!failure && ((!what.onMachine && !Usable(state, what.on, what.call)) ||
                     !Usable(state, filter, what.call))) {
        return -1;
    }
    std::vector<Candidate> found;
    if (failure) {
        found.assign(static_cast<std::size_t>(*failure), Candidate{0, ""});
    } else {
        std::copy_if(candidates.begin(), candidates.end(), std::back_inserter(found),
                     [filter](const Candidate& candidate) {
                         return filter->wantedIndex.value_or(candidate.index) == candidate.index &&
                                filter->wantedName.value_or(candidate.name) == candidate.name;
                     });
    }
    for (std::size_t i = 0; i < std::min(capacity, found.size()); ++i) {
        descriptors[i] = Make<Descriptor>(state, what.kind);
        descriptors[i]->index = found[i].index;
        descriptors[i]->name = found[i].name;
    }
    if (found.empty()) {
        errno = errnoOfNothing;
    }
    return static_cast<int>(found.size());
}

template <typename Descriptor>
void FreeDescriptors(const char* call, Descriptor** descriptors, std::size_t count) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    Record(state, std::string(call) + " " + std::to_string(count));
    for (std::size_t i = 0; i < count; ++i) {
        if (Usable(state, descriptors[i], call)) {
            descriptors[i]->alive = false;
        }
    }
    errno = errnoOfVoid;
}

}  // namespace velatest
