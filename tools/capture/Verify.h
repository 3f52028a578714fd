#pragma once

#include <string>
#include <vector>

namespace ZceCaptureTool {

// What is known of captures after they were read whole and compared with their sidecars.
struct Verification {
    bool well = true;
    std::vector<std::string> lines;  // for each file what it is, then what its rotation lacks
};

// Reads each file whole. The files of one rotation may be given in any order; their neighbours that
// are not given are looked for, not read.
Verification VerifyCaptures(const std::vector<std::string>& files);

// zce-capture verify: prints the lines. The exit status: 0 all is well; 1 something is not.
int RunVerify(const std::vector<std::string>& files);

}  // namespace ZceCaptureTool
