#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

namespace velatest {

// A pipe, by name, that takes little and is read when the test says so: a standard output that
// stalls.
class StalledOutput {
  public:
    static constexpr int CAPACITY = 8192;  // two pages

    explicit StalledOutput(const std::string& path) {
        if (mkfifo(path.c_str(), 0600) != 0) {
            throw std::runtime_error("mkfifo failed");
        }
        m_reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        m_writer = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (m_reader < 0 || m_writer < 0 || fcntl(m_reader, F_SETPIPE_SZ, CAPACITY) != CAPACITY) {
            throw std::runtime_error("no pipe");
        }
    }
    ~StalledOutput() {
        close(m_reader);
        close(m_writer);
    }
    StalledOutput(const StalledOutput&) = delete;
    StalledOutput& operator=(const StalledOutput&) = delete;

    bool IsFull() const {
        pollfd state{m_writer, POLLOUT, 0};
        return poll(&state, 1, 0) == 0;
    }
    // Until the pipe is full, and a little longer, so that whoever prints is at it again.
    bool WaitUntilFull(std::chrono::seconds limit = std::chrono::seconds(20)) const {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!IsFull()) {
            if (std::chrono::steady_clock::now() >= deadline) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return true;
    }
    // Everything that is in it.
    std::string Drain() const {
        std::string text;
        std::array<char, CAPACITY> bytes{};
        for (ssize_t got = 0; (got = read(m_reader, bytes.data(), bytes.size())) > 0;) {
            text.append(bytes.data(), static_cast<std::size_t>(got));
        }
        return text;
    }
    // Reads until `text` has come since the construction.
    bool DrainUntil(const std::string& text,
                    std::chrono::seconds limit = std::chrono::seconds(30)) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (m_drained.find(text) == std::string::npos) {
            if (std::chrono::steady_clock::now() >= deadline) {
                return false;
            }
            m_drained += Drain();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return true;
    }
    void Fill() const {
        const std::string page(4096, '.');
        while (write(m_writer, page.data(), page.size()) > 0) {}
    }

  private:
    int m_reader = -1;
    int m_writer = -1;
    std::string m_drained;
};

}  // namespace velatest
