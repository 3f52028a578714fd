#include "capturetool/Names.h"

#include <fmt/format.h>

#include "ZceBoardMsg.h"
#include "capture/ZceCapture.h"
#include "capturetool/LocalTime.h"

namespace ZceCaptureTool {

std::string BusText(uint16_t bus) {
    return bus == ZCE_CAPTURE_BUS_UNKNOWN ? "?" : std::to_string(bus);
}

const char* TypeName(uint32_t type) {
    switch (type) {
        case ZCE_BOARD_TYPE_INST_MAP:
            return "instrument map";
        case ZCE_BOARD_TYPE_L1_SINGLE:
            return "L1 single-leg";
        case ZCE_BOARD_TYPE_L1_COMBINE:
            return "L1 combination";
        case ZCE_BOARD_TYPE_L5_SINGLE:
            return "L5 single-leg";
        case ZCE_BOARD_TYPE_L5_COMBINE:
            return "L5 combination";
        default:
            return "";
    }
}

std::string SecondsText(uint64_t ns) {
    return fmt::format("{}.{:09}", ns / NS_PER_SECOND, ns % NS_PER_SECOND);
}

}  // namespace ZceCaptureTool
