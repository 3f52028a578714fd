#include <fcntl.h>
#include <grp.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <thread>

#include "asUser.h"
#include "boardFixture.h"
#include "memory/Control.h"
#include "memory/CoreLock.h"
#include "memory/Faults.h"
#include "sanitizers.h"
#include "wholeFile.h"

// What other processes may write over a board's memory, and what it does to those that use it.
namespace {

using ZceBoard::CBoardMemory;
using ZceBoard::CCoreLock;
using ZceBoard::CFaults;
using ZceBoard::CRequestTaker;
using ZceBoard::Fault;
using ZceBoard::Request;

class HostileMemory : public boardtest::BoardFixture {
  protected:
    ~HostileMemory() override { unlink(m_errors.c_str()); }

    ZceBoard::BoardShm& Shm() { return m_memory->Shm(); }
    std::atomic<uint32_t>& LockWord() { return Shm().header.coreLock; }

    // `work` in a forked child, and what it wrote to standard error.
    template <class Work>
    int ChildTelling(Work work, std::string& errors) {
        const int status = boardtest::InChild([&] {
            const int file = open(m_errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
            dup2(file, STDERR_FILENO);
            const rlimit none{0, 0};
            setrlimit(RLIMIT_CORE, &none);
            return work();
        });
        errors = velatest::WholeFile(m_errors);
        return status;
    }

    std::unique_ptr<CBoardMemory> m_memory = MakeBoard();
    std::string m_errors = testing::TempDir() + "/hostile" + std::to_string(getpid());
};

TEST_F(HostileMemory, ANonsensicalLockWordIsTakenForADeadHolder) {
    CCoreLock lock(*m_memory);
    CCoreLock other(*m_memory);
    std::mt19937 random(1);
    for (int k = 0; k < 1000; ++k) {
        LockWord() = static_cast<uint32_t>(random());
        lock.Lock();
        bool got = true;
        std::thread([&] { got = other.TryLock(); }).join();
        EXPECT_FALSE(got);
        lock.Unlock();
        EXPECT_EQ(LockWord().load(), 0U);
    }
}

TEST_F(HostileMemory, ALockWordWrittenOverWhileItIsHeldLocksNobodyOut) {
    CCoreLock lock(*m_memory);
    CCoreLock other(*m_memory);
    lock.Lock();
    LockWord() = 0x12345678;
    lock.Unlock();
    EXPECT_TRUE(other.TryLock());
    LockWord() = 0;
    lock.Lock();
    other.Unlock();
    EXPECT_FALSE(other.TryLock()) << "the first one's unlocking did not take it from the second";
    lock.Unlock();
    EXPECT_TRUE(other.TryLock());
    other.Unlock();
}

TEST_F(HostileMemory, AFaultThatNobodySetIsNoneAndItsBitGoes) {
    CFaults faults(Shm());
    Shm().faults.on = 0xFFFFFFFF;
    EXPECT_FALSE(faults.IsOn(Fault::Crash));
    EXPECT_FALSE(faults.IsOn(Fault::LinkDown));
    EXPECT_EQ(faults.Strikes(Fault::ReadFails, 5), 0U);
    uint32_t suspects = 0;
    EXPECT_EQ(faults.DropGarbage(suspects), 0U) << "somebody might just be setting it";
    EXPECT_EQ(faults.DropGarbage(suspects), 32U);
    EXPECT_EQ(Shm().faults.on.load(), 0U);
}

TEST_F(HostileMemory, AFaultWhoseWordsWereWrittenOverIsOneNoMore) {
    CFaults faults(Shm());
    faults.Set({Fault::SlowReader, 1, 3, 8192});
    faults.Set({Fault::LinkDown});
    EXPECT_TRUE(faults.IsOn(Fault::SlowReader, 3));
    Shm().faults.kinds[static_cast<size_t>(Fault::SlowReader)].target = 4;
    EXPECT_FALSE(faults.IsOn(Fault::SlowReader, 3));
    EXPECT_FALSE(faults.IsOn(Fault::SlowReader, 4));
    EXPECT_TRUE(faults.IsOn(Fault::LinkDown));
    uint32_t suspects = 0;
    faults.DropGarbage(suspects);
    EXPECT_EQ(faults.DropGarbage(suspects), 1U);
    EXPECT_TRUE(faults.IsOn(Fault::LinkDown)) << "the others stay";
    faults.Clear(Fault::LinkDown);
    Shm().faults.on = 0xFFFFFFFF;
    EXPECT_FALSE(faults.IsOn(Fault::LinkDown)) << "one that was switched off does not come back";
}

TEST_F(HostileMemory, ARequestThatNobodyMadeIsNotDone) {
    CRequestTaker requests(Shm().control);
    int done = 0;
    const auto handle = [&done](Request, uint64_t) {
        ++done;
        return 0;
    };
    Shm().control.kind = static_cast<uint32_t>(Request::Pause);
    Shm().control.asked = 77;
    requests.Answer(handle);
    EXPECT_EQ(done, 0);
    EXPECT_EQ(Shm().control.result.load(), EBADMSG);
    EXPECT_EQ(Shm().control.answered.load(), 77U) << "who asks next is not kept waiting";
    PutRequest(Shm().control, 78, Request::Pause, 0);
    requests.Answer(handle);
    EXPECT_EQ(done, 1);
    EXPECT_EQ(requests.Garbage(), 1U);
}

TEST_F(HostileMemory, ARequestIsDoneOnceWhateverIsWrittenIntoTheAnswer) {
    CRequestTaker requests(Shm().control);
    int done = 0;
    const auto handle = [&done](Request, uint64_t) {
        ++done;
        return 0;
    };
    PutRequest(Shm().control, 1, Request::Step, 5);
    requests.Answer(handle);
    Shm().control.answered = 0xABCD;
    requests.Answer(handle);
    requests.Answer(handle);
    EXPECT_EQ(done, 1);
    EXPECT_EQ(Shm().control.answered.load(), 1U);
    EXPECT_EQ(requests.Garbage(), 1U);
    Shm().control.argument = 6;  // of a request that was made for 5
    Shm().control.asked = 2;
    requests.Answer(handle);
    EXPECT_EQ(done, 1);
}

TEST_F(HostileMemory, TheBoardPutsItsHeaderRight) {
    EXPECT_EQ(m_memory->MendHeader(), 0U);
    ZceBoard::ShmHeader& header = Shm().header;
    header.magic = 0;
    header.version = 1;
    header.bus = 7;
    header.size = 3;
    header.boardPid = 1;
    header.accessNs = 500;
    EXPECT_EQ(CBoardMemory::Probe(0), ENODEV);
    EXPECT_EQ(m_memory->MendHeader(), 6U);
    EXPECT_EQ(CBoardMemory::Probe(0), 0);
    EXPECT_EQ(header.boardPid.load(), getpid());
    EXPECT_EQ(header.bus.load(), 0U);
    EXPECT_EQ(header.accessNs.load(), 0U);
}

TEST_F(HostileMemory, ABoardWhoseNameWasTakenKnowsItAndLeavesTheOthersAlone) {
    EXPECT_TRUE(m_memory->HasItsName());
    ASSERT_EQ(unlink(ShmPath().c_str()), 0);
    EXPECT_FALSE(m_memory->HasItsName());
    std::ofstream(ShmPath()) << "another one's";
    EXPECT_FALSE(m_memory->HasItsName());
    m_memory.reset();
    EXPECT_EQ(access(ShmPath().c_str(), F_OK), 0) << "not the board's, so not removed";
}

TEST_F(HostileMemory, AMemoryThatWasCutShortEndsItsUserWithOneLine) {
    std::string errors;
    const int status = ChildTelling(
        [this] {
            CBoardMemory user;
            if (user.Attach(0) != 0 || truncate(ShmPath().c_str(), 4096) != 0) {
                return 3;
            }
            return static_cast<int>(user.Shm().registers[0x11].load());
        },
        errors);
    EXPECT_EQ(status, -SIGBUS);
    EXPECT_EQ(errors, "zce-board: bus 0: the board's memory " + ShmPath() +
                          " was cut short by another process; this process ends. Start zce-board "
                          "anew, then the programs that use it.\n");
}

// Reads a page behind the end of a file that is no board's.
int ReadBehindAFile(const std::string& path) {
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    unlink(path.c_str());
    void* mem = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, file, 0);
    return mem == MAP_FAILED ? 3 : *static_cast<volatile int*>(mem);
}

// An application that has a handler of its own before it uses a board.
class HostileApplication : public boardtest::BoardFixture {
  protected:
    HostileApplication() {
        struct sigaction action {};
        action.sa_sigaction = [](int signal, siginfo_t* info, void*) {
            _exit(signal == SIGBUS && info->si_signo == SIGBUS ? 42 : 43);
        };
        action.sa_flags = SA_SIGINFO;
        sigaction(SIGBUS, &action, nullptr);
        m_memory = MakeBoard();
    }
    std::unique_ptr<CBoardMemory> m_memory;
};

TEST_F(HostileApplication, ItsHandlerGetsTheFaultsThatAreNotTheBoards) {
    const std::string other = testing::TempDir() + "/hostileother" + std::to_string(getpid());
    EXPECT_EQ(boardtest::InChild([&other] { return ReadBehindAFile(other); }), 42);
    EXPECT_EQ(boardtest::InChild([] { return raise(SIGBUS); }), 42);
}

TEST_F(HostileApplication, TheBoardsMemoryCutShortIsNotItsHandlersBusiness) {
    EXPECT_EQ(boardtest::InChild([this] {
                  close(STDERR_FILENO);
                  const int cut = truncate(ShmPath().c_str(), 0);
                  return cut + static_cast<int>(m_memory->Shm().registers[0x11].load());
              }),
              -SIGBUS);
}

TEST_F(HostileMemory, WithoutAnyHandlerTheOtherFaultsEndTheProcessAsEver) {
    if (velatest::underSanitizer) {
        GTEST_SKIP() << "the sanitizer has a handler of its own for every fault";
    }
    EXPECT_EQ(boardtest::InChild([this] { return ReadBehindAFile(m_errors + ".other"); }), -SIGBUS);
    EXPECT_EQ(boardtest::InChild([] { return raise(SIGBUS); }), -SIGBUS);
}

TEST_F(HostileMemory, MemoryThatIsMappedNoMoreIsWatchedNoMore) {
    if (velatest::underSanitizer) {
        GTEST_SKIP() << "the sanitizer has a handler of its own for every fault";
    }
    std::string errors;
    const int status = ChildTelling(
        [this] {
            CBoardMemory user;
            if (user.Attach(0) != 0) {
                return 3;
            }
            const void* const place = &user.Shm();
            user.~CBoardMemory();
            new (&user) CBoardMemory;
            // Something else at the same address.
            const int file =
                open((m_errors + ".other").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
            unlink((m_errors + ".other").c_str());
            void* mem =
                mmap(const_cast<void*>(place), 4096, PROT_READ, MAP_SHARED | MAP_FIXED, file, 0);
            return mem == MAP_FAILED ? 3 : *static_cast<volatile int*>(mem);
        },
        errors);
    EXPECT_EQ(status, -SIGBUS);
    EXPECT_EQ(errors, "");
}

// A user who is not root and not the board's: members of no group but the given one.
int AttachAs(gid_t group) {
    return boardtest::InChild([group] {
        constexpr uid_t nobody = 65534;
        if (setgroups(1, &group) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0) {
            return velatest::COULD_NOT_RUN;
        }
        return CBoardMemory::Probe(0);
    });
}

TEST_F(HostileMemory, OnlyTheUserAndTheGroupThatWasGivenGetIn) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    constexpr gid_t group = 4321;
    EXPECT_EQ(AttachAs(group), EACCES);
    m_memory.reset();
    CBoardMemory shared;
    int32_t pid = 0;
    ASSERT_EQ(shared.Create(0, pid, group), 0);
    struct stat st {};
    ASSERT_EQ(stat(ShmPath().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0660U);
    EXPECT_EQ(st.st_gid, group);
    EXPECT_EQ(AttachAs(group), 0);
    EXPECT_EQ(AttachAs(group + 1), EACCES);
}

TEST_F(HostileMemory, AGroupThatTheUserIsNotInIsRefusedAndNothingIsLeft) {
    m_memory.reset();
    EXPECT_EQ(velatest::RunAsUser([] {
                  CBoardMemory memory;
                  int32_t pid = 0;
                  return memory.Create(0, pid, gid_t{4321}) == ENOTSUP ? 0 : 1;
              }),
              0);
    EXPECT_NE(access(ShmPath().c_str(), F_OK), 0);
}

}  // namespace
