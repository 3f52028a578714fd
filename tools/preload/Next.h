#pragma once

#include <dlfcn.h>

#include <cerrno>
#include <string>
#include <type_traits>

#include "preload/Preload.h"

namespace ZcePreload {

// What the libraries behind this one have under the name, null: nothing. For the code of a library
// that is loaded in front of the vendor's: "behind" is from the library that this is compiled into.
inline void* FindBehind(const char* name) {
    void* found = dlsym(RTLD_NEXT, name);
    if (found == nullptr) {
        // A program that loads the vendor's library for itself alone.
        void* library = dlopen("libenyx-hw-c.so.5", RTLD_LAZY | RTLD_NOLOAD);
        found = library != nullptr ? dlsym(library, name) : nullptr;
    }
    return found;
}

// For a library that is not there at all: the call fails.
template <class Result, class... Arguments>
Result Absent(Arguments... /*unused*/) {
    errno = ENOSYS;
    if constexpr (std::is_pointer_v<Result>) {
        return nullptr;
    } else if constexpr (!std::is_void_v<Result>) {
        return Result{-1};
    }
}

// The call behind this library's.
template <class Result, class... Arguments>
auto Next(Result (* /*unused*/)(Arguments...), const char* name) -> Result (*)(Arguments...) {
    void* found = FindBehind(name);
    if (found == nullptr) {
        SayHere(std::string(name) + ": no library has it");
        return &Absent<Result, Arguments...>;
    }
    return reinterpret_cast<Result (*)(Arguments...)>(found);
}

}  // namespace ZcePreload

// `next`: the call that the one with this name stands in front of.
#define ZCE_PRELOAD_NEXT(call) static const auto next = ZcePreload::Next(&(call), #call)
