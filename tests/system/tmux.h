#pragma once

#include <string>

namespace velatest {

// A terminal of 80 columns and 24 rows with a shell in it, whose screen can be read: tmux with a
// server of its own. The shell's prompt is "ready> ".
class Tmux {
  public:
    // `directory`: takes the server's socket and is the shell's working directory.
    explicit Tmux(const std::string& directory);
    ~Tmux();
    Tmux(const Tmux&) = delete;
    Tmux& operator=(const Tmux&) = delete;

    // Types a line at the shell, or presses keys (as tmux names them).
    void Type(const std::string& line) const;
    void Press(const std::string& keys) const;
    void Resize(int columns, int rows) const;

    // What stands on the screen, without blank lines at its end.
    std::string Screen() const;
    // The same with the escape sequences that make its colours.
    std::string ColouredScreen() const;
    // Until the screen holds `text`, or no longer does; false after 20 seconds.
    bool WaitFor(const std::string& text) const;
    bool WaitUntilGone(const std::string& text) const;

  private:
    std::string Run(const std::string& command) const;
    bool WaitUntil(const std::string& text, bool there) const;

    std::string m_socket;
};

}  // namespace velatest
