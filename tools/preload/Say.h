#pragma once

#include <string>

namespace ZcePreload {

// One line "<library>: <text>" on standard error, in one write. Keeps errno; no SIGPIPE comes of
// it.
void Say(const char* library, const std::string& text);

}  // namespace ZcePreload
