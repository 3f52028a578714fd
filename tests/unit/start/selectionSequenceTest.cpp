// Every register access and every log line of the call auction: the instruments learnt, its end
// found, the selection written and read back, the decoder on, the broadcast off.

#include "accessScript.h"
#include "fakeDrv.h"
#include "sequenceInsts.h"
#include "startBench.h"

namespace velatest {
namespace {

class SelectionSequence : public testing::Test {
  public:
    SelectionSequence() {
        PutFile("test.ini", sequenceIni);
        FakeClock::Set(20261120, 83000);
        drv->SetReg(0x103, 0xF);
        drv->SetReg(0x106, 20261120);
        bench.Start(drv);
        drv->ClearAccesses();
        bench.log.Clear();
    }
    void ReceiveAt(unsigned int hhmmss, const Insts_t& insts) {
        FakeClock::SetTime(hhmmss);
        SetBoardTime(*drv, hhmmss);
        EXPECT_EQ(bench.Receive(MapPacket(insts)), 0);
    }
    void HoldTheAuction() {
        ReceiveAt(85450, sequenceFirst);
        ReceiveAt(85500, sequenceSecond);
        ReceiveAt(85509, sequenceFirst);
        ReceiveAt(85510, {{77, "TA999"}});  // finds the end and is not learnt
        ReceiveAt(85511, sequenceFirst);    // selects
        ReceiveAt(85512, sequenceFirst);    // of no more use
    }

    StartBench bench{StartBench::Log::On};
    FakeDrv* drv = new FakeDrv;
};

TEST_F(SelectionSequence, MakesTheseAccessesInThisOrder) {
    HoldTheAuction();
    AccessScript script(drv->Accesses());
    for (const unsigned long now : {85450UL, 85500UL, 85509UL, 85510UL}) {
        script.Read(0x104, now);
        script.Read(0x105, now);
    }
    WritesAndReadsBackTheSelection(script);
    script.LoggedWrite(0x11, 3);
    script.LoggedWrite(0x12, 0);
    script.End();
}

TEST_F(SelectionSequence, LogsTheseLinesInThisOrder) {
    HoldTheAuction();
    Lines_t expected = {
        "INFO Write to bin :index:5,inst:SR209,",
        "INFO Write to bin :index:6,inst:SR209C5000,",
        "INFO Write to bin :index:7,inst:CF209,",
        "INFO Write to bin :index:8,inst:CF301,",
        "INFO Write to bin :index:9,inst:CF301P15000,",
        "INFO Write to bin :index:0,inst:SPD-SR209&SR301,",
        "INFO Write to bin :index:1,inst:IPS-SF209&SM209,",
        "INFO Call auction time has expired, totally parse 10 instrumentid.",
        "INFO Write end tag to bin.",
    };
    for (const std::string& line : SelectionLines()) {
        expected.push_back(line);
    }
    expected.emplace_back("INFO Fpga stop transmit inst map pkt.");
    expected.emplace_back("INFO All channel subs over.");
    ExpectLines(bench.log.Lines(), expected);
}

TEST_F(SelectionSequence, LeavesTheCacheFileComplete) {
    HoldTheAuction();
    EXPECT_EQ(FileText("bin"),
              "5,SR209\n6,SR209C5000\n7,CF209\n8,CF301\n9,CF301P15000\n0,SPD-SR209&SR301\n"
              "1,IPS-SF209&SM209\n"
              "contract's_corresponding_time=20261120085510\n"
              "bin_file_over_tag");
}

}  // namespace
}  // namespace velatest
