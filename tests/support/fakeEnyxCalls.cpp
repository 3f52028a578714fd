#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "fakeEnyxState.h"

namespace {

using namespace velatest;  // NOLINT(google-build-using-namespace)

// Whether a register access may be made: a core, its lock held by this thread, whole bytes.
bool Accessible(const EnyxState& state, const enyx_hw_core* core,
                const enyx_hw_register_description& description, const char* call) {
    if (!Usable(state, core, call)) {
        return false;
    }
    if (core->holder != std::this_thread::get_id()) {
        ADD_FAILURE() << "enyx_hw_" << call << " without the core's lock";
    }
    if (description.bit_offset != 0 || description.width == 0 || description.width > 64 ||
        description.width % 8 != 0) {
        ADD_FAILURE() << "enyx_hw_" << call << " of bits " << +description.bit_offset << "+"
                      << +description.width;
        errno = EINVAL;
        return false;
    }
    return true;
}

}  // namespace

extern "C" {

enyx_hw_filter* enyx_hw_filter_create(void) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    return Enter(state, "filter_create") ? nullptr : Make<enyx_hw_filter>(state, "filter");
}

void enyx_hw_filter_destroy(enyx_hw_filter* filter) {
    Destroy("filter_destroy", filter);
}

int enyx_hw_filter_set_index(enyx_hw_filter* filter, uint32_t index) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    if (const auto failure = Enter(state, "filter_set_index", std::to_string(index))) {
        return *failure;
    }
    if (!Usable(state, filter, "filter_set_index")) {
        return -1;
    }
    filter->wantedIndex = index;
    return 0;
}

int enyx_hw_filter_set_name(enyx_hw_filter* filter, const char* name) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    if (const auto failure = Enter(state, "filter_set_name", name)) {
        return *failure;
    }
    if (!Usable(state, filter, "filter_set_name")) {
        return -1;
    }
    filter->wantedName = name;
    return 0;
}

int enyx_hw_enumerate_accelerators(const enyx_hw_filter* filter,
                                   enyx_hw_accelerator_descriptor** descriptors, size_t capacity) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    std::vector<Candidate> boards;
    for (const std::uint32_t bus : state.boards) {
        boards.push_back({bus, ""});
    }
    return Enumerate(state, {"enumerate_accelerators", "accelerator_descriptor", nullptr, true},
                     filter, descriptors, capacity, boards);
}

void enyx_hw_free_accelerator_descriptors(enyx_hw_accelerator_descriptor** descriptors,
                                          size_t count) {
    FreeDescriptors("free_accelerator_descriptors", descriptors, count);
}

enyx_hw_accelerator* enyx_hw_accelerator_get(const enyx_hw_accelerator_descriptor* descriptor) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    if (Enter(state, "accelerator_get") || !Usable(state, descriptor, "accelerator_get")) {
        return nullptr;
    }
    auto* accelerator = Make<enyx_hw_accelerator>(state, "accelerator");
    accelerator->index = descriptor->index;
    return accelerator;
}

int enyx_hw_accelerator_enumerate_mmios(enyx_hw_accelerator* accelerator,
                                        const enyx_hw_filter* filter,
                                        enyx_hw_mmio_descriptor** descriptors, size_t capacity) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    return Enumerate(state, {"accelerator_enumerate_mmios", "mmio_descriptor", accelerator, false},
                     filter, descriptors, capacity, {{0, ""}});
}

void enyx_hw_free_mmio_descriptors(enyx_hw_mmio_descriptor** descriptors, size_t count) {
    FreeDescriptors("free_mmio_descriptors", descriptors, count);
}

enyx_hw_mmio* enyx_hw_mmio_create(const enyx_hw_mmio_descriptor* descriptor) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    if (Enter(state, "mmio_create") || !Usable(state, descriptor, "mmio_create")) {
        return nullptr;
    }
    return Make<enyx_hw_mmio>(state, "mmio");
}

