#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include "process/Command.h"
#include "process/CommandSetting.h"
#include "process/Signals.h"

namespace ZceBoard {

namespace {

// A key of the terminal reaches the child too, when it is not the command yet.
TEST(CommandStart, ASignalBetweenForkAndExecIsTheCommands) {
    Signals::Install(true);
    ASSERT_EQ(pthread_atfork(nullptr, nullptr, [] { raise(SIGINT); }), 0);
    const CCommandSetting setting;
    CCommand command({"true"}, setting);
    command.Start();
    for (int tries = 0; tries < 1000 && !command.HasEnded(); ++tries) {
        usleep(10'000);
    }
    EXPECT_TRUE(command.HasEnded());
    EXPECT_EQ(command.Status(), 128 + SIGINT);
    EXPECT_EQ(Signals::Stop(), 0);
}

}  // namespace

}  // namespace ZceBoard
