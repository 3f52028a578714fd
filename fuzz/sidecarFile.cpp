// Any bytes as the sidecar of a capture: its reader, and that what it took is written so that it is
// read again as the same.

#include "capture/SidecarReader.h"
#include "fuzzHost.h"
#include "fuzzInput.h"

namespace {

using namespace velafuzz;
using ZceCapture::Sidecar;

bool Read(const std::string& text, Sidecar& sidecar) {
    WriteFile("day.pcap.json", text);
    std::string error;
    const bool bGood = ReadSidecar("day.pcap", sidecar, error);
    FUZZ_CHECK(bGood == error.empty());
    FUZZ_CHECK(bGood || error.starts_with("day.pcap.json: "));
    return bGood;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    PrepareBoard();
    Sidecar sidecar;
    if (Read(CFuzzInput(data, size).Rest(), sidecar)) {
        const std::string text = SidecarText(sidecar);
        Sidecar again;
        FUZZ_CHECK(Read(text, again));
        FUZZ_CHECK(SidecarText(again) == text);
    }
    return 0;
}
