#pragma once

#include <memory>

// Notes an object that is left to the process on purpose: nothing frees it before the process ends.
// The note keeps it reachable, so that a leak checker can tell it from a leak. Any thread.
// Throws if there is no memory for the note.
void ZceKeepForProcess(const void* object);

// As above, of an object that the process takes over; if it cannot be noted, it is destroyed.
template <typename Object>
Object* ZceKept(std::unique_ptr<Object> object) {
    ZceKeepForProcess(object.get());
    return object.release();
}
