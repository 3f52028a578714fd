// Texts to the validation of addresses and to the reading of the network keys of an INI file: a
// length, a MAC; a length, an IP; the rest is a port.

#include <algorithm>
#include <cstdio>
#include <string>

#include "DataType/ZceConfigFile.h"
#include "VelaZceUtils.h"
#include "fuzzBoard.h"
#include "fuzzHost.h"
#include "fuzzInput.h"

namespace {

using namespace velafuzz;

void CheckValidation(const std::string& text) {
    const CExactBlock block = ZeroTerminated(text);
    const std::string shown = block.Chars();
    const bool bMac = IsValidMac(block.Chars());
    const bool bIp = IsValidIp(block.Chars());
    FUZZ_CHECK(!bMac || (shown.size() == 17 && std::count(shown.begin(), shown.end(), ':') == 5));
    FUZZ_CHECK(!bIp || shown.find_first_not_of("0123456789.") == std::string::npos);
    FUZZ_CHECK(!bMac || !bIp);
    FUZZ_CHECK(contains_digit(block.Chars()) ==
               (shown.find_first_of("0123456789") != std::string::npos));
    // Room for exactly as many numbers as it may write.
    const CExactBlock room(std::string(5, '\0'));
    auto* const out = const_cast<unsigned char*>(room.Data());
    const int result = ipStr2val(block.Chars(), out);
    FUZZ_CHECK(result == 0 || result == -1);
    // The first 20 characters alone count.
    FUZZ_CHECK(result == -1 ||
               shown.substr(0, 20).find_first_not_of("0123456789.") == std::string::npos);
    FUZZ_CHECK(result == -1 || contains_digit(block.Chars()));
    FUZZ_CHECK(result == -1 || std::find(out, out + 5, 34) == out + 5);
}

// What an INI file cannot hold as a value, it does not hold.
std::string AsValue(const std::string& text) {
    std::string value = text;
    std::replace_if(
        value.begin(), value.end(), [](char letter) { return letter < ' ' || letter > '~'; }, '_');
    return "\"" + value + "\"";
}

void CheckRegisters(CFuzzBoard& board, const std::string& mac, const std::string& ip) {
    unsigned int bytes[6] = {};
    FUZZ_CHECK(board.Reg(0x301) <= 0xFFFF);
    if (IsValidMac(mac.c_str()) &&
        std::sscanf(mac.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x", &bytes[0], &bytes[1], &bytes[2],
                    &bytes[3], &bytes[4], &bytes[5]) == 6) {
        FUZZ_CHECK(board.Reg(0x301) == (bytes[0] << 8 | bytes[1]));
        FUZZ_CHECK(board.Reg(0x302) ==
                   (bytes[2] << 24 | bytes[3] << 16 | bytes[4] << 8 | bytes[5]));
    }
    if (IsValidIp(ip.c_str()) &&
        std::sscanf(ip.c_str(), "%u.%u.%u.%u", &bytes[0], &bytes[1], &bytes[2], &bytes[3]) == 4) {
        FUZZ_CHECK(board.Reg(0x303) ==
                   (bytes[0] << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3]));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    PrepareLibrary();
    static auto& board = *new CFuzzBoard;
    CFuzzInput input(data, size);
    const std::string mac = input.TakeText(input.Take<unsigned char>());
    const std::string ip = input.TakeText(input.Take<unsigned char>());
    const std::string port = input.Rest();
    for (const std::string& text : {mac, ip, port}) {
        CheckValidation(text);
    }
    WriteFile("net.ini", "[config]\ndevice=xilinx0:0\nL5_DSTMAC=" + AsValue(mac) +
                             "\nL5_DSTIP=" + AsValue(ip) + "\nL5_DSTPORT=" + AsValue(port) + "\n");
    board.Clear();
    CFuzzDrv drv(board);
    Vela2_U50::CZceConfigFile config("net.ini", &drv, nullptr);
    if (config.Init() == 0) {
        config.CfgNetReg();
        CheckRegisters(board, mac, ip);
        FUZZ_CHECK(board.Reg(0x300) == 0);  // three of the feed's six items
    }
    return 0;
}
