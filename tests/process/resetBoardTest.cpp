// A board that a host holds in reset.

#include "playingBoard.h"

namespace {

using boardtest::SECOND;

class ResetBoard : public boardtest::PlayingBoard {};

TEST_F(ResetBoard, ForwardsNothingWhileHeldInReset) {
    Reader master = Open(0);
    m_host.WriteWord(0x10, 1);
    m_host.WriteWord(0x12, 1);
    Pass(83000, 10 * SECOND);
    EXPECT_TRUE(Drain(master).empty());
    m_host.WriteWord(0x10, 0);
    Pass(83010, 5 * SECOND);
    EXPECT_FALSE(Drain(master).empty());
}

}  // namespace
