// Every register access and every log line of a start inside trading time.

#include "accessScript.h"
#include "fakeDrv.h"
#include "sequenceInsts.h"
#include "startBench.h"

namespace velatest {
namespace {

constexpr const char* goodBin =
    "5,SR209\n6,SR209C5000\n7,CF209\n8,CF301\n9,CF301P15000\n0,SPD-SR209&SR301\n"
    "1,IPS-SF209&SM209\n"
    "contract's_corresponding_time=20261120085510\n"
    "bin_file_over_tag";

const Insts_t sglInsts = {
    {5, "SR209"}, {6, "SR209C5000"}, {7, "CF209"}, {8, "CF301"}, {9, "CF301P15000"}};
const Insts_t cmbInsts = {{0, "SPD-SR209&SR301"}, {1, "IPS-SF209&SM209"}};

// Words 4, 3, 2, 1 of each name, as the board holds them.
struct NameWords_t {
    unsigned long index;
    unsigned long words[4];
};
constexpr NameWords_t sglNames[] = {
    {5, {0x53523230, 0x39000000, 0, 0}},           // SR20 9
    {6, {0x53523230, 0x39433530, 0x30300000, 0}},  // SR20 9C50 00
    {7, {0x43463230, 0x39000000, 0, 0}},           // CF20 9
    {8, {0x43463330, 0x31000000, 0, 0}},           // CF30 1
    {9, {0x43463330, 0x31503135, 0x30303000, 0}},  // CF30 1P15 000
};
constexpr NameWords_t cmbNames[] = {
    {0, {0x5350442D, 0x53523230, 0x39265352, 0x33303100}},  // SPD- SR20 9&SR 301
    {1, {0x4950532D, 0x53463230, 0x3926534D, 0x32303900}},  // IPS- SF20 9&SM 209
};

void PutNames(FakeDrv& drv) {
    for (const auto& [index, name] : sglInsts) {
        drv.SetTableName(FakeDrv::Table::Sgl, index, name);
    }
    for (const auto& [index, name] : cmbInsts) {
        drv.SetTableName(FakeDrv::Table::Cmb, index, name);
    }
}

// Entries 0 to 4094: an entry with a name is read twice, an empty one eight times.
template <std::size_t Size>
void ReadsNames(AccessScript& script, unsigned long readAddr, const NameWords_t (&names)[Size]) {
    constexpr NameWords_t none = {0, {0, 0, 0, 0}};
    const auto* name = std::begin(names);
    for (unsigned long entry = 0; entry <= 4094; ++entry) {
        const bool named = name != std::end(names) && name->index == entry;
        for (int attempt = 0; attempt < (named ? 2 : 8); ++attempt) {
            for (unsigned long part = 0; part < 4; ++part) {
                script.ReadBackWrite(readAddr, entry * 64 + 4 - part);
                script.Read(readAddr + 1, (named ? *name : none).words[part]);
            }
        }
        name += named ? 1 : 0;
    }
}

// Today's board at 10:00:00, its counters moving, its clock three seconds ahead.
class RecoverySequence : public testing::Test {
  public:
    RecoverySequence() {
        PutFile("test.ini", sequenceIni);
        FakeClock::Set(20261120, 100000);
        drv->SetReg(0x103, 0xF);
        drv->SetReg(0x106, 20261120);
        drv->SetReg(0x104, 100003);
        drv->SetReg(0x105, 100002);
        drv->SetReg(0x11, 3);
        FakeClock::OnSleep([this](unsigned int) { MoveCounters(drv->Reg(0x200b) + 1); });
        MoveCounters(41);
    }
    void MoveCounters(unsigned int value) {
        for (const unsigned long addr :
             {0x200bUL, 0x200cUL, 0x200dUL, 0x200eUL, 0x210bUL, 0x210cUL, 0x210dUL, 0x210eUL}) {
            drv->SetReg(addr, value);
        }
    }
    // The reading of date, clock and counters that keeps the board, and its set-up.
    static void KeepsAndSetsUp(AccessScript& script) {
        script.Read(0x106, 20261120);
        script.Read(0x106, 20261120);
        script.Read(0x104, 100003);
        script.Read(0x105, 100002);
        script.Read(0x106, 20261120);
        script.Read(0x11, 3);
        script.ReadsCounters(41);
        script.ReadsCounters(42);
        script.ReadsCounters(43);
        script.Read(0x103, 0xF);
        script.Write(0x106, 20261120);
        script.UnsubscribesAll();
        script.LoggedWrite(0x12, 0);
    }
    static Lines_t KeptLines() {
        return {
            "INFO Successful load confie file test.ini",
            "INFO [channel:0] Busid:0, ChannelId:0.",
            "INFO [channel:0] Busid:0, ChannelId:0.",
            "INFO [channel:0] Doesn't need to bind cpu.",
            "INFO First time read fpga date:20261120, system date:20261120.",
            "INFO [channel:0] Current fpga time:100003. system time:100000.",
            "INFO System time:100003.",
            "INFO 0x11 register value:0x3",
            "INFO Current soft version 3.10.0.",
            "INFO Fiber linkstatus 0x103:0xf.",
            "INFO L1 and L5 switch on.",
            "INFO Update fpga addr 0x106 to 20261120 over",
            "INFO Unsubscribe all insts now",
            "INFO Fpga stop transmit inst map pkt.",
            "INFO Now begin recover all inst",
        };
    }
    static void Append(Lines_t& lines, const Lines_t& more) {
        lines.insert(lines.end(), more.begin(), more.end());
    }

