#include "capturetool/Gnuplot.h"

#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>

#include "program/RegularFile.h"

namespace ZceCaptureTool {

namespace {

// A file in memory.
class CMemory {
  public:
    explicit CMemory(const char* name) : m_fd(memfd_create(name, MFD_CLOEXEC)) {}
    ~CMemory() {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    CMemory(const CMemory&) = delete;
    CMemory& operator=(const CMemory&) = delete;

    int Fd() const { return m_fd; }
    // False with errno.
    bool Put(const std::string& text) const {
        std::size_t done = 0;
        while (done < text.size()) {
            const ssize_t written = write(m_fd, text.data() + done, text.size() - done);
            if (written < 0 && errno != EINTR) {
                return false;
            }
            done += written > 0 ? static_cast<std::size_t>(written) : 0;
        }
        return Rewind();
    }
    bool Rewind() const { return lseek(m_fd, 0, SEEK_SET) == 0; }

  private:
    int m_fd;
};

// The errno of a program that could not be started, else 0 and its wait status.
int Run(int input, int output, int& status) {
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
    // Without the user's own settings.
    std::string name = "gnuplot";
    std::string settings = "-d";
    std::string from = "-";
    char* const arguments[] = {name.data(), settings.data(), from.data(), nullptr};
    pid_t child = 0;
    const int failed = posix_spawnp(&child, name.c_str(), &files, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&files);
    if (failed != 0) {
        return failed;
    }
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {}
    return 0;
}

}  // namespace

bool DrawWithGnuplot(const std::string& script, std::string& drawn, std::string& error) {
    const CMemory input("script");
    const CMemory output("drawing");
    if (input.Fd() < 0 || output.Fd() < 0 || !input.Put(script)) {
        error = std::string("gnuplot: ") + std::strerror(errno);
        return false;
    }
    int status = 0;
    const int failed = Run(input.Fd(), output.Fd(), status);
    if (failed != 0) {
        error = std::string("gnuplot, which draws the plot: ") + std::strerror(failed) +
                ": install gnuplot-nox, or leave out --plot for a table";
        return false;
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        error =
            "gnuplot could not draw the plot: its reason is above; leave out --plot for a table";
        return false;
    }
    return output.Rewind() &&
           ZceProgram::ReadUpTo(output.Fd(), std::numeric_limits<int>::max(), drawn, error);
}

}  // namespace ZceCaptureTool