void enyx_hw_mmio_destroy(enyx_hw_mmio* mmio) {
    Destroy("mmio_destroy", mmio);
}

enyx_hw_core_tree* enyx_hw_enumerate_cores(enyx_hw_mmio* mmio) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    if (Enter(state, "enumerate_cores") || !Usable(state, mmio, "enumerate_cores")) {
        return nullptr;
    }
    return Make<enyx_hw_core_tree>(state, "core_tree", mmio);
}

enyx_hw_core* enyx_hw_core_tree_get_root(enyx_hw_core_tree* tree) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    if (Enter(state, "core_tree_get_root") || !Usable(state, tree, "core_tree_get_root")) {
        return nullptr;
    }
    return Make<enyx_hw_core>(state, "root", tree->owner);
}

int enyx_hw_core_reset(enyx_hw_core* core) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    if (const auto failure = Enter(state, "core_reset")) {
        return *failure;
    }
    return Usable(state, core, "core_reset") ? 0 : -1;
}

int enyx_hw_core_enumerate(enyx_hw_core* root, uint16_t core_id, enyx_hw_core** cores,
                           size_t capacity) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    const auto failure =
        Enter(state, "core_enumerate",
              "id=" + std::to_string(core_id) + " capacity=" + std::to_string(capacity));
    if (failure && *failure < 0) {
        return *failure;
    }
    if (!Usable(state, root, "core_enumerate")) {
        return -1;
    }
    const auto found = state.cores.find(core_id);
    const int count = failure.value_or(found == state.cores.end() ? 0 : found->second);
    for (std::size_t i = 0; i < std::min(capacity, static_cast<std::size_t>(count)); ++i) {
        cores[i] = Make<enyx_hw_core>(state, "core", root->owner);
    }
    if (count == 0) {
        errno = errnoOfNothing;
    }
    return count;
}

void enyx_hw_core_lock(enyx_hw_core* core) {
    EnyxState& state = TheEnyxState();
    {
        const std::lock_guard<std::mutex> guard(state.mutex);
        if (!Usable(state, core, "core_lock")) {
            Record(state, "core_lock");
            return;
        }
        if (core->holder == std::this_thread::get_id()) {
            ADD_FAILURE() << "enyx_hw_core_lock by the thread that holds the lock";
            return;
        }
    }
    core->lock.lock();
    const std::lock_guard<std::mutex> guard(state.mutex);
    core->holder = std::this_thread::get_id();
    Record(state, "core_lock");
    errno = errnoOfVoid;
}

void enyx_hw_core_unlock(enyx_hw_core* core) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    Record(state, "core_unlock");
    if (!Usable(state, core, "core_unlock")) {
        return;
    }
    if (core->holder != std::this_thread::get_id()) {
        ADD_FAILURE() << "enyx_hw_core_unlock by a thread that does not hold the lock";
        return;
    }
    core->holder = {};
    core->lock.unlock();
    errno = errnoOfVoid;
}

int enyx_hw_read(enyx_hw_core* core, const enyx_hw_register_description* description,
                 uint64_t* value) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    if (const auto failure = EnterAccess(state, {"read", EnyxCall::Kind::Read, EnyxCall::noText,
                                                 description->byte_offset, description->width})) {
        return *failure;
    }
    if (!Accessible(state, core, *description, "read")) {
        return -1;
    }
    *value = state.registers.Read(description->byte_offset, description->width / 8U);
    return 0;
}

int enyx_hw_write(enyx_hw_core* core, const enyx_hw_register_description* description,
                  uint64_t value) {
    EnyxState& state = TheEnyxState();
    const std::lock_guard<std::mutex> guard(state.mutex);
    if (const auto failure =
            EnterAccess(state, {"write", EnyxCall::Kind::Write, EnyxCall::noText,
                                description->byte_offset, description->width, value})) {
        return *failure;
    }
    if (!Accessible(state, core, *description, "write")) {
        return -1;
    }
    state.registers.Write(description->byte_offset, description->width / 8U, value);
    return 0;
}

}  // extern "C"
