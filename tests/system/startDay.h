#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "DrvEnyx/enyxHw.h"
#include "market.h"
#include "startClock.h"

namespace velatest {

// The board's registers, as another program on the same board reaches them.
class BoardAccess {
  public:
    // The board of bus 0; ZCE_BOARD_SHM_PREFIX stands in this process's own environment.
    BoardAccess();
    ~BoardAccess();
    BoardAccess(const BoardAccess&) = delete;
    BoardAccess& operator=(const BoardAccess&) = delete;

    unsigned int Read(unsigned int number) const;
    void Write(unsigned int number, unsigned int value) const;
    // A word of an entry of the single-leg table (0) or of the combination table (1).
    unsigned int TableWord(unsigned int table, unsigned int index, unsigned int word) const;
    // Word 0 of an entry: the channels that receive it.
    void WriteMask(unsigned int table, unsigned int index, unsigned int mask) const;

  private:
    enyx_hw_mmio* m_mmio = nullptr;
    enyx_hw_core* m_core = nullptr;
};

// An instrument, as the exchange lists it.
struct Listed {
    unsigned int table;
    unsigned int index;
    std::string name;
};

// Days of a board and its master under an AcceleratedClock: 54 instruments, which make two packets
// of the exchange's broadcast, and rules for three channels. What each channel is to receive is
// worked out here, apart from the library.
class StartDay : public Market {
  protected:
    using Names = std::set<std::string>;

    StartDay();
    void SetUp() override;

    // A master in the directory `name`, in which its cache file lies; channel 3 for another one.
    std::unique_ptr<Process> Start(const std::string& name, unsigned int channel = 0);
    // Interrupts it once every instrument that the board sends has had its turn many times; the
    // names of which it had messages.
    Names Delivered(Process& receiver, const std::string& name);

    // From here to the end of the auction and through it: the clock runs until the master has
    // learnt the list, goes on to ten seconds after the auction's end, and stands still when the
    // subscription is over.
    void LearnThrough(Process& master, const std::string& name, unsigned int date, bool night);
    // A master that starts before the auction's end, learns, and is interrupted: its cache file
    // stays in `name`, the board has today's date and decodes.
    void RunSession(const std::string& name, unsigned int date, bool night);

    // The board as freshly started, and as another master would have left it in the auction of this
    // day: with the list, today's date, both feeds on and every channel subscribed to everything.
    void ResetBoard();
    void LetBoardLearn(unsigned int date, unsigned int hhmmss);

    // Of these instruments, those that the rules of a channel ask for.
    static Names Wanted(unsigned int channel, const std::vector<Listed>& of);
    // The masks on the board are those that the rules give for these instruments and no others.
    void ExpectMasks(const std::vector<Listed>& of) const;
    // The masks, and what the master on channel 0 is given; ends it.
    void ExpectDelivered(Process& master, const std::string& name, const std::vector<Listed>& of);

    // No mask on the board, and no message for the master; ends it.
    void ExpectNothing(Process& master);

    // A complete cache file of these instruments, made at this date and time.
    static std::string CacheFile(const std::vector<Listed>& of, unsigned int date,
                                 unsigned int hhmmss);
    // The instruments of the list that a cache file has.
    std::vector<Listed> InCache(const std::string& path) const;

    static constexpr unsigned int today = 20261118;

    AcceleratedClock m_clock;
    std::vector<Listed> m_listed;
    std::unique_ptr<BoardAccess> m_access;
};

// How often `text` stands in a program's output.
unsigned int CountIn(const std::string& output, const std::string& text);

}  // namespace velatest
