#include "capturetool/BoardBody.h"

#include <cstring>
#include <string_view>

#include "ZceBoardMsg.h"

namespace ZceCaptureTool {

namespace {

bool IsSingle(uint32_t type) {
    return type == ZCE_BOARD_TYPE_L1_SINGLE || type == ZCE_BOARD_TYPE_L5_SINGLE;
}

bool IsLevel1(uint32_t type) {
    return type == ZCE_BOARD_TYPE_L1_SINGLE || type == ZCE_BOARD_TYPE_L1_COMBINE;
}

// Behind its first zero byte there are zero bytes alone.
bool IsPadded(std::string_view name) {
    const std::size_t end = name.find('\0');
    return end == std::string_view::npos || name.find_first_not_of('\0', end) == name.npos;
}

bool IsBoardQuote(const ZceBoardQuote_t& quote, uint32_t type) {
    return quote.ucTable == (IsSingle(type) ? 0 : 1) &&
           quote.ucLevels == (IsLevel1(type) ? 1 : 5) &&
           (quote.aucZero[0] | quote.aucZero[1] | quote.aucZero[2]) == 0 && quote.uiZero == 0 &&
           IsPadded({quote.szName, sizeof(quote.szName)});
}

}  // namespace

bool IsMarketType(uint32_t type) {
    return ZceBoardBodySize(type) != 0;
}

bool IsBoardMessage(std::span<const unsigned char> message, uint16_t channel) {
    const uint32_t type = TypeOf(message);
    const uint32_t size = ZceBoardBodySize(type);
    if (size == 0 || message.size() != ZCE_BOARD_HEAD_SIZE + size) {
        return false;
    }
    ZceBoardHead_t head;
    std::memcpy(&head, message.data(), sizeof(head));
    ZceBoardQuote_t quote;
    ZceBoardReadQuote(message.data() + ZCE_BOARD_HEAD_SIZE, &quote);
    return head.usChannel == channel && head.usBodyLen == size && head.uiZero == 0 &&
           IsBoardQuote(quote, type);
}

}  // namespace ZceCaptureTool
