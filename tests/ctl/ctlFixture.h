#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ctl/CtlMain.h"
#include "memory/Control.h"
#include "memory/RegisterFile.h"
#include "tests/memory/boardFixture.h"

namespace boardtest {

// A board that is nothing but its memory: the test writes what a board's process would.
class CtlFixture : public BoardFixture {
  protected:
    CtlFixture() {
        m_memory->Shm().stats.passes = 1;
        m_memory->Shm().header.boardPid = 4711;
    }

    static ZceBoard::CtlResult Ctl(std::vector<const char*> arguments) {
        arguments.insert(arguments.begin(), "ctl");
        return ZceBoard::RunCtl(static_cast<int>(arguments.size()), arguments.data());
    }

    // What a command that succeeds prints.
    static std::string Said(const std::vector<const char*>& arguments) {
        const ZceBoard::CtlResult result = Ctl(arguments);
        EXPECT_EQ(result.status, 0) << result.error;
        EXPECT_EQ(result.error, "");
        return result.output;
    }

    // Why a command is refused.
    static std::string Refused(const std::vector<const char*>& arguments) {
        const ZceBoard::CtlResult result = Ctl(arguments);
        EXPECT_EQ(result.status, 2) << result.output;
        EXPECT_EQ(result.output, "");
        return result.error;
    }

    ZceBoard::BoardShm& Shm() { return m_memory->Shm(); }

    std::unique_ptr<ZceBoard::CBoardMemory> m_memory = MakeBoard();
};

// A thread that goes through passes and answers requests as a board's process does.
class AnsweringThread {
  public:
    using Handler = std::function<int(ZceBoard::Request, uint64_t)>;

    explicit AnsweringThread(ZceBoard::BoardShm& shm, Handler handler = {})
        : m_thread([this, &shm, handler] {
              ZceBoard::CRequestTaker requests(shm.control);
              while (!m_stop) {
                  requests.Answer([&handler](ZceBoard::Request request, uint64_t argument) {
                      return handler ? handler(request, argument) : 0;
                  });
                  shm.stats.passes.fetch_add(1);
                  std::this_thread::sleep_for(std::chrono::milliseconds(1));
              }
          }) {}
    ~AnsweringThread() {
        m_stop = true;
        m_thread.join();
    }
    AnsweringThread(const AnsweringThread&) = delete;
    AnsweringThread& operator=(const AnsweringThread&) = delete;

  private:
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

}  // namespace boardtest
