#pragma once

#include <string>

namespace ZceCheck {

// The bytes of a file, of a pipe, or of standard input ("-" if `bDash`). False: `error` says why.
// More than 16 MiB are refused: no configuration and no list of instruments has as much, and a
// device may never end.
bool ReadWholeFile(const std::string& path, std::string& text, std::string& error,
                   bool bDash = false);

// True for what the library must not be given a second time, or at all: a pipe, a device, a socket.
// Then `error` says so.
bool IsNoFile(const std::string& path, std::string& error);

}  // namespace ZceCheck
