#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "relay/Connection.h"
#include "tempDir.h"
#include "wholeFile.h"

namespace ZceRelay {

// A NATS server of the test's own, in a folder and on a port of its own.

inline sockaddr_in Loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

inline uint16_t FreePort() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Loopback(0);
    socklen_t size = sizeof(address);
    EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
    close(listener);
    return ntohs(address.sin_port);
}

// Until it is so, for a while.
inline bool Until(const std::function<bool()>& so) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!so()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

class RelayServer : public testing::Test {
  protected:
    void SetUp() override {
        if (std::string(NATS_SERVER).empty()) {
            GTEST_SKIP() << "there is no nats-server on this machine";
        }
    }
    ~RelayServer() override { Kill(); }

    // Its configuration file holds `more`.
    void Start(const std::string& more = "") {
        std::ofstream(m_folder / "server.conf")
            << "host: 127.0.0.1\nport: " << m_port << "\njetstream { store_dir: \""
            << m_folder.path() << "/js\" }\n"
            << more;
        m_server = fork();
        if (m_server == 0) {
            const std::string log = m_folder / "server.log";
            execl(NATS_SERVER, "nats-server", "-c", (m_folder / "server.conf").c_str(), "-l",
                  log.c_str(), nullptr);
            _exit(127);
        }
        ASSERT_TRUE(Until([this] {
            const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            const sockaddr_in address = Loopback(m_port);
            const bool bThere =
                connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
            close(client);
            return bThere;
        })) << velatest::WholeFile(m_folder / "server.log");
    }
    void Kill() {
        if (m_server > 0) {
            kill(m_server, SIGKILL);
            waitpid(m_server, nullptr, 0);
            m_server = 0;
        }
    }
    Settings To(const std::string& scheme = "nats") const {
        Settings settings;
        settings.server = Url(scheme);
        return settings;
    }
    std::string Url(const std::string& scheme = "nats") const {
        return scheme + "://127.0.0.1:" + std::to_string(m_port);
    }
    static Tell Into(std::vector<std::string>& lines) {
        return [&lines](const std::string& line) { lines.push_back(line); };
    }

    velatest::TempDir m_folder;
    uint16_t m_port = FreePort();
    pid_t m_server = 0;
    std::vector<std::string> m_published;  // what the publisher told
    std::vector<std::string> m_subscribed;
};

}  // namespace ZceRelay
