#include "VelaZceKeep.h"

#include <mutex>
#include <vector>

void ZceKeepForProcess(const void* object) {
    static std::mutex keepMutex;
    // Never destroyed either: it must outlive every check that runs at the end of the process.
    static auto* const pKept = new std::vector<const void*>;
    const std::lock_guard<std::mutex> lock(keepMutex);
    pKept->push_back(object);
}
