// Any bytes as the cache file "bin". The first byte chooses the time of day. What was loaded is
// written anew and loaded again.

#include <algorithm>
#include <map>
#include <string>

#include "fakeClock.h"
#include "fuzzBoard.h"
#include "fuzzHost.h"
#include "fuzzInput.h"

namespace {

using namespace velafuzz;

using Insts_t = std::map<std::string, unsigned short>;

constexpr size_t LONGEST_NAME = 120;  // in a line of 127 bytes, whatever its index

int Load(Insts_t& insts) {
    CTernBinFile file(insts, 0);
    return file.Intrade_CheckAndGetAllInstFromBin();
}

// A file of this session holds only what was created at these hours.
bool IsCreationTime(unsigned int time) {
    return time > 145959 ? time >= 200000 && time <= 219999 : time >= 80000 && time <= 102999;
}

void CheckRoundTrip(Insts_t insts) {
    CTernBinFile writer(insts, 0);
    FUZZ_CHECK(writer.Intrade_WrInstFromFpga() == 0);
    Insts_t again;
    FUZZ_CHECK(Load(again) == 0);
    FUZZ_CHECK(again == insts);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    PrepareLibrary();
    CFuzzInput input(data, size);
    const unsigned int time = TimeOf(input.Take<unsigned char>());
    const std::string content = input.Rest();
    WriteFile("bin", content);
    Insts_t insts;
    if (Load(insts) != 0) {
        FUZZ_CHECK(insts.empty());
        return 0;
    }
    FUZZ_CHECK(content.find("bin_file_over_tag") != std::string::npos);
    FUZZ_CHECK(content.find("contract's_corresponding_time=") != std::string::npos);
    FUZZ_CHECK(std::count(content.begin(), content.end(), '\n') >=
               static_cast<std::ptrdiff_t>(insts.size()));
    for (const auto& [name, index] : insts) {
        FUZZ_CHECK(name.find_first_of(",\n") == std::string::npos);
    }
    const bool bShort = std::all_of(insts.begin(), insts.end(), [](const auto& inst) {
        return inst.first.size() <= LONGEST_NAME;
    });
    if (bShort && IsCreationTime(time)) {
        CheckRoundTrip(insts);
    }
    return 0;
}
