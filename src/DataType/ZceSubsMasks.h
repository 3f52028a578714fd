#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_map>

#include "DataType/ZceSubsInfo.h"

namespace Vela2_U50 {

// "SPD-" and "IPS-" begin the names of combinations; all other instruments are single-leg.
enum class InstKind_t { spd, ips, single };
InstKind_t KindOfInst(std::string_view name);

// The rules of all channels turned round: which channels an instrument is for, by a look or two
// whatever the number of channels and rules. Bit n of a mask is channel n.
class CZceSubsMasks {
  public:
    // The rules must outlive this object, and must not be changed meanwhile.
    explicit CZceSubsMasks(const ZceSubsInfoArray_t& rules);

    // A combination is for channels by its kind alone: ids, classes and "all" play no part.
    std::uint16_t Of(std::string_view name) const;

  private:
    using Masks_t = std::unordered_map<std::string_view, std::uint16_t>;

    std::uint16_t OfSingle(std::string_view name) const;

    Masks_t m_ids;
    Masks_t m_classes;
    std::uint16_t m_usAll = 0;
    std::uint16_t m_usOptions = 0;
    std::uint16_t m_usIps = 0;
    std::uint16_t m_usSpd = 0;
};

}  // namespace Vela2_U50
