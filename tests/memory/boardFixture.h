#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "memory/BoardMemory.h"

namespace boardtest {

// Names of shared memory of this test's own, and a board when one is asked for.
class BoardFixture : public testing::Test {
  protected:
    BoardFixture() {
        m_prefix = "boardtest" + std::to_string(getpid()) + "-";
        setenv("ZCE_BOARD_SHM_PREFIX", m_prefix.c_str(), 1);
    }

    // What killed boards left behind.
    ~BoardFixture() override {
        for (uint32_t bus = 0; bus < 10; ++bus) {
            unlink(ShmPath(bus).c_str());
        }
    }

    // The memory of a living board, this process being the board.
    static std::unique_ptr<ZceBoard::CBoardMemory> MakeBoard(uint32_t bus = 0) {
        auto memory = std::make_unique<ZceBoard::CBoardMemory>();
        int32_t pid = 0;
        EXPECT_EQ(memory->Create(bus, pid), 0);
        return memory;
    }

    std::string ShmPath(uint32_t bus = 0) const {
        return "/dev/shm/" + m_prefix + "zce-board." + std::to_string(bus);
    }

    std::string m_prefix;
};

// Runs `work` in a forked child and gives back its exit status, or minus the signal that ended it.
template <class Work>
int InChild(Work work) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(work());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// A child that says when it has done its work, and then waits to be killed.
class HoldingChild {
  public:
    template <class Work>
    explicit HoldingChild(Work work) {
        int ready[2];
        if (pipe(ready) != 0) {
            return;
        }
        m_pid = fork();
        if (m_pid == 0) {
            const char answer = work() ? 'y' : 'n';
            if (write(ready[1], &answer, 1) == 1) {
                pause();
            }
            _exit(0);
        }
        close(ready[1]);
        char answer = 'n';
        m_bHolds = read(ready[0], &answer, 1) == 1 && answer == 'y';
        close(ready[0]);
    }
    ~HoldingChild() { Kill(); }
    HoldingChild(const HoldingChild&) = delete;
    HoldingChild& operator=(const HoldingChild&) = delete;

    // What its work returned.
    bool Holds() const { return m_bHolds; }

    void Kill() {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
            m_pid = -1;
        }
    }

  private:
    pid_t m_pid = -1;
    bool m_bHolds = false;
};

}  // namespace boardtest
