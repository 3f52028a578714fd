#include "capturetool/Input.h"

#include <sys/stat.h>
#include <unistd.h>

#include "program/RegularFile.h"

namespace ZceCaptureTool {

using ZceCapture::CCaptureReader;

bool OpenCapture(const std::string& path, CCaptureReader& reader, std::string& error) {
    std::string reason;
    const int descriptor = ZceProgram::OpenRegular(path, reason);
    if (descriptor < 0) {
        error = path + ": " + reason;
        return false;
    }
    struct stat status {};
    const bool bEmpty = fstat(descriptor, &status) == 0 && status.st_size == 0;
    close(descriptor);
    if (bEmpty) {
        error = path + ": empty: there is nothing in it";
        return false;
    }
    return reader.Open(path, error);
}

Ending EndingOf(CCaptureReader::Next next) {
    if (next == CCaptureReader::Next::Cut) {
        return Ending::Cut;
    }
    return next == CCaptureReader::Next::Error ? Ending::Bad : Ending::Whole;
}

}  // namespace ZceCaptureTool