    StartBench bench{StartBench::Log::On};
    FakeDrv* drv = new FakeDrv;
};

TEST_F(RecoverySequence, FromTheCacheFileMakesTheseAccessesInThisOrder) {
    PutFile("bin", goodBin);
    bench.Start(drv);
    AccessScript script(drv->Accesses());
    KeepsAndSetsUp(script);
    WritesAndReadsBackTheSelection(script);
    script.LoggedWrite(0x11, 3);
    script.End();
    EXPECT_EQ(FakeClock::Sleeps(), (std::vector<unsigned int>{1, 1}));
    EXPECT_EQ(FileText("bin"), goodBin);
}

TEST_F(RecoverySequence, FromTheCacheFileLogsTheseLinesInThisOrder) {
    PutFile("bin", goodBin);
    drv->Record(false);
    bench.Start(drv);
    Lines_t expected = KeptLines();
    const Lines_t ofTheFile = {
        "INFO contract's_corresponding_time=20261120085510",
        "INFO Bin is validate",
        "INFO Loading from bin: Index:5,Instructmentid:SR209, lineNumber:1.",
        "INFO Loading from bin: Index:6,Instructmentid:SR209C5000, lineNumber:2.",
        "INFO Loading from bin: Index:7,Instructmentid:CF209, lineNumber:3.",
        "INFO Loading from bin: Index:8,Instructmentid:CF301, lineNumber:4.",
        "INFO Loading from bin: Index:9,Instructmentid:CF301P15000, lineNumber:5.",
        "INFO Loading from bin: Index:0,Instructmentid:SPD-SR209&SR301, lineNumber:6.",
        "INFO Loading from bin: Index:1,Instructmentid:IPS-SF209&SM209, lineNumber:7.",
        "WARN Invalid format!we skip line 8: contract's_corresponding_time=20261120085510\n",
        "WARN Invalid format!we skip line 9: bin_file_over_tag",
        "INFO Loading over!",
        "INFO [channel:0] Current bin total inst count:7.",
        "INFO Get inst from bin success",
        "INFO Bin inst count:7",
        "INFO Fetch all inst from fpga over! insts count:7.",
    };
    Append(expected, ofTheFile);
    Append(expected, SelectionLines());
    expected.emplace_back("INFO Init dma channel :CUSTOM_CHAN0_DATA success.");
    ExpectLines(bench.log.Lines(), expected);
}

TEST_F(RecoverySequence, FromTheBoardsTablesMakesTheseAccessesInThisOrder) {
    PutNames(*drv);
    bench.Start(drv);
    AccessScript script(drv->Accesses());
    KeepsAndSetsUp(script);
    script.Read(0x106, 20261120);
    script.Read(0x104, 100003);
    script.Read(0x105, 100002);
    ReadsNames(script, 0x11002, sglNames);
    ReadsNames(script, 0x12002, cmbNames);
    WritesAndReadsBackTheSelection(script);
    script.LoggedWrite(0x11, 3);
    script.End();
    EXPECT_EQ(FakeClock::Sleeps(), (std::vector<unsigned int>{1, 1}));
    EXPECT_EQ(FileText("bin"), "(none)");
}

TEST_F(RecoverySequence, FromTheBoardsTablesLogsTheseLinesInThisOrder) {
    PutNames(*drv);
    drv->Record(false);
    bench.Start(drv);
    Lines_t expected = KeptLines();
    Append(expected, {
                         "WARN Cannot open file:bin, errmsg:No such file or directory",
                         "INFO [channel:0] Current fpga time:100003. system time:100002.",
                         "INFO System time:100003.",
                         "INFO Expire time 0 minute.",
                         "INFO New round, fetch from fpga, inst count:7.",
                         "INFO Fetch all inst from fpga over! insts count:7.",
                     });
    Append(expected, SelectionLines());
    expected.emplace_back("INFO Init dma channel :CUSTOM_CHAN0_DATA success.");
    ExpectLines(bench.log.Lines(), expected);
}

// Yesterday's board in the morning break: it is reset and has twenty minutes to gather the list.
TEST_F(RecoverySequence, AfterAResetInTheMorningBreakMakesTheseAccessesInThisOrder) {
    FakeClock::SetTime(102000);
    SetBoardTime(*drv, 102000);
    drv->SetReg(0x106, 20261119);
    FakeClock::OnSleep([this](unsigned int) {
        if (FakeClock::Sleeps().size() == 100) {
            PutNames(*drv);
        }
    });
    bench.log.Clear();
    bench.Start(drv);

    AccessScript script(drv->Accesses());
    script.Read(0x106, 20261119);
    script.Resets();
    script.Read(0x103, 0xF);
    script.Write(0x106, 20261120);
    script.UnsubscribesAll();
    script.LoggedWrite(0x12, 0);
    script.Read(0x106, 20261120);
    script.Read(0x104, 102000);
    script.Read(0x105, 102000);
    ReadsNames(script, 0x11002, sglNames);
    ReadsNames(script, 0x12002, cmbNames);
    WritesAndReadsBackTheSelection(script);
    script.LoggedWrite(0x11, 3);
    script.End();
    std::vector<unsigned int> sleeps = {1};
    sleeps.insert(sleeps.end(), 120, 10);
    EXPECT_EQ(FakeClock::Sleeps(), sleeps);
    EXPECT_EQ(LocalNow(), 104001U);
    Lines_t waits;
    for (const std::string& line : bench.log.Lines()) {
        if (line.starts_with("INFO Left ")) {
            waits.push_back(line);
        }
    }
    Lines_t expected;
    for (int left = 1200; left >= 10; left -= 10) {
        expected.push_back("INFO Left " + std::to_string(left) + " seconds");
    }
    ExpectLines(waits, expected);
    EXPECT_TRUE(bench.log.Has("INFO Expire time 20 minute."));
}

}  // namespace
}  // namespace velatest
