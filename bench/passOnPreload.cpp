// The least that a library in front of the vendor's does: it passes the poll on (LD_PRELOAD).

#include <dlfcn.h>

#include "DrvEnyx/enyxHw.h"

namespace {

decltype(&enyx_hw_a2c_stream_poll_once) g_next = nullptr;

__attribute__((constructor)) void FindNext() {
    g_next = reinterpret_cast<decltype(g_next)>(dlsym(RTLD_NEXT, "enyx_hw_a2c_stream_poll_once"));
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int enyx_hw_a2c_stream_poll_once(
    enyx_hw_a2c_stream* stream, enyx_hw_a2c_handler handler, void* context) {
    return g_next(stream, handler, context);
}
