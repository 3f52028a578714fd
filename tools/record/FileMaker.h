#pragma once

#include <cstdint>
#include <mutex>
#include <set>
#include <string>

#include "capture/OutputFile.h"
#include "record/FileNames.h"
#include "record/Settings.h"
#include "record/Surroundings.h"

namespace ZceRecord {

// Makes the files of a recording, each under a name of its own: a file that is there is left alone,
// unless the settings say otherwise, and then one that this recording made is. Any thread.
class CFileMaker {
  public:
    struct File {
        std::string name;  // as it is told
        std::string path;  // absolute
    };

    // Both outlive it.
    CFileMaker(const Settings& settings, const Surroundings& surroundings)
        : m_settings(settings), m_surroundings(surroundings) {}

    // The capture's file. False: `error` says why, and `file` has the name of which it is said. On
    // success `taken` has the name that was there already, if there was one.
    bool Make(const NameParts& parts, ZceCapture::COutputFile& output, File& file,
              std::string& taken, std::string& error);
    // The same for the text file of the register accesses.
    bool MakeRegisters(const NameParts& parts, ZceCapture::COutputFile& output, File& file,
                       std::string& taken, std::string& error);
    // What is told if the file system has too little room for the file; empty: it has enough.
    std::string SpaceFault(const std::string& path) const;

  private:
    bool Make(const File& wanted, ZceCapture::COutputFile& output, File& file, std::string& taken,
              std::string& error);
    bool MakeNumbered(const File& wanted, ZceCapture::COutputFile& output, File& file,
                      std::string& taken, std::string& error);

    const Settings& m_settings;
    const Surroundings& m_surroundings;
    std::mutex m_mutex;
    std::set<std::string> m_made;  // paths, where files are replaced
};

}  // namespace ZceRecord
