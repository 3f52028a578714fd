#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

// The vendor's C calls with scripted answers: linked instead of libenyx-hw-c.
//
// At the start of a process, and after Reset: one board on bus 0, with one core 474 and the streams
// CUSTOM_CHAN0_DATA to CUSTOM_CHAN15_DATA in both directions, all registers 0, all counters 0.
// Misuse by the code under test fails the running test on the spot: an object freed twice, used
// after it was freed or not of this library, a register access without the core's lock.
//
// As the real library may, the calls without a result (destroy, free, lock, unlock) change errno,
// to ENOTTY here; an enumeration that finds nothing returns 0 and leaves ENODEV there.
//
// Calls are named without the prefix "enyx_hw_". Thread-safe.
namespace velatest {

struct EnyxCounters {
    std::uint32_t backPressure = 0;
    std::uint32_t packets = 0;
    std::uint32_t fifoErrors = 0;
    std::uint32_t errors = 0;
};

class FakeEnyx {
  public:
    // Forgets everything. What the code under test still holds is stale afterwards: clear the
    // discovery's caches as well (DrvEnyxVarClear), a driver of before must not be used again.
    static void Reset();

    // ---- the machine ----
    static void SetBoards(std::vector<std::uint32_t> buses);
    // How many cores have this id (one for 474, none for any other).
    static void SetCores(std::uint16_t coreId, int count);
    static void SetStreams(std::vector<std::string> names);
    // Another process holds the stream: it cannot be created (EBUSY).
    static void SetStreamBusy(const std::string& name, bool busy);
    // A stream that is open can be opened once more, which is otherwise EBUSY too.
    static void ShareStreams();
    static void SetMtu(std::uint32_t a2c, std::uint32_t c2a);
    static void SetCounters(const EnyxCounters& counters);

    // ---- registers: bytes from byte offset 0 of the core's space ----
    static void SetBytes(std::uint64_t byteOffset, const std::vector<std::uint8_t>& bytes);
    static std::vector<std::uint8_t> Bytes(std::uint64_t byteOffset, std::size_t count);
    static void SetRegister(std::uint64_t index, std::uint32_t value);
    static std::uint32_t Register(std::uint64_t index);

    // ---- failures ----
    // The nth call (1: the next one) of this name fails: errno becomes `errnoValue`; a call with
    // an int result returns `result` (an enumeration with a positive one fills its list as far as
    // there is room), any other null.
    static void Fail(const std::string& call, int nth, int errnoValue, int result = -1);
    // As Fail, for every call of this name from now on.
    static void FailAlways(const std::string& call, int errnoValue, int result = -1);
    // The nth of all calls that can fail from now on, whatever its name. Polls do not count.
    static void FailNth(int nth, int errnoValue, int result = -1);
    // Takes back every failure that has not happened yet.
    static void ClearFailures();
    // The name of the call that FailNth made fail; empty if it never came to that.
    static std::string FailedCall();
    // The anomaly loop: calls `run` again and again, each time after a Reset: with the 1st call
    // failing, then the 2nd, and so on, until a run gets through without a failure. `run` does the
    // work and all its checks; FailedCall tells it which call failed, ClearFailures ends the work.
    // Returns the number of runs.
    static int ForEachFailure(int errnoValue, const std::function<void()>& run);

    // ---- packets ----
    // To be delivered by the next polls of the a2c stream of this name, one for each poll.
    static void QueuePacket(const std::string& stream, std::vector<std::uint8_t> packet);
    // What the next sends return, in order; after them 0 again. 11 leaves EAGAIN in errno, any
    // other but 0 EIO.
    static void QueueSendResults(std::vector<int> results);
    // Called after each send, before it returns.
    static void OnSend(std::function<void()> hook);
    static std::vector<std::vector<std::uint8_t>> SentPackets();
    // Polls so far. They are not in Calls and allocate nothing, so that a loop can be watched.
    static std::uint64_t PollCount();

    // ---- what was called ----
    // In order, the name and what tells one call from another: "filter_create",
    // "filter_set_index 0", "filter_set_name CUSTOM_CHAN0_DATA",
    // "core_enumerate id=474 capacity=1", "core_lock", "read off=64 width=32", "write off=64
    // width=24 value=0x30201", "free_mmio_descriptors 1", "c2a_stream_send size=3".
    static std::vector<std::string> Calls();
    // How often a call of this name was made, whatever its arguments.
    static int CountOf(const std::string& call);
    static void ClearCalls();
    // Called at the beginning of each call of this name. The hook may not use this class or the
    // library's calls: it runs in the middle of one.
    static void OnCall(const std::string& call, std::function<void()> hook);
    // Objects that live now, by kind: "filter", "accelerator_descriptor", "mmio_descriptor",
    // "mmio", "a2c_descriptor", "c2a_descriptor", "a2c_stream", "c2a_stream". No entry: none.
    static std::map<std::string, int> Live();
};

}  // namespace velatest
