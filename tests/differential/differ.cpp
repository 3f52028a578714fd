// Runs the library on cases (one JSON object a line on standard input) and prints what it did (one
// JSON object a line on standard output), for comparison with another implementation.

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <numeric>
#include <stdexcept>
#include <string>

#include "DataType/ContractServ.h"
#include "DataType/ZceConfigFile.h"
#include "DataType/ZceFpgaServ.h"
#include "SignalProcess.h"
#include "VelaZceBinFile.h"
#include "VelaZceUpdmaImpl.h"
#include "differText.h"
#include "fakeClock.h"
#include "scriptedBoard.h"
#include "tempDir.h"
#include "wholeFile.h"

// What is inside a worker, and the flags of the process.
struct ZceDmaChanTestPeer {
    static std::map<std::string, unsigned short>& Insts(CZceDmaChanImpl& chan) {
        return chan.m_mapInst;
    }
    static unsigned long& ParsedCnt(CZceDmaChanImpl& chan) { return chan.m_ulParsedCnt; }
    static void SetServices(CZceDmaChanImpl& chan, Vela2_U50::CZceFpgaServ& fpga,
                            Vela2_U50::CContractServ& contracts, CTernBinFile& bin) {
        chan.m_pFpgaServ = &fpga;
        chan.m_pContractServ = &contracts;
        chan.m_pBinFile = &bin;
    }
    // A worker leaves its services to the process.
    struct Services {
        explicit Services(const CZceDmaChanImpl& chan)
            : fpga(chan.m_pFpgaServ), contracts(chan.m_pContractServ), bin(chan.m_pBinFile) {}
        std::unique_ptr<Vela2_U50::CZceFpgaServ> fpga;
        std::unique_ptr<Vela2_U50::CContractServ> contracts;
        std::unique_ptr<CTernBinFile> bin;
    };
    static nlohmann::json Flags() {
        return {CZceDmaChanImpl::s_bAllSubsOver, CZceDmaChanImpl::s_bCallTimeExpired,
                CZceDmaChanImpl::s_bLoadMapEnabled};
    }
    static void MakeProcessNew() {
        CZceDmaChanImpl::m_bSignalRegister = 0;
        CZceDmaChanImpl::s_bAllSubsOver = 0;
        CZceDmaChanImpl::s_bCallTimeExpired = 0;
        CZceDmaChanImpl::s_bLoadMapEnabled = 1;
        CZceDmaChanImpl::s_bFirstTmRead = 0;
        CZceDmaChanImpl::s_uiFirstTm = 0;
        CZceSettleTime::g_uiContractSettleTm = 0;
    }
};

