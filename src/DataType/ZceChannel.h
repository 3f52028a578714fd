#pragma once

namespace Vela2_U50 {

// DMA channels of a board; channel 0 is the master, which alone sets the board up.
constexpr unsigned int ZCE_CHANNEL_NUM = 16;
constexpr unsigned int ZCE_MASTER_CHANNEL = 0;
constexpr unsigned int ZCE_CHANNEL_UNKNOWN = 255;  // before the configuration has been read

}  // namespace Vela2_U50
