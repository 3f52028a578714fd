#pragma once

#include <cstdint>
#include <span>

#include "capture/CaptureReader.h"

namespace ZceCaptureTool {

using ZceCapture::TypeOf;

// Whether the type is one whose body can be the software board's, 17 to 20.
bool IsMarketType(uint32_t type);

// Whether the message is one of the software board's, type 17 to 20, in every byte: its fields then
// say all that is in it. Whoever else sends these types has bodies of its own, of which nothing is
// known. `channel`: that it was polled on.
bool IsBoardMessage(std::span<const unsigned char> message, uint16_t channel);

}  // namespace ZceCaptureTool
