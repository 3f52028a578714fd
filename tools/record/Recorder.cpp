#include "record/Recorder.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): pthread_sigmask()
#include <sys/syscall.h>
#include <unistd.h>

#include <ctime>
#include <exception>
#include <string>
#include <thread>
#include <utility>

#include "record/TickClock.h"

namespace ZceRecord {

namespace {

constexpr int PASS_PAUSE_MS = 2;
constexpr long FINISH_PAUSE_NS = 1'000'000;
constexpr int FINISH_PAUSES = 3000;  // in which nothing gets written: about 3 seconds

// A pause of real time: programs can run on a clock of libfaketime, which changes poll() and the
// C library's clocks.
void RealPause() {
    timespec pause{0, FINISH_PAUSE_NS};
    syscall(SYS_ppoll, nullptr, 0, &pause, nullptr, 0);
}

// No signal reaches the thread that has one of these, nor the threads that it starts.
class CSignalsBlocked {
  public:
    CSignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~CSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    CSignalsBlocked(const CSignalsBlocked&) = delete;
    CSignalsBlocked& operator=(const CSignalsBlocked&) = delete;

  private:
    sigset_t m_before{};
};

void Tell(const std::string& line) {
    if (!line.empty()) {
        Say(line);
    }
}

}  // namespace

bool CRecorder::StartThread() {
    if (m_hasThread) {
        return true;
    }
    try {
        const CSignalsBlocked blocked;
        std::thread(&CRecorder::Work, this).detach();
        m_hasThread = true;
    } catch (const std::exception& reason) {
        Say(std::string("no thread to write with: ") + reason.what() + ": nothing is recorded");
    }
    return m_hasThread;
}

void CRecorder::Work() {
    pthread_setname_np(pthread_self(), "zce-record");
    for (;;) {
        const bool last = m_ending;
        PassBoth(last);
        if (last) {
            m_messages.End();
            m_ended = true;
            return;
        }
        poll(nullptr, 0, PASS_PAUSE_MS);
    }
}

void CRecorder::PassBoth(bool last) {
    if (m_messagesState == State::Yes) {
        m_messages.Pass(last);
    }
    if (m_registersState == State::Yes) {
        m_registers.Pass(last);
    }
}

bool CRecorder::CanRecord() {
    if (!m_settings.fault.empty() && !m_faultTold) {
        m_faultTold = true;
        Say(m_settings.fault);
    }
    return m_settings.fault.empty();
}

bool CRecorder::BeginRegisters() {
    return CanRecord() && m_registers.Open(m_messages.Maker(), RealTimeNs()) && StartThread();
}

CMessageQueue* CRecorder::StreamOpened(uint16_t bus, uint16_t channel) {
    if (m_abandoned) {
        return nullptr;
    }
    const std::lock_guard guard(m_startMutex);
    if (m_messagesState == State::No && !CanRecord()) {
        m_messagesState = State::Never;
    }
    if (m_messagesState == State::Never) {
        return nullptr;
    }
    std::string error;
    CMessageQueue* queue = m_messages.Opened(bus, channel, error);
    const bool isFirst = m_messagesState == State::No;
    if (!error.empty()) {
        Say(error + (isFirst ? ": nothing is recorded" : ": this stream is not recorded"));
    }
    if (isFirst) {
        m_messagesState = queue != nullptr && StartThread() ? State::Yes : State::Never;
    }
    return m_messagesState == State::Yes ? queue : nullptr;
}

bool CRecorder::WantsRegisters() {
    if (!m_settings.registers || m_abandoned) {
        return false;
    }
    const State state = m_registersState.load(std::memory_order_acquire);
    if (state != State::No) {
        return state == State::Yes;
    }
    const std::lock_guard guard(m_startMutex);
    if (m_registersState == State::No) {
        m_registersState = BeginRegisters() ? State::Yes : State::Never;
    }
    return m_registersState == State::Yes;
}

// False: the file has taken nothing for too long. The thread that writes may then stand in the
// kernel for ever; nothing here waits for it, nor for anything that it could hold.
bool CRecorder::AwaitLastPass() {
    uint64_t before = 0;
    for (int idle = 0; !m_ended; ++idle) {
        const uint64_t progress = m_messages.Progress() + m_registers.Progress();
        if (progress != std::exchange(before, progress)) {
            idle = 0;
        }
        if (idle == FINISH_PAUSES) {
            return false;
        }
        RealPause();
    }
    return true;
}

void CRecorder::Finish() {
    if (m_abandoned || !m_hasThread || m_ending.exchange(true)) {
        return;
    }
    const bool written = AwaitLastPass();
    if (m_messagesState.exchange(State::Never) == State::Yes) {
        Tell(written ? m_messages.Summary() : m_messages.Missing());
    }
    if (m_registersState.exchange(State::Never) == State::Yes) {
        Tell(written ? m_registers.Summary() : m_registers.Missing());
    }
}

void CRecorder::AfterFork(bool child) {
    if (child && m_hasThread) {
        m_abandoned = true;
        m_messages.Abandon();
        m_registers.Abandon();
    }
    m_startMutex.unlock();
}

}  // namespace ZceRecord
