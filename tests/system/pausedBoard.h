#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "market.h"
#include "memory/BoardMemory.h"
#include "memory/RegisterFile.h"
#include "memory/Ring.h"

namespace velatest {

// A real zce-board at 08:00:00 of some day, before the exchange's, whose clock and traffic stand
// still: what happens from here on is the same in every run. The test is its host.
class PausedBoard : public Market {
  protected:
    // Twelve instruments, a tick each ms, a round of the broadcast in 200 ms.
    void Start();

    // The command `zce-board ctl ...` of this board: what it printed; its exit status is `status`.
    std::string Ctl(const std::vector<std::string>& arguments, int status = 0);

    // Opens a channel's stream and waits until the board knows.
    void Open(uint32_t channel);
    // Sends an instrument to the channels of `mask`.
    void Subscribe(uint32_t table, uint32_t index, uint32_t mask);
    // The messages that wait on an open channel, by type.
    std::map<uint32_t, uint64_t> Drain(uint32_t channel);

    // A master on channel 0 and a receiver on channel 3 that have subscribed some instruments, and
    // 600 ms of trading.
    void Trade();

    // The same text with the date and the number of the board's process that are always the same.
    std::string Fixed(std::string text) const;

    // The board's registers and memory, from Start() on.
    ZceBoard::CRegisterFile Registers() { return ZceBoard::CRegisterFile(m_memory.Shm()); }
    ZceBoard::CBoardMemory m_memory;

  private:
    struct Reader {
        ZceBoard::CBoardFile lock;
        ZceBoard::CRingConsumer consumer;
    };
    std::array<Reader, ZceBoard::CHANNELS> m_readers;
    unsigned int m_commands = 0;
};

// `text` is what docs/software-board.md shows in the fenced block behind the comment "by a test:
// NAME". With ZCE_UPDATE_DOCS=1 in the environment it is put there.
void ExpectDocsShow(const std::string& name, const std::string& text);

}  // namespace velatest
