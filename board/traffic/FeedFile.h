#pragma once

#include <string>

#include "device/Feeds.h"
#include "traffic/IniFile.h"

namespace ZceBoard {

// Reads the feeds' addresses from an INI file with the keys of a host's section [config]. A feed is
// there with all of its six keys or not at all. False: `error` names the file, the line, the key
// and the value, and `feeds` is unchanged.
bool ReadFeedFile(const std::string& path, CFeeds& feeds, std::string& error);
// The same from a section of a file that is read already.
bool ReadFeedSection(const CIniFile& ini, const std::string& section, CFeeds& feeds,
                     std::string& error);

}  // namespace ZceBoard
