#pragma once

#include <cstdint>

namespace ZceBoard {

// A small pseudo-random generator (SplitMix64): the same seed gives the same numbers everywhere.
class CRandom {
  public:
    explicit CRandom(uint64_t seed) : m_state(seed) {}

    uint64_t Next() {
        m_state += 0x9e3779b97f4a7c15;
        uint64_t z = m_state;
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
        z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
        return z ^ (z >> 31);
    }

    // 0 to bound - 1; bound is 1 to 2^32 - 1.
    uint32_t Below(uint32_t bound) { return static_cast<uint32_t>((Next() >> 32) * bound >> 32); }

  private:
    uint64_t m_state;
};

}  // namespace ZceBoard
