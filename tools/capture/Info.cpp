#include "capturetool/Info.h"

#include <algorithm>
#include <cstdio>

#include "capturetool/Status.h"
#include "program/Printable.h"
#include "program/Program.h"

namespace ZceCaptureTool {

int RunInfo(const InfoOptions& options) {
    int status = ZceProgram::EXIT_FINE;
    std::string text;
    std::vector<CScan> scans;
    for (const std::string& file : options.files) {
        CScan scan(options.burstGapUs * 1000);
        if (!scan.Read(file)) {
            fprintf(stderr, "zce-capture: %s\n", ZceProgram::Printable(scan.Error()).c_str());
            status = ZceProgram::EXIT_NOT_DONE;
            continue;
        }
        if (scan.End() != Ending::Whole) {
            status = std::max(status, EXIT_NOT_WELL);
        }
        if (options.json) {
            scans.push_back(std::move(scan));
        } else {
            text += (text.empty() ? "" : "\n") + InfoText(scan);
        }
    }
    return ZceProgram::WriteOutput("zce-capture", options.json ? InfoJson(scans) : text, status);
}

}  // namespace ZceCaptureTool
