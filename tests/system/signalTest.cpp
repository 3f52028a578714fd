// The receiver with a standard output that nobody reads: SIGTERM and SIGINT end it all the same.

#include <signal.h>  // NOLINT(modernize-deprecated-headers): kill()
#include <sys/stat.h>

#include <chrono>
#include <memory>
#include <string>

#include "market.h"
#include "stalledOutput.h"

namespace velatest {

namespace {

using Clock = std::chrono::steady_clock;

class FullPipe : public Market {
  protected:
    FullPipe() { LetReceiversRest(); }

    // Starts a receiver that prints into a pipe.
    void StartReceiver(const std::vector<std::string>& more = {}, unsigned int channel = 0) {
        const std::string directory = Path("receiver" + std::to_string(m_number++));
        mkdir(directory.c_str(), 0755);
        m_output = std::make_unique<StalledOutput>(directory + "/output");
        m_receiver = Receive(channel, more);
    }
    // How long the process goes on after the signal; its exit status.
    std::chrono::duration<double> EndBy(int signal, int& status) {
        const auto begin = Clock::now();
        m_receiver->Signal(signal);
        status = m_receiver->WaitEnd(std::chrono::seconds(10));
        return Clock::now() - begin;
    }

    std::unique_ptr<StalledOutput> m_output;
    std::unique_ptr<Process> m_receiver;

  private:
    unsigned int m_number = 0;
};

TEST_F(FullPipe, ASignalEndsAStartThatIsLogging) {
    StartClock(shortlyBeforeExpiry);
    StartSmallBoard();
    for (const int signal : {SIGTERM, SIGINT}) {
        StartReceiver();
        ASSERT_TRUE(m_output->WaitUntilFull());
        int status = -1;
        EXPECT_LT(EndBy(signal, status).count(), 1.0);
        EXPECT_EQ(status, 1);  // its own handler's: the last line was not written
        m_receiver.reset();
        m_output.reset();
    }
}

TEST_F(FullPipe, ASignalEndsAReceiverThatGetsMessages) {
    StartClock(shortlyBeforeExpiry);
    StartSmallBoard();
    StartReceiver({"--own-loop"});
    ASSERT_TRUE(m_output->DrainUntil("zce-recv type="));
    m_output->Fill();
    ASSERT_TRUE(m_output->WaitUntilFull());
    int status = -1;
    EXPECT_LT(EndBy(SIGTERM, status).count(), 1.0);
    EXPECT_EQ(status, 0);
    // Names that were asked for and are not printed are an error; they are not waited for either.
    StartReceiver({"--own-loop", "--names", "-"}, 3);
    ASSERT_TRUE(m_output->DrainUntil("zce-recv type="));
    m_output->Fill();
    ASSERT_TRUE(m_output->WaitUntilFull());
    EXPECT_LT(EndBy(SIGTERM, status).count(), 2.0);
    EXPECT_EQ(status, 1);
}

TEST_F(FullPipe, TheLinesOfTheEndAreThereIfThePipeIsReadAgain) {
    StartClock(shortlyBeforeExpiry);
    StartSmallBoard();
    StartReceiver();
    ASSERT_TRUE(m_output->DrainUntil("zce-recv type="));
    m_output->Fill();
    m_output->Drain();
    m_receiver->Signal(SIGINT);
    EXPECT_TRUE(m_output->DrainUntil("Received signal 2 !!\n"));
    EXPECT_TRUE(m_output->DrainUntil("zce-recv channel=0 total="));
    EXPECT_EQ(m_receiver->WaitEnd(std::chrono::seconds(10)), 0);
}

}  // namespace

}  // namespace velatest
