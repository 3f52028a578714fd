#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ZceBoardMsg.h"
#include "benchBoard.h"

// The board's messages of the two sizes, for the board and for what stands beside it.
namespace velabench {

struct Kind {
    std::uint32_t type;
    std::uint32_t bodySize;
    const char* name;
    std::uint32_t Size() const { return ZCE_BOARD_HEAD_SIZE + bodySize; }
};
constexpr Kind l1{ZCE_BOARD_TYPE_L1_SINGLE, sizeof(ZceBoardL1_t), "L1"};
constexpr Kind l5{ZCE_BOARD_TYPE_L5_SINGLE, sizeof(ZceBoardL5_t), "L5"};

// Bodies that an exchange has filled.
constexpr std::size_t bodyCount = 64;
using Bodies = std::array<ZceBoardL5_t, bodyCount>;
const Bodies& BodiesOf(const Kind& kind);

// One message as a queue's element and as a datagram.
template <class Body>
struct Message {
    ZceBoardHead_t head;
    unsigned char body[sizeof(Body)];

    void SetSeq(std::uint64_t ulSeq) { std::memcpy(body, &ulSeq, sizeof(ulSeq)); }
};
static_assert(sizeof(Message<ZceBoardL1_t>) == 148 && sizeof(Message<ZceBoardL5_t>) == 244);

// Messages to send one after the other, the first one with sequence number 1.
template <class Body>
class CMessages {
  public:
    explicit CMessages(const Kind& kind) {
        const Bodies& bodies = BodiesOf(kind);
        for (std::size_t k = 0; k < bodyCount; ++k) {
            m_messages[k].head = {kind.type, libraryChannel,
                                  static_cast<std::uint16_t>(kind.bodySize), 0};
            std::memcpy(m_messages[k].body, &bodies[k], sizeof(Body));
            m_messages[k].SetSeq(k + 1);
        }
    }

    // The sequence number is set long before the message is copied: a copy of what has just been
    // stored in pieces would make the processor wait, and the ring's sender does not do that
    // either.
    const Message<Body>& Next() {
        constexpr std::size_t half = bodyCount / 2;
        const std::size_t now = m_ulSent++;
        if (now >= half) {
            m_messages[(now + half) % bodyCount].SetSeq(now + half + 1);
        }
        return m_messages[now % bodyCount];
    }

  private:
    std::array<Message<Body>, bodyCount> m_messages;
    std::uint64_t m_ulSent = 0;
};

}  // namespace velabench
