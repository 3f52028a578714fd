#pragma once

#include <cstdint>
#include <vector>

#include "exchange/Random.h"

namespace ZceBoard {

// Makes messages that no exchange sends: of any type and of 1 to STREAM_MTU bytes, with random
// content; and instrument-map packets that are sound, but for a length or two. The same seed gives
// the same messages.
class CGarbage {
  public:
    explicit CGarbage(uint64_t seed) : m_random(seed) {}

    // The next message; good until the next call.
    const std::vector<unsigned char>& Next();

  private:
    uint32_t PickType();
    uint32_t PickLength();
    void MakeWild(uint32_t type);
    void MakeMapPacket();
    void AppendRecord(uint32_t number, uint32_t spoiling);

    CRandom m_random;
    std::vector<unsigned char> m_message;
};

}  // namespace ZceBoard
