#pragma once

#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "DataType/ZceConfigFile.h"
#include "fakeDrv.h"
#include "logCapture.h"
#include "tempDir.h"

namespace velatest {

// Writes `text` to a file of its own, for the life of the object.
class TextFile {
  public:
    explicit TextFile(const std::string& text) : m_path(m_dir / "velazce.ini") {
        if (std::FILE* file = std::fopen(m_path.c_str(), "w"); file != nullptr) {
            std::fwrite(text.data(), 1, text.size(), file);
            std::fclose(file);
        }
    }
    const std::string& path() const { return m_path; }

  private:
    TempDir m_dir;
    std::string m_path;
};

// A configuration object over a file that holds `text`, and the board behind it.
struct ConfigRig {
    explicit ConfigRig(const std::string& text) : file(text), cfg(file.path(), &drv, nullptr) {}

    TextFile file;
    FakeDrv drv;
    Vela2_U50::CZceConfigFile cfg;
};

// The same with a section [config] whose device is bus 0, channel 0, and whatever else is wanted.
struct LoadedConfig : ConfigRig {
    explicit LoadedConfig(const std::string& more = "")
        : ConfigRig("[config]\ndevice = xilinx0:0\n" + more), result(cfg.Init()) {}

    int result;
};

}  // namespace velatest
