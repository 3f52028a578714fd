#pragma once

#include <cstddef>

// How often operator new was called in this program so far, by any thread.
std::size_t AllocationCount();
