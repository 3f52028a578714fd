#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "ZceBoardMsg.h"

// Messages as they come out of a ring.
namespace boardtest {

inline uint32_t TypeOf(const std::vector<unsigned char>& message) {
    uint32_t type = 0;
    memcpy(&type, message.data(), sizeof(type));
    return type;
}

inline ZceBoardQuote_t QuoteOf(const std::vector<unsigned char>& message) {
    ZceBoardQuote_t quote;
    ZceBoardReadQuote(message.data() + ZCE_BOARD_HEAD_SIZE, &quote);
    return quote;
}

}  // namespace boardtest
