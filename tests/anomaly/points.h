#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// The places at which a run can be made to fail: each call of a kind has a number, from 1 on.
namespace anomaly {

enum class Kind : unsigned int {
    Vendor,  // a call of the vendor's library that has a result, polls included
    Read,    // a register read
    Write,   // a register write
    Fopen,
    Fwrite,
    Fflush,
    Stat,
    Access,
    Popen,
    MutexLock,
    Memory,     // operator new, and what the INI reader allocates
    LocalTime,  // of the clock's conversions
    None,
};
constexpr std::size_t kindNum = static_cast<std::size_t>(Kind::None);

const char* NameOf(Kind kind);

// Which calls of a kind fail.
struct Failure {
    Kind kind = Kind::None;
    std::uint32_t first = 0;
    bool forGood = false;
};

// What the process that runs writes and the one that watches reads: shared memory, so that a run
// may end in any way. Nothing here allocates.
struct Report {
    static constexpr std::size_t vendorMax = 512;
    static constexpr std::size_t nameBytes = 48;
    static constexpr std::size_t accessMax = 1 << 14;

    std::array<std::uint32_t, kindNum> counts;
    std::array<std::array<char, nameBytes>, vendorMax> vendorCalls;  // by number, from 0 here

    // The accesses to registers other than those of the two tables, and how they are numbered.
    struct Control {
        std::uint32_t number;
        std::uint32_t addr;
    };
    std::array<Control, accessMax> controlReads;
    std::array<Control, accessMax> controlWrites;
    std::uint32_t controlReadNum;
    std::uint32_t controlWriteNum;

    // The access that failed, and how many did.
    std::uint32_t failedAddr;
    std::uint32_t failedValue;
    std::uint32_t failures;

    // How far the run came.
    bool created;
    bool started;
    int startResult;
    bool destroyed;
    unsigned int callbacks;
    bool ended;  // with its end checks made, also if the code under test ended the process

    // The end checks.
    int locksHeld;
    int filters;
    int descriptors;
    int a2cStreams;
    int c2aStreams;
    int openFiles;                 // descriptors more than before, the cache file's not counted
    int cacheFiles;                // descriptors of the cache file
    unsigned int decode;           // register 0x11
    std::uint64_t masks;           // a sum over both tables' masks and their places
    std::array<char, 128> misuse;  // of the vendor's library, the first one
};

// The process's report. Never null; MakeReport puts it into shared memory.
Report& TheReport();
void MakeReport();

// Counts nothing and fails nothing unless armed.
void Arm(const Failure& failure);
void Disarm();
// Numbers one call of this kind; whether it is to fail.
bool Fails(Kind kind);

}  // namespace anomaly
