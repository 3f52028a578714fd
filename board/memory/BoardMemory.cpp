#include "memory/BoardMemory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "memory/MemoryGuard.h"

namespace ZceBoard {

namespace {

// The board belongs to the user who started it, and if he wants to a group.
constexpr mode_t SHM_MODE = S_IRUSR | S_IWUSR;
constexpr mode_t SHM_GROUP_MODE = SHM_MODE | S_IRGRP | S_IWGRP;

std::string CutShortLine(uint32_t bus, const std::string& name) {
    return "zce-board: bus " + std::to_string(bus) + ": the board's memory /dev/shm" + name +
           " was cut short by another process; this process ends. Start zce-board anew, then the "
           "programs that use it.";
}

}  // namespace

CBoardMemory::~CBoardMemory() {
    // The name goes while the life lock is still held, so it can only be this board's. A forked
    // child has lost the descriptor: it is not the board and removes nothing.
    if (m_creator && m_file.Fd() >= 0 && HasItsName()) {
        shm_unlink(m_name.c_str());
    }
    if (m_shm != nullptr) {
        UnwatchMemory(m_shm);
        munmap(m_shm, sizeof(BoardShm));
    }
}

int CBoardMemory::Create(uint32_t bus, int32_t& pid, std::optional<gid_t> group,
                         uint32_t accessNs) {
    pid = 0;
    m_bus = bus;
    m_accessNs = accessNs;
    m_name = ShmName(bus);
    if (m_name.empty()) {
        return EINVAL;
    }
    int err = RemoveStale(pid);
    if (err != 0) {
        return err;
    }
    err = m_file.Open(m_name, O_RDWR | O_CREAT | O_EXCL, SHM_MODE);
    if (err != 0) {
        return err == EEXIST ? EBUSY : err;
    }
    err = m_file.Lock(LOCK_BOARD);
    if (err != 0) {
        m_file.Close();  // another starting board took it for stale memory: it is that one's now
        return err == EAGAIN ? EBUSY : err;
    }
    int64_t size = 0;
    m_creator = m_file.Stat(size, m_inode) == 0;
    if (group && OpenToGroup(*group) != 0) {
        return ENOTSUP;
    }
    if (ftruncate(m_file.Fd(), sizeof(BoardShm)) != 0) {
        return errno;
    }
    err = Map(m_file);
    return err != 0 ? err : InitShm();
}

int CBoardMemory::OpenToGroup(gid_t group) const {
    // The mode last: until then only the user himself gets in.
    return fchown(m_file.Fd(), static_cast<uid_t>(-1), group) == 0 &&
                   fchmod(m_file.Fd(), SHM_GROUP_MODE) == 0
               ? 0
               : errno;
}

int CBoardMemory::RemoveStale(int32_t& pid) {
    CBoardFile old;
    int err = old.Open(m_name, O_RDWR, 0);
    if (err == ENOENT) {
        return 0;
    }
    if (err != 0) {
        return err;
    }
    err = old.Lock(LOCK_BOARD);
    if (err == EAGAIN) {
        CBoardMemory living;
        if (living.Attach(m_bus) == 0) {
            pid = living.Shm().header.boardPid.load(std::memory_order_relaxed);
        }
        return EBUSY;
    }
    if (err == 0 && shm_unlink(m_name.c_str()) != 0 && errno != ENOENT) {
        err = errno;
    }
    return err;
}

int CBoardMemory::Map(const CBoardFile& file) {
    int64_t size = 0;
    const int err = file.Stat(size, m_inode);
    if (err != 0) {
        return err;
    }
    if (size != static_cast<int64_t>(sizeof(BoardShm))) {
        return size == 0 ? ENODEV : EPROTO;  // 0: a board that is just being made
    }
    void* mem = mmap(nullptr, sizeof(BoardShm), PROT_READ | PROT_WRITE, MAP_SHARED, file.Fd(), 0);
    if (mem == MAP_FAILED) {
        return errno;
    }
    m_shm = static_cast<BoardShm*>(mem);
    WatchMemory(m_shm, sizeof(BoardShm), CutShortLine(m_bus, m_name));
    return 0;
}

// The memory is fresh and zero; nobody takes it for a board before the magic number is there.
int CBoardMemory::InitShm() {
    ShmHeader& header = m_shm->header;
    header.version.store(SHM_VERSION, std::memory_order_relaxed);
    header.bus.store(m_bus, std::memory_order_relaxed);
    header.size.store(sizeof(BoardShm), std::memory_order_relaxed);
    header.boardPid.store(getpid(), std::memory_order_relaxed);
    header.accessNs.store(m_accessNs, std::memory_order_relaxed);
    m_shm->registers[REG_LINK_STATUS].store(LINK_ALL_CONNECTED, std::memory_order_relaxed);
    header.magic.store(SHM_MAGIC, std::memory_order_release);
    return 0;
}

uint32_t CBoardMemory::MendHeader() {
    ShmHeader& header = m_shm->header;
    uint32_t mended = 0;
    const auto keep = [&mended](auto& word, auto value) {
        if (word != value) {
            word = value;
            ++mended;
        }
    };
    keep(header.version, SHM_VERSION);
    keep(header.bus, m_bus);
    keep(header.size, uint64_t{sizeof(BoardShm)});
    keep(header.boardPid, getpid());
    keep(header.accessNs, m_accessNs);
    keep(header.magic, SHM_MAGIC);
    return mended;
}

bool CBoardMemory::HasItsName() const {
    CBoardFile file;
    int64_t size = 0;
    uint64_t inode = 0;
    return file.Open(m_name, O_RDONLY, 0) == 0 && file.Stat(size, inode) == 0 && inode == m_inode;
}

int CBoardMemory::OpenLiving(CBoardFile& file, uint32_t bus) {
    const std::string name = ShmName(bus);
    if (name.empty()) {
        return ENODEV;
    }
    const int err = file.Open(name, O_RDWR, 0);
    if (err != 0) {
        return err == ENOENT ? ENODEV : err;
    }
    return file.IsLocked(LOCK_BOARD) ? 0 : ENODEV;
}

int CBoardMemory::Attach(uint32_t bus) {
    CBoardFile file;
    int err = OpenLiving(file, bus);
    m_bus = bus;
    m_name = ShmName(bus);
    if (err == 0) {
        err = Map(file);
    }
    if (err != 0) {
        return err;
    }
    const ShmHeader& header = m_shm->header;
    if (header.magic.load(std::memory_order_acquire) == 0) {
        err = ENODEV;
    } else if (header.magic.load(std::memory_order_relaxed) != SHM_MAGIC ||
               header.version != SHM_VERSION || header.size != sizeof(BoardShm)) {
        err = EPROTO;
    }
    if (err != 0) {
        UnwatchMemory(m_shm);
        munmap(m_shm, sizeof(BoardShm));
        m_shm = nullptr;
    }
    return err;
}

int CBoardMemory::Probe(uint32_t bus) {
    CBoardMemory memory;
    return memory.Attach(bus);
}

int CBoardMemory::Reopen(CBoardFile& file) const {
    const std::string name = ShmName(m_bus);
    int err = name.empty() ? ENODEV : file.Open(name, O_RDWR, 0);
    int64_t size = 0;
    uint64_t inode = 0;
    if (err == 0) {
        err = file.Stat(size, inode);
    }
    if (err == 0 && (inode != m_inode || !file.IsLocked(LOCK_BOARD))) {
        err = ENODEV;
    }
    if (err != 0) {
        file.Close();
    }
    return err == ENOENT ? ENODEV : err;
}

}  // namespace ZceBoard
