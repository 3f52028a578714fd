#pragma once

namespace ZceRelay {

// The commands of zce-relay; each reads its own command line, argv[0] being the command's name.
// Exit status 0: everything got through. 1: something is missing, which the last line tells. 2: a
// usage error, or what could not be done at all, with the reason on standard error.
constexpr int EXIT_LOST = 1;

int PublishMain(int argc, const char* const* argv);
int SubscribeMain(int argc, const char* const* argv);

}  // namespace ZceRelay
