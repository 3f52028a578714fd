#include "tmux.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace velatest {

namespace {

// As one word of a shell.
std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

}  // namespace

Tmux::Tmux(const std::string& directory) : m_socket(directory + "/tmux") {
    // The shell's time is limited, and the server ends with it, should the test be killed.
    Run("-f /dev/null new-session -d -x 80 -y 24 -c " + Quoted(directory) +
        " 'PS1=\"ready> \" ENV= exec timeout --foreground 110 sh'");
    EXPECT_TRUE(WaitFor("ready>"));
}

Tmux::~Tmux() {
    Run("kill-server");
}

std::string Tmux::Run(const std::string& command) const {
    const std::string line = "env -u TMUX tmux -S " + Quoted(m_socket) + " " + command + " 2>&1";
    std::string output;
    // The test's own words.
    FILE* const pipe = popen(line.c_str(), "r");  // NOLINT(cert-env33-c)
    if (pipe == nullptr) {
        ADD_FAILURE() << line;
        return output;
    }
    std::array<char, 4096> part{};
    while (fgets(part.data(), part.size(), pipe) != nullptr) {
        output += part.data();
    }
    EXPECT_EQ(pclose(pipe), 0) << line << ": " << output;
    return output;
}

void Tmux::Type(const std::string& line) const {
    Run("send-keys -l " + Quoted(line));
    Press("Enter");
}

void Tmux::Press(const std::string& keys) const {
    Run("send-keys " + keys);
}

void Tmux::Resize(int columns, int rows) const {
    Run("resize-window -x " + std::to_string(columns) + " -y " + std::to_string(rows));
}

std::string Tmux::Screen() const {
    std::string screen = Run("capture-pane -p");
    screen.erase(screen.find_last_not_of('\n') + 1);
    return screen + "\n";
}

std::string Tmux::ColouredScreen() const {
    return Run("capture-pane -p -e");
}

bool Tmux::WaitFor(const std::string& text) const {
    return WaitUntil(text, true);
}

bool Tmux::WaitUntilGone(const std::string& text) const {
    return WaitUntil(text, false);
}

bool Tmux::WaitUntil(const std::string& text, bool there) const {
    for (int k = 0; k < 1000; ++k) {
        if ((Screen().find(text) != std::string::npos) == there) {
            return true;
        }
        usleep(20'000);
    }
    return false;
}

}  // namespace velatest
