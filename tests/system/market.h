#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "process.h"
#include "tempDir.h"

namespace velatest {

// The call auction is over in six seconds: soon, and still time enough for a start of a few
// seconds.
constexpr unsigned int shortlyBeforeExpiry = 85504;

// A virtual market for one test: a software board on a bus that no other test sees, at a virtual
// local time of day, and receivers on it.
class Market : public ::testing::Test {
  protected:
    Market();
    // Ends the board, so that it takes its shared memory along; what a killed one left is removed.
    ~Market() override;

    // The local time of day for everything started from here on.
    void StartClock(unsigned int hhmmss);
    // Starts zce-board with these arguments after "--bus 0" and waits until it is ready.
    void StartBoard(const std::vector<std::string>& arguments);
    // Starts zce-board with a short list of instruments at 2,000 ticks a second.
    void StartSmallBoard(const std::vector<std::string>& more = {});
    // Starts zce-recv on this channel, in a directory of its own; it prints the first message.
    std::unique_ptr<Process> Receive(unsigned int channel,
                                     const std::vector<std::string>& more = {},
                                     unsigned int bus = 0);
    // Stops the board, then the receivers, and returns the board's line for each channel.
    void StopBoard();
    std::string BoardLine(unsigned int channel) const;
    // Interrupts the receiver, waits for its end and returns its last line.
    static std::string Finish(Process& receiver, unsigned int channel);
    // Each type's count of the receiver's last line is the board's.
    void ExpectSame(const std::string& receiverLine, unsigned int channel) const;

    // Puts the calling process itself into this market: environment and working directory.
    void Enter() const;
    std::string Path(const std::string& name) const;

    // The receivers that are started from now on rest a little when there is nothing, instead of
    // taking a whole CPU each from whatever else runs.
    void LetReceiversRest() { m_environment.push_back(Resting()); }
    // The entry of the environment for that; `library` is loaded as well, before the one that
    // rests.
    static std::string Resting(const std::string& library = "");

    // What stands in every receiver's INI file below its `device`.
    std::string m_rules;
    std::unique_ptr<Process> m_board;
    // For everything that is started from now on.
    std::vector<std::string> m_environment;

    // A process in the directory `name` of this market, which is made if it is not there.
    Process::Options Where(const std::string& name) const;

  private:
    TempDir m_directory;
    unsigned int m_started = 0;
};

}  // namespace velatest
