#pragma once

#include "fakeDrv.h"
#include "startBench.h"

// The instruments and the rules of the sequences: their selection is 9 words.
namespace velatest {

constexpr const char* sequenceIni =
    "[config]\n"
    "device=xilinx0:0\n"
    "[channel0]\n"
    "insts=SR, CF209, XX999\n"
    "options=recv\n"
    "ips=recv\n"
    "[channel3]\n"
    "insts=all\n"
    "options=norecv\n"
    "spd=recv\n";

const Insts_t sequenceFirst = {{5, "SR209"}, {6, "SR209C5000"}, {7, "CF209"}};
const Insts_t sequenceSecond = {
    {8, "CF301"}, {9, "CF301P15000"}, {0, "SPD-SR209&SR301"}, {1, "IPS-SF209&SM209"}};

// What the rules make of them, written and read back: channel 0 is bit 0, channel 3 bit 3.
template <typename Script>
void WritesAndReadsBackTheSelection(Script& script) {
    script.ReadBackWrite(0x11001, 0x9);  // SR209: class SR, all
    script.ReadBackWrite(0x11000, 5 * 64);
    script.ReadBackWrite(0x11001, 0x1);  // SR209C5000: class SR, options
    script.ReadBackWrite(0x11000, 6 * 64);
    script.ReadBackWrite(0x11001, 0x9);  // CF209: its id, all
    script.ReadBackWrite(0x11000, 7 * 64);
    script.ReadBackWrite(0x11001, 0x8);  // CF301: all
    script.ReadBackWrite(0x11000, 8 * 64);
    script.ReadBackWrite(0x12001, 0x8);  // SPD-SR209&SR301: spd
    script.ReadBackWrite(0x12000, 0);
    script.ReadBackWrite(0x12001, 0x1);  // IPS-SF209&SM209: ips
    script.ReadBackWrite(0x12000, 64);
    script.ReadBackWrite(0x11002, 5 * 64);
    script.Read(0x11003, 0x9);
    script.ReadBackWrite(0x11002, 6 * 64);
    script.Read(0x11003, 0x1);
    script.ReadBackWrite(0x11002, 7 * 64);
    script.Read(0x11003, 0x9);
    script.ReadBackWrite(0x11002, 8 * 64);
    script.Read(0x11003, 0x8);
    script.ReadBackWrite(0x12002, 0);
    script.Read(0x12003, 0x8);
    script.ReadBackWrite(0x12002, 64);
    script.Read(0x12003, 0x1);
}

// The lines of the selection, from the rules to the decoder.
inline Lines_t SelectionLines() {
    Lines_t lines = {
        "INFO [channel:0] --------Channel 0 subscribed information is as below:--------",
        "INFO [channel:0] subId:CF209",
        "INFO [channel:0] subId:XX999",
        "INFO [channel:0] subClass:SR,",
        "INFO [channel:0] options=recv",
        "INFO [channel:0] ips=recv",
        "INFO [channel:3] --------Channel 3 subscribed information is as below:--------",
        "INFO [channel:3] You subscribe all subId !",
        "INFO [channel:3] subClass:all,",
        "INFO [channel:3] options=norecv",
        "INFO [channel:3] spd=recv",
        "INFO --------------------------------------------------------",
        "WARN [channel:0] Warning!! Hasn't receive these insts:XX999! The program continues to run",
        "INFO Begin match needed inst! AllInstNum:7.",
    };
    const auto perChannel = [](const auto& lineOf) {
        for (int channel = 0; channel < 16; ++channel) {
            lineOf(channel);
        }
    };
    perChannel([&lines](int channel) {
        const std::string counts = channel == 0   ? "3, cmb count:1."
                                   : channel == 3 ? "3, cmb count:1."
                                                  : "0, cmb count:0.";
        lines.push_back("INFO [channel:" + std::to_string(channel) +
                        "] Filter needed sgl count:" + counts);
    });
    perChannel([&lines](int channel) {
        const std::string label = "INFO [channel:" + std::to_string(channel) + "] ";
        const std::string head = label + "Record func:Meeting conditions count is:OneLeg:";
        if (channel == 0 || channel == 3) {
            lines.push_back(head + "3, Combine:1.");
        } else {
            lines.push_back(head + "0, Combine:0.");
            lines.push_back(label + "Matched subs inst count is 0. you doesn't subscribe inst.");
        }
    });
    for (const char* line : {
             "WARN Subscribe:Meeting conditions count is:OneLeg:4, Combine:2. Now write to fpga!",
             "INFO Subscribes:Write to fpga:chanbit:0x9, index:5, instId:SR209",
             "INFO Subscribes:Write to fpga:chanbit:0x1, index:6, instId:SR209C5000",
             "INFO Subscribes:Write to fpga:chanbit:0x9, index:7, instId:CF209",
             "INFO Subscribes:Write to fpga:chanbit:0x8, index:8, instId:CF301",
             "INFO Subscribes:Write to fpga:chanbit:0x8, index:0, instId:SPD-SR209&SR301",
             "INFO Subscribes:Write to fpga:chanbit:0x1, index:1, instId:IPS-SF209&SM209",
             "INFO Subscribes:Write to fpga Over!",
             "INFO Already write into fpga, now read back!",
             "INFO Now Fpga start trans subscribe result! write 0x11 value:0x3.",
         }) {
        lines.emplace_back(line);
    }
    return lines;
}

inline void SetBoardTime(FakeDrv& drv, unsigned int hhmmss) {
    drv.SetReg(0x104, hhmmss);
    drv.SetReg(0x105, hhmmss);
}

}  // namespace velatest
