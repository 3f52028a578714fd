#pragma once

// The clock of these tests: stands, but for sleeps. Local time is UTC.
namespace anomaly {

void SetClock(unsigned int hhmmss);  // of 2026-11-20
unsigned int ClockTime();            // hhmmss
constexpr unsigned int clockDate = 20261120;

}  // namespace anomaly
