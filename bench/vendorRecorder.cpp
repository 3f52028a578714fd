// Loaded in front of the vendor's library (LD_PRELOAD): writes down each call that a start makes,
// in its order, into the file whose descriptor stands in the environment, and passes it on.

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <type_traits>

#include "DrvEnyx/enyxHw.h"
#include "vendorCalls.h"

namespace {

using velabench::PackCall;
using velabench::VendorCall;

constexpr unsigned int registerBytes = 4;
constexpr unsigned int registerBits = 32;

class CRecording {
  public:
    CRecording() {
        const char* const number = std::getenv(velabench::callsVariable);
        m_file = number == nullptr ? nullptr : fdopen(std::atoi(number), "w");
    }
    ~CRecording() {
        if (m_file != nullptr && std::fclose(m_file) != 0) {
            std::_Exit(1);
        }
    }
    CRecording(const CRecording&) = delete;
    CRecording& operator=(const CRecording&) = delete;

    void Put(VendorCall call, std::uint64_t index = 0, std::uint64_t value = 0) {
        const std::uint64_t word = PackCall(call, index, value);
        if (m_file != nullptr) {
            std::fwrite(&word, sizeof(word), 1, m_file);
        }
    }
    void PutAccess(VendorCall call, const enyx_hw_register_description& what, int result,
                   std::uint64_t value) {
        const bool bWhole = what.byte_offset % registerBytes == 0 && what.bit_offset == 0 &&
                            what.width == registerBits;
        Put(result == 0 && bWhole ? call : VendorCall::Failed, what.byte_offset / registerBytes,
            value);
    }

