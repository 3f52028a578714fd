#pragma once

#include <cstdint>

// A call of the vendor's interface as one word, and a run of the library as a file of such words:
// vendorRecorder.cpp, loaded in front of the vendor's library, writes it.
namespace velabench {

enum class VendorCall : std::uint8_t {
    FilterCreate = 1,
    FilterDestroy,
    FilterSetIndex,  // value: the index
    FilterSetName,   // value: made of the name
    FindAccelerators,
    FreeAccelerators,
    GetAccelerator,
    FindMmios,
    FreeMmios,
    CreateMmio,
    EnumerateCores,
    GetRoot,
    ResetCore,
    FindCores,  // value: the core's id
    Lock,
    Unlock,
    Read,   // with the register, and what was read
    Write,  // with the register, and what is written
    FindA2c,
    FreeA2c,
    CreateA2c,
    A2cMtu,
    FindC2a,
    FreeC2a,
    CreateC2a,
    C2aMtu,
    Failed,  // an access that failed, or one that is not of one whole register
};

// The call in the highest byte, then 24 bits of a register's index, then the value.
constexpr std::uint64_t PackCall(VendorCall call, std::uint64_t index, std::uint64_t value) {
    return std::uint64_t{static_cast<std::uint8_t>(call)} << 56 | (index & 0xFFFFFF) << 32 |
           (value & 0xFFFFFFFF);
}
constexpr VendorCall CallOf(std::uint64_t word) {
    return static_cast<VendorCall>(word >> 56);
}
constexpr std::uint64_t IndexOf(std::uint64_t word) {
    return word >> 32 & 0xFFFFFF;
}
constexpr std::uint32_t ValueOf(std::uint64_t word) {
    return static_cast<std::uint32_t>(word);
}

// The environment of a run that is recorded: the descriptor of the file.
constexpr const char* callsVariable = "VELABENCH_CALLS";

}  // namespace velabench
