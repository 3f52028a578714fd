#include "fakeEnyx.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <utility>

#include "fakeEnyxState.h"

namespace velatest {

namespace {

constexpr std::uint16_t usualCoreId = 474;
constexpr int usualChannels = 16;
constexpr std::uint32_t usualMtu = 2048;
constexpr std::uint64_t bytesPerRegister = 4;
constexpr int mostRuns = 1000;

void SetUp(EnyxState& state) {
    state.boards = {0};
    state.cores = {{usualCoreId, 1}};
    state.streams.clear();
    for (int channel = 0; channel < usualChannels; ++channel) {
        state.streams.push_back("CUSTOM_CHAN" + std::to_string(channel) + "_DATA");
    }
    state.busyStreams.clear();
    state.sharedStreams = false;
    state.a2cMtu = usualMtu;
    state.c2aMtu = usualMtu;
    state.counters = {};
    state.registers.Clear();
    state.scripts.clear();
    state.nth.reset();
    state.failedCall.clear();
    state.packets.clear();
    state.sendResults.clear();
    state.onSend = nullptr;
    state.sent.clear();
    state.polls = 0;
    state.calls.Clear();
    state.onCall.clear();
}

// The state, locked.
struct Locked {
    EnyxState& state = TheEnyxState();
    std::lock_guard<std::mutex> guard{state.mutex};
    EnyxState* operator->() const { return &state; }
};

}  // namespace

EnyxState& TheEnyxState() {
    // Never destroyed: the drivers' static state may outlive any static of the tests.
    static EnyxState* state = [] {
        auto* fresh = new EnyxState;
        SetUp(*fresh);
        return fresh;
    }();
    return *state;
}

std::optional<int> ScriptedFailure(EnyxState& state, std::string_view call) {
    for (EnyxScript& script : state.scripts) {
        if (script.call != call) {
            continue;
        }
        const bool always = script.nth == 0;
        if (always || --script.nth == 0) {
            const int result = script.result;
            const int reason = script.errnoValue;
            if (!always) {
                script.call.clear();  // done
            }
            errno = reason;
            return result;
        }
    }
    return std::nullopt;
}

std::string EnyxCalls::Text(const EnyxCall& call) const {
    if (call.kind == EnyxCall::Kind::Other) {
        return call.text == EnyxCall::noText ? call.name
                                             : std::string(call.name) + " " + texts[call.text];
    }
    char text[128];
    const int length = std::snprintf(text, sizeof text, "%s off=%" PRIu64 " width=%u", call.name,
                                     call.byteOffset, call.width);
    if (call.kind == EnyxCall::Kind::Write) {
        std::snprintf(text + length, sizeof text - static_cast<std::size_t>(length),
                      " value=0x%" PRIx64, call.value);
    }
    return text;
}

void EnyxCalls::Clear() {
    made.clear();
    texts.clear();
}

std::uint8_t EnyxBytes::Get(std::uint64_t offset) const {
    return static_cast<std::uint8_t>(Read(offset, 1));
}

void EnyxBytes::Set(std::uint64_t offset, std::uint8_t byte) {
    Write(offset, 1, byte);
}

std::uint64_t EnyxBytes::Read(std::uint64_t offset, unsigned int count) const {
    std::uint64_t value = 0;
    auto page = m_pages.end();
    for (unsigned int i = 0; i < count; ++i) {
        const std::uint64_t at = offset + i;
        if (i == 0 || at % pageBytes == 0) {
            page = m_pages.find(at / pageBytes);
        }
        if (page != m_pages.end()) {
            value |= static_cast<std::uint64_t>(page->second.data()[at % pageBytes]) << (8 * i);
        }
    }
    return value;
}

void EnyxBytes::Write(std::uint64_t offset, unsigned int count, std::uint64_t value) {
    std::uint8_t* page = nullptr;
    for (unsigned int i = 0; i < count; ++i) {
        const std::uint64_t at = offset + i;
        if (i == 0 || at % pageBytes == 0) {
            page = m_pages[at / pageBytes].data();
        }
        page[at % pageBytes] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

namespace {

void Add(EnyxState& state, const EnyxCall& call) {
    state.calls.made.push_back(call);
    if (state.onCall.empty()) {
        return;
    }
    const auto hook = state.onCall.find(std::string_view(call.name));
    if (hook != state.onCall.end()) {
        const int before = errno;
        hook->second();
        errno = before;
    }
}

// Of a call that has been added.
std::optional<int> FailureOf(EnyxState& state, const char* call) {
    if (state.nth && --state.nth->nth == 0) {
        const EnyxScript script = *state.nth;
        state.nth.reset();
        state.failedCall = call;
        errno = script.errnoValue;
        return script.result;
    }
    return ScriptedFailure(state, call);
}

}  // namespace

void Record(EnyxState& state, const char* call, std::string arguments) {
    EnyxCall made;
    made.name = call;
    if (!arguments.empty()) {
        made.text = state.calls.texts.size();
        state.calls.texts.push_back(std::move(arguments));
    }
    Add(state, made);
}

std::optional<int> Enter(EnyxState& state, const char* call, std::string arguments) {
    Record(state, call, std::move(arguments));
    return FailureOf(state, call);
}

std::optional<int> EnterAccess(EnyxState& state, const EnyxCall& access) {
    Add(state, access);
    return FailureOf(state, access.name);
}

bool Usable(const EnyxState& state, const EnyxObject* handle, const char* call) {
    if (handle != nullptr && state.known.contains(handle) && handle->alive) {
        return true;
    }
    if (handle != nullptr) {
        ADD_FAILURE() << "enyx_hw_" << call
                      << (state.known.contains(handle) ? ": the object was freed before"
                                                       : ": not an object of this library");
    }
    errno = EINVAL;
    return false;
}

void Destroy(const char* call, EnyxObject* handle) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    Record(state, call);
    if (Usable(state, handle, call)) {
        handle->alive = false;
        for (const auto& object : state.objects) {
            object->alive = object->alive && object->owner != handle;
        }
    }
    errno = errnoOfVoid;
}

void FakeEnyx::Reset() {
    const Locked state;
    SetUp(state.state);
    for (const auto& object : state->objects) {
        object->alive = false;
    }
}

void FakeEnyx::SetBoards(std::vector<std::uint32_t> buses) {
    const Locked state;
    state->boards = std::move(buses);
}

void FakeEnyx::SetCores(std::uint16_t coreId, int count) {
    const Locked state;
    state->cores[coreId] = count;
}

void FakeEnyx::SetStreams(std::vector<std::string> names) {
    const Locked state;
    state->streams = std::move(names);
}

void FakeEnyx::SetStreamBusy(const std::string& name, bool busy) {
    const Locked state;
    if (busy) {
        state->busyStreams.insert(name);
    } else {
        state->busyStreams.erase(name);
    }
}

void FakeEnyx::ShareStreams() {
    const Locked state;
    state->sharedStreams = true;
}

void FakeEnyx::SetMtu(std::uint32_t a2c, std::uint32_t c2a) {
    const Locked state;
    state->a2cMtu = a2c;
    state->c2aMtu = c2a;
}

void FakeEnyx::SetCounters(const EnyxCounters& counters) {
    const Locked state;
    state->counters = counters;
}

void FakeEnyx::SetBytes(std::uint64_t byteOffset, const std::vector<std::uint8_t>& bytes) {
    const Locked state;
    for (const std::uint8_t byte : bytes) {
        state->registers.Set(byteOffset++, byte);
    }
}

std::vector<std::uint8_t> FakeEnyx::Bytes(std::uint64_t byteOffset, std::size_t count) {
    const Locked state;
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < count; ++i) {
        bytes.push_back(state->registers.Get(byteOffset + i));
    }
    return bytes;
}

void FakeEnyx::SetRegister(std::uint64_t index, std::uint32_t value) {
    std::vector<std::uint8_t> bytes;
    for (unsigned int i = 0; i < bytesPerRegister; ++i) {
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    }
    SetBytes(index * bytesPerRegister, bytes);
}

std::uint32_t FakeEnyx::Register(std::uint64_t index) {
    std::uint32_t value = 0;
    unsigned int shift = 0;
    for (const std::uint8_t byte : Bytes(index * bytesPerRegister, bytesPerRegister)) {
        value |= static_cast<std::uint32_t>(byte) << shift;
        shift += 8;
    }
    return value;
}

void FakeEnyx::Fail(const std::string& call, int nth, int errnoValue, int result) {
    const Locked state;
    state->scripts.push_back({call, nth, errnoValue, result});
}

void FakeEnyx::FailAlways(const std::string& call, int errnoValue, int result) {
    Fail(call, 0, errnoValue, result);
}

void FakeEnyx::FailNth(int nth, int errnoValue, int result) {
    const Locked state;
    state->nth = EnyxScript{"", nth, errnoValue, result};
    state->failedCall.clear();
}

void FakeEnyx::ClearFailures() {
    const Locked state;
    state->scripts.clear();
    state->nth.reset();
}

std::string FakeEnyx::FailedCall() {
    const Locked state;
    return state->failedCall;
}

int FakeEnyx::ForEachFailure(int errnoValue, const std::function<void()>& run) {
    for (int nth = 1; nth <= mostRuns; ++nth) {
        SCOPED_TRACE("vendor call " + std::to_string(nth) + " fails");
        Reset();
        FailNth(nth, errnoValue);
        run();
        if (FailedCall().empty()) {
            return nth;
        }
    }
    ADD_FAILURE() << "the run does not come to an end";
    return mostRuns;
}

void FakeEnyx::QueuePacket(const std::string& stream, std::vector<std::uint8_t> packet) {
    const Locked state;
    state->packets[stream].push_back(std::move(packet));
}

void FakeEnyx::QueueSendResults(std::vector<int> results) {
    const Locked state;
    state->sendResults.insert(state->sendResults.end(), results.begin(), results.end());
}

void FakeEnyx::OnSend(std::function<void()> hook) {
    const Locked state;
    state->onSend = std::move(hook);
}

std::vector<std::vector<std::uint8_t>> FakeEnyx::SentPackets() {
    const Locked state;
    return state->sent;
}

std::uint64_t FakeEnyx::PollCount() {
    const Locked state;
    return state->polls;
}

std::vector<std::string> FakeEnyx::Calls() {
    const Locked state;
    std::vector<std::string> texts;
    texts.reserve(state->calls.made.size());
    for (const EnyxCall& call : state->calls.made) {
        texts.push_back(state->calls.Text(call));
    }
    return texts;
}

int FakeEnyx::CountOf(const std::string& call) {
    const Locked state;
    return static_cast<int>(
        std::count_if(state->calls.made.begin(), state->calls.made.end(),
                      [&call](const EnyxCall& made) { return made.name == call; }));
}

void FakeEnyx::OnCall(const std::string& call, std::function<void()> hook) {
    const Locked state;
    state->onCall[call] = std::move(hook);
}

void FakeEnyx::ClearCalls() {
    const Locked state;
    state->calls.Clear();
}

std::map<std::string, int> FakeEnyx::Live() {
    static const std::set<std::string_view> counted = {
        "filter",         "accelerator_descriptor", "mmio_descriptor", "mmio",
        "a2c_descriptor", "c2a_descriptor",         "a2c_stream",      "c2a_stream"};
    const Locked state;
    std::map<std::string, int> live;
    for (const auto& object : state->objects) {
        if (object->alive && counted.contains(object->kind)) {
            ++live[object->kind];
        }
    }
    return live;
}

}  // namespace velatest
