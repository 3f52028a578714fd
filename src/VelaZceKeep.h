#pragma once

// Notes an object that is left to the process on purpose: nothing frees it before the process ends.
// The note keeps it reachable, so that a leak checker can tell it from a leak. Any thread.
void ZceKeepForProcess(const void* object);
