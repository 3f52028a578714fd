#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "capture/CaptureReader.h"
#include "capturetool/LocalTime.h"

namespace ZceCaptureTool {

struct ExportOptions {
    std::string file;
    std::string output;  // empty: standard output
    bool csv = false;    // the only form there is, asked for by name
    bool raw = false;
    std::vector<uint32_t> channels;  // none: all
    std::vector<uint32_t> types;     // none: all
    std::optional<GivenTime> from;
    std::optional<GivenTime> to;  // the first moment that is not wanted
};

// zce-capture export --csv: a capture as a table. The exit status: 0; 1 if the capture is cut or
// has a packet that cannot be a message, all before it is written; 2 if it cannot be read or the
// output not be written. Reasons go to standard error.
int RunExport(const ExportOptions& options);

}  // namespace ZceCaptureTool
