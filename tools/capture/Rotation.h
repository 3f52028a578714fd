#pragma once

#include <map>
#include <string>
#include <vector>

#include "capture/Sidecar.h"
#include "capturetool/Scan.h"

namespace ZceCaptureTool {

// The files of rotated recordings, by what their sidecars say of their neighbours.
class CRotations {
  public:
    void Add(const std::string& path, const ZceCapture::Sidecar& sidecar);
    // What is not as it should be, a line each: a neighbour that is not there, and messages that
    // are missing between two of the files that were added.
    std::vector<std::string> Faults() const;

  private:
    struct File {
        std::string path;  // as it was given
        ZceCapture::Sidecar sidecar;
    };
    // What the files until now say of a stream.
    struct Known {
        uint64_t last = 0;   // number of its last message
        uint64_t spare = 0;  // lost ones that no number before `last` accounts for
        std::string path;    // of the file with its last message
    };
    using Streams = std::map<StreamId, Known>;

    // The neighbour's name as it would be given; empty if there is none.
    static std::string Beside(const File& file, const std::string& neighbour);
    // Of each file the one behind it, as one of the two says: a file that was moved away at once
    // does not know what followed it.
    std::map<std::string, std::string> Links() const;
    void AddAbsent(const File& file, std::vector<std::string>& faults) const;
    static void Follow(const File& file, Streams& streams, std::vector<std::string>& faults);

    std::map<std::string, File> m_files;  // by their place in the file system
};

}  // namespace ZceCaptureTool
