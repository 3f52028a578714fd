#pragma once

#include <map>
#include <optional>
#include <string>

namespace ZceBoard {

// What a command needs so that it uses the board and has the board's clock: a clock file, and an
// environment.
class CCommandSetting {
  public:
    CCommandSetting() = default;
    // Removes a clock file of its own.
    ~CCommandSetting();
    CCommandSetting(const CCommandSetting&) = delete;
    CCommandSetting& operator=(const CCommandSetting&) = delete;

    // `clockFile`: the board's; empty: one of its own is made in $TMPDIR or /tmp. False: `error`
    // says why there can be none (libfaketime is missing, no directory).
    bool Make(const std::string& clockFile, std::string& error);

    // With its whole path.
    const std::string& ClockFile() const { return m_clockFile; }
    // What is set in the command's environment, and without a value what is taken out of it.
    const std::map<std::string, std::optional<std::string>>& Environment() const {
        return m_environment;
    }

  private:
    std::string m_clockFile;
    std::string m_directory;  // of a clock file of its own
    std::map<std::string, std::optional<std::string>> m_environment;
};

}  // namespace ZceBoard
