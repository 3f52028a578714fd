#include "process.h"
#include "wholeFile.h"

#include <fcntl.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): kill()
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace velatest {

namespace {

constexpr auto pollPause = std::chrono::milliseconds(10);

[[noreturn]] void Become(const std::vector<std::string>& arguments,
                         const Process::Options& options) {
    const int output = open(options.output.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0644);
    if (output < 0 || dup2(output, STDOUT_FILENO) < 0 || dup2(output, STDERR_FILENO) < 0) {
        _exit(126);
    }
    if (!EnterEnvironment(options)) {
        _exit(126);
    }
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));  // execvp's own signature
    }
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    std::perror(argv[0]);
    _exit(127);
}

}  // namespace

Process::Process(const std::vector<std::string>& arguments, const Options& options)
    : m_output(options.output) {
    WriteFile(m_output, "");
    m_pid = fork();
    if (m_pid < 0) {
        throw std::runtime_error("fork failed");
    }
    if (m_pid == 0) {
        Become(arguments, options);
    }
}

Process::~Process() {
    if (Running()) {
        Signal(SIGKILL);
        WaitEnd();
    }
}

bool Process::WaitFor(const std::string& text, std::chrono::seconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
        const bool running = Running();
        if (Output().find(text) != std::string::npos) {
            return true;
        }
        if (!running) {
            return false;
        }
        std::this_thread::sleep_for(pollPause);
    }
    return false;
}

int Process::WaitEnd(std::chrono::seconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (Running()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return -1;
        }
        std::this_thread::sleep_for(pollPause);
    }
    return WIFEXITED(m_status) ? WEXITSTATUS(m_status) : 128 + WTERMSIG(m_status);
}

void Process::Signal(int signal) const {
    if (!m_ended) {
        kill(m_pid, signal);
    }
}

bool Process::Running() {
    if (!m_ended && waitpid(m_pid, &m_status, WNOHANG) == m_pid) {
        m_ended = true;
    }
    return !m_ended;
}

std::string Process::Output() const {
    return ReadFile(m_output);
}

std::string Process::LastLine(const std::string& start) const {
    const std::string text = "\n" + Output();
    const auto found = text.rfind("\n" + start);
    if (found == std::string::npos) {
        return "";
    }
    return text.substr(found + 1, text.find('\n', found + 1) - found - 1);
}

bool EnterEnvironment(const Process::Options& options) {
    for (const std::string& entry : options.environment) {
        const auto equals = entry.find('=');
        setenv(entry.substr(0, equals).c_str(), entry.substr(equals + 1).c_str(), 1);
    }
    return options.directory.empty() || chdir(options.directory.c_str()) == 0;
}

long Field(const std::string& line, const std::string& name) {
    const auto found = (" " + line).find(" " + name + "=");
    if (found == std::string::npos) {
        return -1;
    }
    return std::strtol(line.c_str() + found + name.size() + 1, nullptr, 10);
}

std::string VirtualZone(unsigned int hhmmss) {
    constexpr long day = 86400;
    const long given = hhmmss;
    const long want = given / 10000 * 3600 + given / 100 % 100 * 60 + given % 100;
    const long now = static_cast<long>(std::time(nullptr) % day);
    long east = (want - now + day + day / 2) % day - day / 2;
    const char sign = east < 0 ? '+' : '-';  // POSIX counts westwards
    east = std::labs(east);
    std::array<char, 32> zone{};
    std::snprintf(zone.data(), zone.size(), "VIRT%c%02ld:%02ld:%02ld", sign, east / 3600,
                  east / 60 % 60, east % 60);
    return zone.data();
}

std::string ReadFile(const std::string& path) {
    return WholeFile(path);
}

void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

}  // namespace velatest
