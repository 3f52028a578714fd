#pragma once

#include <iniparser.h>

namespace Vela2_U50 {

// iniparser_load, made safe against what iniparser 4.1 does not look at: an allocation that fails
// and a read error count as a file that cannot be loaded, and leave neither memory nor an open file
// behind. What iniparser says on standard error it says here too.
//
// Returns a dictionary for iniparser_freedict (which may be called by any thread), or null. Loads
// of several threads wait for each other.
dictionary* ZceIniLoad(const char* path);

}  // namespace Vela2_U50
