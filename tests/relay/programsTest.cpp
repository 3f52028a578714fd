// zce-relay as a user runs it, with a NATS server of its own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "captureBytes.h"
#include "programRun.h"
#include "relayServer.h"
#include "sanitizers.h"
#include "wholeFile.h"

namespace ZceRelay {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

// The programs: a board plays a capture, its receiver publishes it, a subscriber writes it again.
TEST_F(RelayServer, TheProgramsBringACaptureFromABoardToAFile) {
    if (velatest::underThreadSanitizer) {
        GTEST_SKIP()
            << "libfaketime, which gives the programs the board's clock, has races of its own";
    }
    Start();
    const std::string config = m_folder / "channel3.ini";
    velatest::PutFile(config, "[config]\ndevice = xilinx0:3\ncpucore = -1\n");
    velatest::CaptureBytes recorded;
    for (uint64_t k = 1; k <= 50; ++k) {
        using velatest::Little;
        std::string message = Little(20, 4) + Little(3, 2) + Little(232, 2) + Little(0, 4);
        message += Little(k, 8);
        message.resize(12 + 232, 'q');
        recorded.Add(1795165200, k * 1'000'000, velatest::Prefix(1, 3, k) + message);
    }
    recorded.Write(m_folder / "in.pcap");
    const std::string relay = ZCE_RELAY_PROGRAM;
    const std::string server = " --server " + Url();
    const std::string run =
        "cd " + m_folder.path() + " && export ZCE_BOARD_SHM_PREFIX=relay$$- && " + relay +
        " subscribe --capture out.pcap --seconds 60" + server +
        " >sub.out 2>sub.err & sub=$!; while ! grep -q connected " + (m_folder / "sub.err") +
        "; do sleep 0.05; done; cd " + m_folder.path() + " && " + ZCE_BOARD_PROGRAM +
        " --replay in.pcap --speed max -- " + relay + " publish channel3.ini --ring 1 --nap 100" +
        server +
        " >pub.out 2>pub.err; echo publish=$?; kill -INT $sub; wait $sub; echo subscribe=$?";
    const velatest::ProgramRun ran(run);
    EXPECT_EQ(ran.text, "publish=0\nsubscribe=0\n")
        << velatest::WholeFile(m_folder / "pub.err") << velatest::WholeFile(m_folder / "sub.err");
    EXPECT_THAT(velatest::WholeFile(m_folder / "pub.out"),
                HasSubstr("zce-relay publish bus=0 channel=3 taken=50 confirmed=50 ring-full=0 "
                          "unconfirmed=0 resent=0 connects=1\n"));
    EXPECT_THAT(velatest::WholeFile(m_folder / "sub.out"),
                HasSubstr("zce-relay subscribe bus=0 channel=3 received=50 lost=0 duplicates=0 "
                          "first=1 last=50 sessions=1 other-publisher=0\n"));
    // The packets are those of the recording, but for the times at which they were polled.
    const std::string in = velatest::WholeFile(m_folder / "in.pcap");
    const std::string out = velatest::WholeFile(m_folder / "out.pcap");
    constexpr size_t file = 24;
    constexpr size_t packet = 16 + 16 + 244;
    ASSERT_EQ(in.size(), file + 50 * packet);
    ASSERT_EQ(out.size(), in.size());
    for (size_t at = file; at < in.size(); at += packet) {
        EXPECT_EQ(out.substr(at + 8, packet - 8), in.substr(at + 8, packet - 8)) << at;
    }
}

TEST_F(RelayServer, TheProgramSaysWhatIsWrong) {
    const std::string relay = ZCE_RELAY_PROGRAM;
    const std::string free = Url();
    const auto run = [&relay](const std::string& arguments) {
        const velatest::ProgramRun ran(relay + " " + arguments + " 2>&1");
        return std::to_string(ran.status) + " " + ran.text;
    };
    EXPECT_EQ(run(""),
              "2 zce-relay: a command is missing: publish or subscribe; see zce-relay "
              "--help\n");
    EXPECT_THAT(run("listen"), StartsWith("2 zce-relay: "));
    EXPECT_THAT(run("publish"), StartsWith("2 zce-relay publish: "));
    EXPECT_THAT(run("publish /none.ini"), "2 zce-relay: /none.ini: No such file or directory\n");
    velatest::PutFile(m_folder / "c.ini", "[config]\ndevice = xilinx0:3\n");
    EXPECT_EQ(run("publish " + (m_folder / "c.ini") + " --body-size 16=5"),
              "2 zce-relay: --body-size 16=5: a type from 17 to 20 and 1 to 2036 bytes are needed, "
              "like 17=136\n");
    EXPECT_THAT(run("publish /none.ini --stream ZCE --stream-hours 1000001"),
                StartsWith("2 zce-relay publish: --stream-hours: "));
    EXPECT_EQ(run("subscribe --check --server nats://a:b@c:1"),
              "2 zce-relay: --server: a user, a password or a token does not belong into an "
              "address, which is told in messages: use the keys user, password and token of the "
              "settings file\n");
    EXPECT_THAT(run("subscribe --check --server ''"),
                StartsWith("2 zce-relay: --server: \"\" is no address: "));
    EXPECT_THAT(run("subscribe"), StartsWith("2 zce-relay subscribe: "));
    EXPECT_THAT(run("subscribe --check --from-start"), StartsWith("2 zce-relay subscribe: "));
    EXPECT_EQ(run("subscribe --check --stream ZCE --since 25:00"),
              "2 zce-relay: --since: \"25:00\" is no time: HH:MM, HH:MM:SS or "
              "YYYY-MM-DDTHH:MM:SS\n");
    EXPECT_THAT(run("subscribe --capture /nowhere/x.pcap"),
                StartsWith("2 zce-relay: /nowhere/x.pcap: "));
    // Nobody is there: one line, and the status says that nothing was looked at.
    EXPECT_EQ(run("subscribe --check --quiet --seconds 1 --server " + free),
              "1 zce-relay: " + free +
                  ": not connected: No server available for connection; look whether nats-server "
                  "runs there; tried again and again\n"
                  "zce-relay status received=0 lost=0 duplicates=0 foreign=0 connects=0\n");
}

}  // namespace
}  // namespace ZceRelay