  private:
    std::FILE* m_file = nullptr;
};

CRecording g_recording;

// The vendor's function behind this one.
template <VendorCall call, class Result, class... Arguments>
Result Pass(Result (*)(Arguments...), const char* name,
            std::type_identity_t<Arguments>... arguments) {
    static auto* const next = reinterpret_cast<Result (*)(Arguments...)>(dlsym(RTLD_NEXT, name));
    return next(arguments...);
}

// The same for a call of which nothing but its place in the order is worth a note.
template <VendorCall call, class Result, class... Arguments>
Result Note(Result (*function)(Arguments...), const char* name,
            std::type_identity_t<Arguments>... arguments) {
    g_recording.Put(call);
    return Pass<call>(function, name, arguments...);
}

std::uint64_t NumberOf(const char* name) {
    std::uint32_t number = 0x811C9DC5;  // FNV-1a
    for (; *name != '\0'; ++name) {
        number = (number ^ static_cast<unsigned char>(*name)) * 0x01000193;
    }
    return number;
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

enyx_hw_filter* enyx_hw_filter_create(void) {
    return Note<VendorCall::FilterCreate>(enyx_hw_filter_create, __func__);
}
void enyx_hw_filter_destroy(enyx_hw_filter* filter) {
    Note<VendorCall::FilterDestroy>(enyx_hw_filter_destroy, __func__, filter);
}
int enyx_hw_filter_set_index(enyx_hw_filter* filter, uint32_t index) {
    g_recording.Put(VendorCall::FilterSetIndex, 0, index);
    return Pass<VendorCall::FilterSetIndex>(enyx_hw_filter_set_index, __func__, filter, index);
}
int enyx_hw_filter_set_name(enyx_hw_filter* filter, const char* name) {
    g_recording.Put(VendorCall::FilterSetName, 0, NumberOf(name));
    return Pass<VendorCall::FilterSetName>(enyx_hw_filter_set_name, __func__, filter, name);
}
int enyx_hw_enumerate_accelerators(const enyx_hw_filter* filter,
                                   enyx_hw_accelerator_descriptor** descriptors, size_t capacity) {
    return Note<VendorCall::FindAccelerators>(enyx_hw_enumerate_accelerators, __func__, filter,
                                              descriptors, capacity);
}
void enyx_hw_free_accelerator_descriptors(enyx_hw_accelerator_descriptor** descriptors,
                                          size_t count) {
    Note<VendorCall::FreeAccelerators>(enyx_hw_free_accelerator_descriptors, __func__, descriptors,
                                       count);
}
enyx_hw_accelerator* enyx_hw_accelerator_get(const enyx_hw_accelerator_descriptor* descriptor) {
    return Note<VendorCall::GetAccelerator>(enyx_hw_accelerator_get, __func__, descriptor);
}
int enyx_hw_accelerator_enumerate_mmios(enyx_hw_accelerator* accelerator,
                                        const enyx_hw_filter* filter,
                                        enyx_hw_mmio_descriptor** descriptors, size_t capacity) {
    return Note<VendorCall::FindMmios>(enyx_hw_accelerator_enumerate_mmios, __func__, accelerator,
                                       filter, descriptors, capacity);
}
void enyx_hw_free_mmio_descriptors(enyx_hw_mmio_descriptor** descriptors, size_t count) {
    Note<VendorCall::FreeMmios>(enyx_hw_free_mmio_descriptors, __func__, descriptors, count);
}
enyx_hw_mmio* enyx_hw_mmio_create(const enyx_hw_mmio_descriptor* descriptor) {
    return Note<VendorCall::CreateMmio>(enyx_hw_mmio_create, __func__, descriptor);
}
enyx_hw_core_tree* enyx_hw_enumerate_cores(enyx_hw_mmio* mmio) {
    return Note<VendorCall::EnumerateCores>(enyx_hw_enumerate_cores, __func__, mmio);
}
enyx_hw_core* enyx_hw_core_tree_get_root(enyx_hw_core_tree* tree) {
    return Note<VendorCall::GetRoot>(enyx_hw_core_tree_get_root, __func__, tree);
}
int enyx_hw_core_reset(enyx_hw_core* core) {
    return Note<VendorCall::ResetCore>(enyx_hw_core_reset, __func__, core);
}
int enyx_hw_core_enumerate(enyx_hw_core* root, uint16_t core_id, enyx_hw_core** cores,
                           size_t capacity) {
    g_recording.Put(VendorCall::FindCores, 0, core_id);
    return Pass<VendorCall::FindCores>(enyx_hw_core_enumerate, __func__, root, core_id, cores,
                                       capacity);
}
void enyx_hw_core_lock(enyx_hw_core* core) {
    Note<VendorCall::Lock>(enyx_hw_core_lock, __func__, core);
}
void enyx_hw_core_unlock(enyx_hw_core* core) {
    Note<VendorCall::Unlock>(enyx_hw_core_unlock, __func__, core);
}
int enyx_hw_read(enyx_hw_core* core, const enyx_hw_register_description* description,
                 uint64_t* value) {
    const int result = Pass<VendorCall::Read>(enyx_hw_read, __func__, core, description, value);
    g_recording.PutAccess(VendorCall::Read, *description, result, *value);
    return result;
}
int enyx_hw_write(enyx_hw_core* core, const enyx_hw_register_description* description,
                  uint64_t value) {
    const int result = Pass<VendorCall::Write>(enyx_hw_write, __func__, core, description, value);
    g_recording.PutAccess(VendorCall::Write, *description, result, value);
    return result;
}
int enyx_hw_accelerator_enumerate_a2c_streams(enyx_hw_accelerator* accelerator,
                                              const enyx_hw_filter* filter,
                                              enyx_hw_a2c_stream_descriptor** descriptors,
                                              size_t capacity) {
    return Note<VendorCall::FindA2c>(enyx_hw_accelerator_enumerate_a2c_streams, __func__,
                                     accelerator, filter, descriptors, capacity);
}
void enyx_hw_free_a2c_stream_descriptors(enyx_hw_a2c_stream_descriptor** descriptors,
                                         size_t count) {
    Note<VendorCall::FreeA2c>(enyx_hw_free_a2c_stream_descriptors, __func__, descriptors, count);
}
enyx_hw_a2c_stream* enyx_hw_a2c_stream_create(const enyx_hw_a2c_stream_descriptor* descriptor,
                                              uint32_t flags) {
    return Note<VendorCall::CreateA2c>(enyx_hw_a2c_stream_create, __func__, descriptor, flags);
}
int enyx_hw_a2c_stream_get_mtu(enyx_hw_a2c_stream* stream, uint32_t* mtu) {
    return Note<VendorCall::A2cMtu>(enyx_hw_a2c_stream_get_mtu, __func__, stream, mtu);
}
int enyx_hw_accelerator_enumerate_c2a_streams(enyx_hw_accelerator* accelerator,
                                              const enyx_hw_filter* filter,
                                              enyx_hw_c2a_stream_descriptor** descriptors,
                                              size_t capacity) {
    return Note<VendorCall::FindC2a>(enyx_hw_accelerator_enumerate_c2a_streams, __func__,
                                     accelerator, filter, descriptors, capacity);
}
void enyx_hw_free_c2a_stream_descriptors(enyx_hw_c2a_stream_descriptor** descriptors,
                                         size_t count) {
    Note<VendorCall::FreeC2a>(enyx_hw_free_c2a_stream_descriptors, __func__, descriptors, count);
}
enyx_hw_c2a_stream* enyx_hw_c2a_stream_create(const enyx_hw_c2a_stream_descriptor* descriptor,
                                              uint32_t flags) {
    return Note<VendorCall::CreateC2a>(enyx_hw_c2a_stream_create, __func__, descriptor, flags);
}
int enyx_hw_c2a_stream_get_mtu(enyx_hw_c2a_stream* stream, uint32_t* mtu) {
    return Note<VendorCall::C2aMtu>(enyx_hw_c2a_stream_get_mtu, __func__, stream, mtu);
}

}  // extern "C"
#pragma GCC visibility pop
