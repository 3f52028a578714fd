#pragma once

#include <atomic>

// Counts every allocation and every lock of the process, the C++ runtime's and the libraries'
// included. A program that links callCounters.cpp has these functions instead of the C library's.
namespace velatest {

extern std::atomic<unsigned long> g_allocations;
extern std::atomic<unsigned long> g_locks;

}  // namespace velatest
