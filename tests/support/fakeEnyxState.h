#pragma once

#include <algorithm>
#include <array>
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

// A call, whose text is put together when the test asks for it: a start makes half a million.
struct EnyxCall {
    enum class Kind { Read, Write, Other };
    static constexpr std::size_t noText = static_cast<std::size_t>(-1);

    const char* name = "";  // of static storage, without the prefix
    Kind kind = Kind::Other;
    std::size_t text = noText;  // the arguments of a Kind::Other: the place in EnyxCalls::texts
    // Of an access:
    std::uint64_t byteOffset = 0;
    unsigned int width = 0;  // bits
    std::uint64_t value = 0;
};

struct EnyxCalls {
    std::vector<EnyxCall> made;
    std::vector<std::string> texts;

    std::string Text(const EnyxCall& call) const;
    void Clear();
};

// Bytes by their offset, 0 where nothing was written.
class EnyxBytes {
  public:
    std::uint8_t Get(std::uint64_t offset) const;
    void Set(std::uint64_t offset, std::uint8_t byte);
    std::uint64_t Read(std::uint64_t offset, unsigned int count) const;
    void Write(std::uint64_t offset, unsigned int count, std::uint64_t value);
    void Clear() { m_pages.clear(); }

  private:
    static constexpr std::uint64_t pageBytes = 4096;
    using Page_t = std::array<std::uint8_t, pageBytes>;

    std::map<std::uint64_t, Page_t> m_pages;
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
    EnyxBytes registers;

    std::vector<EnyxScript> scripts;
    std::optional<EnyxScript> nth;
    std::string failedCall;

    std::map<std::string, std::deque<std::vector<std::uint8_t>>, std::less<>> packets;
    std::deque<int> sendResults;
    std::function<void()> onSend;
    std::vector<std::vector<std::uint8_t>> sent;
    std::uint64_t polls = 0;
    EnyxCalls calls;
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

// Adds to the list of calls. `call` is of static storage.
void Record(EnyxState& state, const char* call, std::string arguments = "");
// Enters a call that can fail: adds it to the list; if it is to fail, its result, errno set.
std::optional<int> Enter(EnyxState& state, const char* call, std::string arguments = "");
std::optional<int> EnterAccess(EnyxState& state, const EnyxCall& access);
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
    Record(state, call, std::to_string(count));
    for (std::size_t i = 0; i < count; ++i) {
        if (Usable(state, descriptors[i], call)) {
            descriptors[i]->alive = false;
        }
    }
    errno = errnoOfVoid;
}

}  // namespace velatest
