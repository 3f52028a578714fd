#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "memory/BoardFile.h"
#include "memory/ShmLayout.h"

namespace ZceBoard {

// One board's shared memory, mapped whole. The mapping stays good as long as the object, also when
// the board's process ends and its name is gone.
class CBoardMemory {
  public:
    CBoardMemory() = default;
    ~CBoardMemory();
    CBoardMemory(const CBoardMemory&) = delete;
    CBoardMemory& operator=(const CBoardMemory&) = delete;

    // Makes the board of a bus; this object is then the board's life, and its end removes the
    // memory's name. What a crashed board left behind under that name is removed first. 0; EBUSY if
    // another process is the bus's board (`pid` says which, 0: unknown); or another errno. The
    // memory is the user's alone, or with `group` also that group's; ENOTSUP if it could not be
    // given to the group (the user is not in it). Each access to a register of the board takes
    // `accessNs` at least, up to MAX_ACCESS_NS.
    int Create(uint32_t bus, int32_t& pid, std::optional<gid_t> group = std::nullopt,
               uint32_t accessNs = 0);

    // Maps the living board of a bus: 0; ENODEV if there is none; EPROTO if it is one of another
    // version; or another errno (EACCES: another user's).
    int Attach(uint32_t bus);

    // Whether there is a living board on the bus: the errno of Attach, without mapping it.
    static int Probe(uint32_t bus);

    // A further description of the same memory's file, to lock a stream with: 0; ENODEV if the
    // board is gone or it is another one by now; or another errno.
    int Reopen(CBoardFile& file) const;

    BoardShm& Shm() const { return *m_shm; }
    bool IsOpen() const { return m_shm != nullptr; }
    uint32_t Bus() const { return m_bus; }
    uint64_t Inode() const { return m_inode; }

    // For the board, now and then: puts right what it alone writes in the header, and says how many
    // words that were.
    uint32_t MendHeader();
    // Whether the memory still has its name, so that programs that start now find it.
    bool HasItsName() const;
    // The file of the board's life; only the board's own process keeps it open.
    const CBoardFile& File() const { return m_file; }

  private:
    int OpenLiving(CBoardFile& file, uint32_t bus);
    int RemoveStale(int32_t& pid);
    int Map(const CBoardFile& file);
    int InitShm();
    int OpenToGroup(gid_t group) const;

    CBoardFile m_file;
    BoardShm* m_shm = nullptr;
    std::string m_name;
    uint32_t m_bus = 0;
    uint64_t m_inode = 0;
    uint32_t m_accessNs = 0;  // of a board that was made here
    bool m_creator = false;
};

}  // namespace ZceBoard
