#pragma once

#include <sys/stat.h>

#include <string>

namespace ZceRelay {

// The cache file of the master, which grows while the master learns.
class CInstrumentFile {
  public:
    explicit CInstrumentFile(std::string path) : m_path(std::move(path)) {}

    // Whether the file is another one, or was written, since the last call, and today at all: then
    // List() is what it holds now. Yesterday's list is nobody's.
    bool Look();
    const std::string& List() const { return m_list; }

  private:
    std::string m_path;
    struct stat m_seen {};
    std::string m_list;
};

}  // namespace ZceRelay
