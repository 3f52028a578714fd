#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "capturetool/Scan.h"

namespace ZceCaptureTool {

struct InfoOptions {
    std::vector<std::string> files;
    uint64_t burstGapUs = 10;
    bool json = false;
};

// zce-capture info: what is in each of the files. The exit status: 0; 1 if a file is cut or has a
// packet that cannot be a message; 2 if a file cannot be read, with the reason on standard error.
int RunInfo(const InfoOptions& options);

// The answer for one file, in lines.
std::string InfoText(const CScan& scan);
// The same for all files, as one JSON object.
std::string InfoJson(const std::vector<CScan>& scans);

}  // namespace ZceCaptureTool
