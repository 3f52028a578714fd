// The two locks of a selection, taken one inside the other.

#include <gtest/gtest.h>

#include <mutex>
#include <thread>

#include "contractFixture.h"
#include "logCapture.h"

namespace {

using velatest::ContractRig;
using velatest::LogCapture;

// A selection that waits for the tables has the selections' lock already: taken in any other order
// the two could wait for each other.
TEST(LockOrder, ASelectionHoldsItsOwnLockWhenItTakesTheTables) {
    ContractRig rig("[channel0]\ninsts = SR\noptions = norecv\n");
    rig.insts = {{"SR209", 1}};
    const LogCapture log;
    std::unique_lock<std::mutex> tables(Vela2_U50::CZceFpgaServ::subscribe_mutex);
    std::thread selection([&rig] { rig.serv.FilterAndStoreToGlobMap(); });
    // The line before the first record, which waits for the tables.
    while (
        !log.Has("INFO [channel:0] Record func:Meeting conditions count is:OneLeg:1, "
                 "Combine:0.")) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(Vela2_U50::CContractServ::order_mutex.try_lock());
    EXPECT_TRUE(rig.fpga.m_mapSglChanBit.empty());
    tables.unlock();
    selection.join();
    EXPECT_EQ(rig.fpga.m_mapSglChanBit.size(), 1U);
    ASSERT_TRUE(Vela2_U50::CContractServ::order_mutex.try_lock());
    Vela2_U50::CContractServ::order_mutex.unlock();
}

}  // namespace
