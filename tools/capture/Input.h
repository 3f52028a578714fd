#pragma once

#include <string>

#include "capture/CaptureReader.h"

namespace ZceCaptureTool {

// Opens a capture for `reader`: a regular file that is not empty, can be read, and is a capture of
// the board's messages. False: `error` says which file, what is wrong with it, and what helps.
bool OpenCapture(const std::string& path, ZceCapture::CCaptureReader& reader, std::string& error);

// How the reading of a capture ended, for a reader that gives no more messages.
enum class Ending {
    Whole,
    Cut,  // in the middle of a packet
    Bad,  // a packet that cannot be a message
};
Ending EndingOf(ZceCapture::CCaptureReader::Next next);

}  // namespace ZceCaptureTool
