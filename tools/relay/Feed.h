#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "IVelaZceMdApi.h"
#include "VelaZceUtils.h"
#include "relay/Publisher.h"
#include "relay/Wire.h"

namespace ZceRelay {

// Bytes of a body of the types 17 to 20.
using BodySizes = std::array<uint32_t, TYPES>;

// Those of the software board.
BodySizes BoardBodySizes();
// Takes "17=136" over into `sizes`; false for what is no such text, or a size of 0 or beyond what
// a board's stream can carry.
bool TakeBodySize(const std::string& text, BodySizes& sizes);

// The callbacks, on the polling thread: copy the body into the ring, and go on.
class CFeed final : public IVelaZceMdSpi {
  public:
    CFeed(CTakenMessages& taken, const BodySizes& sizes) : m_taken(taken), m_sizes(sizes) {}

    void OnDmaType17Msg(const unsigned char* body) override { Take(0, body); }
    void OnDmaType18Msg(const unsigned char* body) override { Take(1, body); }
    void OnDmaType19Msg(const unsigned char* body) override { Take(2, body); }
    void OnDmaType20Msg(const unsigned char* body) override { Take(3, body); }

  private:
    void Take(uint32_t place, const unsigned char* body) {
        m_taken.Take(FIRST_TYPE + place, static_cast<int64_t>(get_time()), body, m_sizes[place]);
    }

    CTakenMessages& m_taken;
    const BodySizes m_sizes;
};

// Which board and channel an INI file of the library names.
struct Device {
    uint16_t bus = 0;
    uint16_t channel = 0;
};
// Nothing, with the reason, if [config] device names none.
std::optional<Device> DeviceOf(const std::string& config, std::string& error);

}  // namespace ZceRelay