namespace velatest {

namespace {

using nlohmann::json;
using Peer = ZceDmaChanTestPeer;
using InstMap_t = std::map<std::string, unsigned short>;

constexpr const char* iniName = "case.ini";
constexpr const char* binName = "bin";
// No channel in it: the stream is refused before the vendor's library is asked.
constexpr const char* noStream = "NOSTREAM";

struct ResetedFlag : Vela2_U50::CZceFpgaServ {
    static bool& Get() { return m_bReseted; }
};

void SetClock(const std::string& stamp) {
    FakeClock::Set(static_cast<unsigned int>(std::stoul(stamp.substr(0, 8))),
                   static_cast<unsigned int>(std::stoul(stamp.substr(8))));
}

// The directory, the process and the board as the case says.
void Prepare(const json& testCase, ScriptedBoard& board, bool listTables) {
    std::filesystem::remove_all(binName);
    if (testCase.value("directory", false)) {
        std::filesystem::create_directory(binName);
    } else if (testCase.contains("file") && !testCase["file"].is_null()) {
        const auto bytes = FromHex(testCase["file"]);
        std::ofstream(binName, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }
    std::ofstream(iniName, std::ios::binary)
        << (testCase.contains("ini") ? Bytes(testCase["ini"]) : "[config]\ndevice=xilinx0:0\n");
    Peer::MakeProcessNew();
    ResetedFlag::Get() = false;
    CSignalProcess::m_isExit = 0;
    SetClock(testCase.value("now", "20260105120000"));
    FakeClock::ClearSleeps();
    board.Load(testCase.value("board", json::object()), listTables);
    LoggedLines().clear();
}

void FillMap(InstMap_t& insts, const json& testCase) {
    for (const json& inst : testCase.value("instruments", json::array())) {
        insts[Bytes(inst.at(0))] = inst.at(1).get<unsigned short>();
    }
}

json FileResult() {
    if (!std::filesystem::is_regular_file(binName)) {
        return nullptr;
    }
    return ToHex(velatest::WholeFile(binName));
}

json CommonResult(const InstMap_t& insts) {
    json map = json::array();
    for (const auto& [name, index] : insts) {
        map.push_back({Escaped(name), index});
    }
    return {{"log", LoggedLines()}, {"map", map}, {"file", FileResult()}};
}

json EscapedList(const std::vector<std::string>& texts) {
    json list = json::array();
    for (const std::string& text : texts) {
        list.push_back(Escaped(text));
    }
    return list;
}

json RulesResult(const Vela2_U50::ZceSubsInfoArray_t& channels) {
    json list = json::array();
    for (const Vela2_U50::ZceSubsInfo_t& rules : channels) {
        list.push_back({EscapedList(rules.vecSubIds), EscapedList(rules.vecSubClasses),
                        rules.bSubAll, rules.bOptionsRecv, rules.bIpsRecv, rules.bSpdRecv,
                        rules.nReserved, Escaped(rules.strSubIds), Escaped(rules.strSubClasses),
                        Escaped(rules.strOptions), Escaped(rules.strIps), Escaped(rules.strSpd)});
    }
    return list;
}

// A loaded configuration, the feed switches read, the lines of that forgotten.
struct Config {
    explicit Config(IDrv& drv) : file(iniName, &drv, nullptr) {
        if (file.Init() != 0) {
            throw std::runtime_error("the INI file does not load");
        }
        file.DumpDevInfo();
        LoggedLines().clear();
    }
    Vela2_U50::CZceConfigFile file;
};

// The services of a master on one instrument map.
struct Services {
    Services(InstMap_t& insts, IDrv& drv, Vela2_U50::CZceConfigFile& config)
        : fpga(insts, 0),
          bin(insts, 0),
          contracts(insts, &config, &bin, &fpga, 0, config.getArrayReference()) {
        fpga.Init(&drv);
    }
    Vela2_U50::CZceFpgaServ fpga;
    CTernBinFile bin;
    Vela2_U50::CContractServ contracts;
};

json RunSelection(const json& testCase, ScriptedBoard& board) {
    Prepare(testCase, board, true);
    ScriptedDrv drv(board);
    Config config(drv);
    InstMap_t insts;
    FillMap(insts, testCase);
    Services services(insts, drv, config.file);
    for (int round = 0; round < testCase.at("rounds"); ++round) {
        services.contracts.FilterAndStoreToGlobMap();
        services.fpga.SubsFromGlobInsts();
    }
    json result = CommonResult(insts);
    result["board"] = board.Result();
    result["rules"] = RulesResult(config.file.getArrayReference());
    return result;
}

json RunMap(const json& testCase, ScriptedBoard& board) {
    Prepare(testCase, board, true);
    ScriptedDrv drv(board);
    Config config(drv);
    CZceDmaChanImpl chan(&drv, nullptr, &config.file);
    InstMap_t& insts = Peer::Insts(chan);
    FillMap(insts, testCase);
    Services services(insts, drv, config.file);
    Peer::SetServices(chan, services.fpga, services.contracts, services.bin);
    Peer::ParsedCnt(chan) = testCase.at("parsed");
    if (testCase.at("open")) {
        services.bin.Normal_FileInit();
    }
    for (const json& step : testCase.at("steps")) {
        SetClock(step.at("now"));
        board.SetRegister(0x104, {step.at("t104")});
        board.SetRegister(0x105, {step.at("t105")});
        // Of its very size, so that a read beyond it shows under AddressSanitizer.
        const std::vector<std::uint8_t> packet = FromHex(step.at("packet"));
        CZceDmaChanImpl::DmaEntrance(packet.data(), static_cast<unsigned int>(packet.size()),
                                     &chan);
    }
    json result = CommonResult(insts);
    result["board"] = board.Result();
    result["parsed"] = Peer::ParsedCnt(chan);
    result["flags"] = Peer::Flags();
    result["settle"] = CZceSettleTime::g_uiContractSettleTm;
    return result;
}

// One operation of a cache file; what a load gave goes to `loaded`.
void Step(const json& step, InstMap_t& insts, std::unique_ptr<CTernBinFile>& file, json& loaded) {
    const std::string operation = step.at(0);
    if (operation == "new") {
        file.reset();
        file = std::make_unique<CTernBinFile>(insts, 0);
    } else if (operation == "clock") {
        SetClock(step.at(1));
    } else if (operation == "settle") {
        CZceSettleTime::g_uiContractSettleTm = step.at(1);
    } else if (operation == "init") {
        file->Normal_FileInit();
    } else if (operation == "instrument") {
        file->Normal_WriteInstToBin(Bytes(step.at(1)), step.at(2).get<unsigned short>());
    } else if (operation == "end") {
        file->WriteEndToBin();
    } else if (operation == "rewrite") {
        file->Intrade_WrInstFromFpga();
    } else if (operation == "load") {
        loaded.push_back(file->Intrade_CheckAndGetAllInstFromBin());
    } else {
        throw std::runtime_error("no such step: " + operation);
    }
}

json RunCache(const json& testCase, ScriptedBoard& board) {
    Prepare(testCase, board, true);
    InstMap_t insts;
    FillMap(insts, testCase);
    auto file = std::make_unique<CTernBinFile>(insts, 0);
    json loaded = json::array();
    for (const json& step : testCase.at("steps")) {
        Step(step, insts, file, loaded);
    }
    json result = CommonResult(insts);
    result["settle"] = CZceSettleTime::g_uiContractSettleTm;
    result["loaded"] = loaded;
    return result;
}

const char* Source(const ScriptedBoard& board) {
    if (board.MapTransfer() == 1) {
        return "learn";
    }
    return board.NamesWereRead() ? "tables" : "bin";
}

json RunStart(const json& testCase, ScriptedBoard& board) {
    Prepare(testCase, board, false);
    // The worker of channel 0 frees its driver.
    auto* const drv = new ScriptedDrv(board);
    Vela2_U50::CZceConfigFile config(iniName, drv, nullptr);
    if (config.Init() != 0) {
        throw std::runtime_error("the INI file does not load");
    }
    LoggedLines().clear();
    Vela2_U50::ZceDmaInitParms_t parms{0, 474, noStream};
    auto chan = std::make_unique<CZceDmaChanImpl>(drv, nullptr, &config);
    chan->Init(&parms);
    chan->Work(&parms);
    json result = CommonResult(Peer::Insts(*chan));
    result["board"] = board.Result();
    result["reset"] = ResetedFlag::Get();
    const std::vector<unsigned int>& sleeps = FakeClock::Sleeps();
    result["slept"] = std::accumulate(sleeps.begin(), sleeps.end(), 0U);
    result["source"] = Source(board);
    const Peer::Services services(*chan);
    chan.reset();
    return result;
}

json Run(const json& testCase, ScriptedBoard& board) {
    const std::string kind = testCase.at("kind");
    if (kind == "selection") {
        return RunSelection(testCase, board);
    }
    if (kind == "map") {
        return RunMap(testCase, board);
    }
    if (kind == "cache") {
        return RunCache(testCase, board);
    }
    if (kind == "start") {
        return RunStart(testCase, board);
    }
    throw std::runtime_error("no such kind: " + kind);
}

// Standard output is the results' alone: what the library prints goes nowhere.
std::FILE* TakeStdout() {
    const int results = dup(STDOUT_FILENO);
    if (results == -1 || std::freopen("/dev/null", "w", stdout) == nullptr) {
        return nullptr;
    }
    return fdopen(results, "w");
}

int Main() {
    std::FILE* const results = TakeStdout();
    if (results == nullptr) {
        std::perror("standard output");
        return 1;
    }
    const TempDir dir(TempDir::Enter::yes);
    const auto board = std::make_unique<ScriptedBoard>();
    for (std::string line; std::getline(std::cin, line);) {
        const std::string result = Run(json::parse(line), *board).dump() + "\n";
        std::fwrite(result.data(), 1, result.size(), results);
        std::fflush(results);
    }
    return std::fclose(results) == 0 ? 0 : 1;
}

}  // namespace

}  // namespace velatest

int main() {
    try {
        return velatest::Main();
    } catch (const std::exception& error) {
        std::cerr << "differ: " << error.what() << '\n';
        return 1;
    }
}
