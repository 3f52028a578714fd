#pragma once

#include <ctime>

// The log service's idea of the time, shared by the line header and the file rotation.
namespace elogtime {

// Who asks. A signal handler may have interrupted its thread anywhere, so that the C library's time
// zone lock may be held by the very code that cannot go on before the handler has returned.
enum class Caller { ordinary, signalHandler };

// Reads the clock; the reading becomes the most recent stamped time.
std::time_t Stamp();
// The most recent stamped time, 0 before the first.
std::time_t LastStamp();

// Local time of `at` in `result`; false, `result` untouched, if it cannot be converted. For a
// signal handler it is computed from the UTC offset of the last ordinary conversion.
bool ToLocal(std::time_t at, Caller caller, std::tm& result);

}  // namespace elogtime
