// A board whose memory another process writes: requests in its mailbox, faults, registers and the
// control words of the rings, with passes of the board in between. Each step is an operation and
// its numbers. The board goes on, answers, and kills itself only if the fault that says so is on.

#include <sys/types.h>

#include <algorithm>
#include <csignal>
#include <utility>

#include "device/Board.h"
#include "fuzzHost.h"
#include "fuzzInput.h"
#include "memory/Control.h"
#include "memory/RegisterFile.h"
#include "process/BoardLoop.h"
#include "traffic/LiveTraffic.h"

namespace {

using namespace velafuzz;
using namespace ZceBoard;

constexpr int MOST_STEPS = 32;
constexpr size_t TOLD_SIZE = 8;
constexpr uint64_t LONGEST_STEP_MS = 8;  // a longer one is as good, and slow
constexpr uint32_t CRASH = 1U << static_cast<unsigned>(Fault::Crash);

// Its name in /dev/shm goes with the process.
CBoardMemory& TheMemory() {
    static CBoardMemory memory;
    static const bool bMade = [] {
        int32_t pid = 0;
        return memory.Create(0, pid) == 0;
    }();
    FUZZ_CHECK(bMade);
    return memory;
}

const CInstrumentList& TheList() {
    static const CInstrumentList list = [] {
        CInstrumentList made;
        for (const char* name : {"SR209", "CF301", "SR209C5000", "SPD-SR209&SR301"}) {
            FUZZ_CHECK(made.Add(name).empty());
        }
        return made;
    }();
    return list;
}

LiveOptions Options() {
    LiveOptions options;
    options.rate = 1000;
    return options;
}

class CBoardUnderFire {
  public:
    CBoardUnderFire() { ClearWords(); }
    ~CBoardUnderFire() { ClearWords(); }
    CBoardUnderFire(const CBoardUnderFire&) = delete;
    CBoardUnderFire& operator=(const CBoardUnderFire&) = delete;

    void Step(CFuzzInput& input) {
        switch (input.Take<unsigned char>() % 8) {
            case 0:
                Ask(input);
                break;
            case 1:
                PutFault(input);
                break;
            case 2:
                m_shm.faults.on.store(input.Take<uint32_t>());
                break;
            case 3:
                AccessField(input);
                break;
            case 4:
                WriteRegister(input);
                break;
            case 5:
                PutRingWord(input);
                break;
            default:
                Pass(input.Take<unsigned char>() % 32);
                break;
        }
    }

    void Pass(int64_t ms) {
        const uint64_t passes = m_shm.stats.passes.load();
        m_realNs += ms * NS_PER_MS;
        m_loop.Pass({m_wallNs + m_realNs, m_realNs});
        FUZZ_CHECK(m_shm.stats.passes.load() == passes + 1);
        FUZZ_CHECK(m_shm.control.answered.load() == m_shm.control.asked.load());
    }

    void Tell() {
        FUZZ_CHECK(m_loop.StatusLine().starts_with("status bus=0 "));
        FUZZ_CHECK(m_loop.LastLines().find(" stopped bus=0 ") != std::string::npos);
    }

  private:
    void Ask(CFuzzInput& input) {
        ControlMailbox& mailbox = m_shm.control;
        const auto kind = input.Take<uint32_t>();
        auto argument = input.Take<uint64_t>();
        if (kind == static_cast<uint32_t>(Request::Step) && argument > LONGEST_STEP_MS &&
            argument <= 60000) {
            argument = argument % LONGEST_STEP_MS + 1;
        }
        mailbox.kind.store(kind);
        mailbox.argument.store(argument);
        mailbox.asked.store(input.Take<uint32_t>());
    }

    void PutFault(CFuzzInput& input) {
        const auto place = input.Take<unsigned char>() % FAULT_KINDS;
        FaultWords& words = m_shm.faults.kinds[place];
        words.every.store(input.Take<uint32_t>());
        words.target.store(input.Take<uint32_t>());
        words.value.store(input.Take<uint32_t>());
        words.limit.store(input.Take<uint32_t>());
        words.strikes.store(input.Take<uint32_t>());
        m_shm.faults.on.fetch_or(1U << place);
    }

