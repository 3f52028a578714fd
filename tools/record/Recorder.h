#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <utility>

#include "record/MessageRecorder.h"
#include "record/RegisterTrace.h"
#include "record/Settings.h"

namespace ZceRecord {

// The recorder of this process: the two recordings, and the one thread that writes them. Nothing is
// there before it is needed: a program that opens no stream makes no file and has no thread more.
// Never destroyed: programs poll until their very end.
class CRecorder {
  public:
    explicit CRecorder(Settings settings)
        : m_settings(std::move(settings)), m_messages(m_settings) {}

    // The queue of a new opening of a stream; null: it is not recorded.
    CMessageQueue* StreamOpened(uint16_t bus, uint16_t channel);
    // Whether the messages are stamped with the processor's counter (TickClock.h).
    bool Counts() const { return m_settings.counts; }
    const Beat& GetBeat() const { return m_messages.GetBeat(); }
    // Whether accesses are to be added.
    bool WantsRegisters();
    void AddAccess(const RegisterAccess& access) { m_registers.Add(access); }
    // Everything that waits is written, unless the file takes nothing for some 3 seconds; nothing
    // is recorded from here on. No signal is held back, and none comes from the writing.
    void Finish();

    // Around a fork. The child of a process that records does not.
    void BeforeFork() { m_startMutex.lock(); }
    void AfterFork(bool child);

  private:
    enum class State { No, Yes, Never };

    // These three under m_startMutex.
    bool CanRecord();
    bool BeginRegisters();
    bool StartThread();
    void Work();
    void PassBoth(bool last);
    bool AwaitLastPass();

    const Settings m_settings;
    std::mutex m_startMutex;  // what begins a recording
    std::atomic<State> m_messagesState{State::No};
    std::atomic<State> m_registersState{State::No};
    bool m_faultTold = false;
    std::atomic<bool> m_hasThread{false};
    std::atomic<bool> m_abandoned{false};

    std::atomic<bool> m_ending{false};  // the next pass is to be the last
    std::atomic<bool> m_ended{false};   // the last pass is over
    CMessageRecorder m_messages;
    CRegisterTrace m_registers;
};

}  // namespace ZceRecord
