#pragma once

#include <cerrno>
#include <cstdint>
#include <exception>
#include <mutex>
#include <string>

#include "DrvEnyx/enyxHw.h"
#include "preload/Handles.h"
#include "preload/Say.h"

// What libraries have in common that are loaded (LD_PRELOAD) in front of the vendor's and look at
// an application's polls: preloadCalls.cpp, compiled into each of them, follows the handles from
// the board to its streams and tells the library which stream opens and closes. Each call makes the
// call that it stands for, with the caller's arguments, and gives back its result and its errno.
// Several such libraries may stand one behind the other.
namespace ZcePreload {

// ---- What each such library defines ----

extern const char* const LIBRARY;   // how it names itself: "zce-record"
extern const char* const NOT_DONE;  // what does not happen if something is wrong: "not recorded"

// A stream of a channel was opened, or is about to be closed: called on the thread that does so,
// under the lock, which is that of the handles. What they throw is told.
void StreamOpened(enyx_hw_a2c_stream* stream, const CHandles::Stream& what);
void StreamCloses(enyx_hw_a2c_stream* stream);

// ---- What each of them has ----

// The handles, and the lock under which all but the polls themselves happens. Never destroyed: a
// program may poll after its static objects are gone.
struct Shared {
    std::mutex mutex;
    CHandles handles;
};
Shared& GetShared();

inline void SayHere(const std::string& text) {
    Say(LIBRARY, text);
}

// The library's own doing between two looks of the program at errno. What fails in it (there is
// only memory that can) does not happen, and the program goes on.
template <class Work>
void Aside(Work work) noexcept {
    const int kept = errno;
    try {
        Shared& shared = GetShared();
        const std::lock_guard guard(shared.mutex);
        work(shared.handles);
    } catch (const std::exception& reason) {
        SayHere(std::string("something is ") + NOT_DONE + ": " + reason.what());
    }
    errno = kept;
}

}  // namespace ZcePreload

#define ZCE_PRELOAD_EXPORT __attribute__((visibility("default")))