    void AccessField(CFuzzInput& input) {
        const RegisterField field{input.Take<uint32_t>(), input.Take<uint32_t>(),
                                  input.Take<unsigned char>()};
        uint64_t value = input.Take<uint32_t>();
        const uint64_t before = value;
        const bool bInside =
            field.width >= 1 && field.width <= 64 &&
            field.byteOffset * 8 + field.bitOffset + field.width <= REGISTER_SPACE_BYTES * 8 &&
            field.byteOffset < REGISTER_SPACE_BYTES;
        FUZZ_CHECK(m_registers.Read(field, value) == bInside);
        FUZZ_CHECK(bInside || value == before);
        FUZZ_CHECK(!bInside || field.width == 64 || value >> field.width == 0);
        FUZZ_CHECK(m_registers.Write(field, before) == bInside);
        FUZZ_CHECK(bInside || !m_registers.FailsByFault(Fault::ReadFails, field));
    }

    // The board's registers lie close together: those are tried most.
    void WriteRegister(CFuzzInput& input) {
        constexpr uint32_t windows[] = {0x10, 0x100, 0x300, 0x11000, 0x12000, 0x200b, 0x210b, 0};
        const auto choice = input.Take<unsigned char>();
        const uint32_t index = windows[choice % 8] + choice / 8;
        const auto value = input.Take<uint32_t>();
        if (index == REG_RESET && std::exchange(m_bReset, true)) {
            return;
        }
        m_registers.WriteWord(index, value);
        m_registers.ReadWord(index);
    }

    void PutRingWord(CFuzzInput& input) {
        const auto choice = input.Take<unsigned char>();
        const size_t channel = choice % CHANNELS;
        RingControl& control =
            choice >= 128 ? m_shm.a2c[channel].control : m_shm.c2a[channel].control;
        const auto value = input.Take<uint32_t>();
        switch (choice / CHANNELS % 4) {
            case 0:
                control.head.store(value);
                break;
            case 1:
                control.tail.store(value);
                break;
            case 2:
                control.generation.store(value);
                break;
            default:
                // What the other end sends: a record at the ring's begin.
                m_registers.Poke(REG_SWITCH, value);
                ViewOf(m_shm.c2a[channel]).HeaderAt(control.tail.load()).store(value);
                break;
        }
    }

    // All that an input can write, and what it made the board write.
    void ClearWords() {
        CFaults(m_shm).ClearAll();
        for (FaultWords& words : m_shm.faults.kinds) {
            words.every.store(0);
            words.target.store(0);
            words.value.store(0);
            words.limit.store(0);
            words.strikes.store(0);
        }
        m_shm.control.asked.store(0);
        m_shm.control.answered.store(0);
        for (size_t k = 0; k < CHANNELS; ++k) {
            ClearRing(m_shm.a2c[k].control, m_shm.a2c[k].data);
            ClearRing(m_shm.c2a[k].control, m_shm.c2a[k].data);
        }
        if (m_registers.Peek(REG_RESET) != 0 || m_registers.Peek(REG_SWITCH) != 0) {
            m_registers.Poke(REG_RESET, 0);
            m_registers.Poke(REG_SWITCH, 0);
        }
        m_registers.Poke(REG_MAP_TRANSMIT, 0);
    }

    template <class Data>
    static void ClearRing(RingControl& control, Data& data) {
        std::fill_n(data.begin(), 64, static_cast<unsigned char>(0));
        control.head.store(0);
        control.tail.store(0);
        control.generation.store(0);
        control.lastGeneration.store(0);
    }

    BoardShm& m_shm = TheMemory().Shm();
    CRegisterFile m_registers{m_shm};
    CBoard m_board{TheMemory()};
    CLiveTraffic m_traffic{TheList(), Options()};
    CBoardLoop m_loop{m_board, m_traffic, 0};
    int64_t m_wallNs = 1'795'000'000 * NS_PER_SECOND;
    int64_t m_realNs = 0;
    bool m_bReset = false;  // which clears half a million words: once an input
};

}  // namespace

// The board's process must live on.
extern "C" int __wrap_kill(pid_t pid, int sig);
extern "C" int __wrap_kill(pid_t /*pid*/, int /*sig*/) {
    FUZZ_CHECK((TheMemory().Shm().faults.on.load() & CRASH) != 0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    PrepareBoard();
    CFuzzInput input(data, size);
    CBoardUnderFire board;
    for (int k = 0; k < MOST_STEPS && input.Left() != 0; ++k) {
        board.Step(input);
    }
    board.Pass(1);
    // The lines count the tables' entries, which takes longer than all the steps.
    if (size % TOLD_SIZE == 0) {
        board.Tell();
    }
    return 0;
}
