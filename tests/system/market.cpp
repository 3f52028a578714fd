#include "market.h"

#include <signal.h>  // NOLINT(modernize-deprecated-headers): SIGINT
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velatest {

namespace {

// Futures, options and combinations of three products: few enough for one or two map packets.
constexpr const char* smallList =
    "SR301\nSR305\nSR301C5000\nSR301P5000\nCF301\nCF305\nCF301C14000\nTA301\nTA305\n"
    "SPD-SR301&SR305\nSPD-CF301&CF305\nIPS-CF301&TA301\n";

constexpr const char* defaultRules =
    "[channel0]\ninsts = SR\noptions = recv\nspd = recv\n"
    "[channel3]\ninsts = all\noptions = norecv\nips = recv\n";

// What the names of this test process's boards begin with.
std::string Prefix() {
    return "test" + std::to_string(getpid()) + "-";
}

}  // namespace

Market::Market() : m_rules(defaultRules) {
    m_environment.push_back("ZCE_BOARD_SHM_PREFIX=" + Prefix());
}

Market::~Market() {
    if (m_board != nullptr && m_board->Running()) {
        m_board->Signal(SIGINT);
        m_board->WaitEnd(std::chrono::seconds(10));
    }
    shm_unlink(("/" + Prefix() + "zce-board.0").c_str());
}

std::string Market::Path(const std::string& name) const {
    return m_directory.path() + "/" + name;
}

Process::Options Market::Where(const std::string& name) const {
    mkdir(Path(name).c_str(), 0755);
    return {Path(name), m_environment, Path(name) + "/output"};
}

void Market::Enter() const {
    EnterEnvironment({m_directory.path(), m_environment, ""});
}

std::string Market::Resting(const std::string& library) {
#ifdef RESTING_POLL_LIBRARY
    return "LD_PRELOAD=" + library + (library.empty() ? "" : ":") + RESTING_POLL_LIBRARY;
#else
    return "LD_PRELOAD=" + library;
#endif
}

void Market::StartClock(unsigned int hhmmss) {
    m_environment.push_back("TZ=" + VirtualZone(hhmmss));
}

void Market::StartBoard(const std::vector<std::string>& arguments) {
    std::vector<std::string> command{ZCE_BOARD_PROGRAM, "--bus", "0"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    m_board = std::make_unique<Process>(command, Where("board"));
    ASSERT_TRUE(m_board->WaitFor("ready")) << m_board->Output();
}

void Market::StartSmallBoard(const std::vector<std::string>& more) {
    WriteFile(Path("instruments"), smallList);
    std::vector<std::string> arguments{
        "--instruments", Path("instruments"), "--seed", "7", "--rate",
        "2000",          "--broadcast-cycle", "0.2"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    StartBoard(arguments);
}

std::unique_ptr<Process> Market::Receive(unsigned int channel, const std::vector<std::string>& more,
                                         unsigned int bus) {
    const std::string name = "receiver" + std::to_string(m_started++);
    const Process::Options where = Where(name);
    WriteFile(Path(name) + "/config.ini", "[config]\ndevice = xilinx" + std::to_string(bus) + ":" +
                                              std::to_string(channel) + "\n" + m_rules);
    std::vector<std::string> command{ZCE_RECV_PROGRAM, "config.ini", "--print", "1"};
    command.insert(command.end(), more.begin(), more.end());
    return std::make_unique<Process>(command, where);
}

void Market::StopBoard() {
    m_board->Signal(SIGINT);
    ASSERT_EQ(m_board->WaitEnd(), 0) << m_board->Output();
}

std::string Market::BoardLine(unsigned int channel) const {
    return m_board->LastLine("zce-board channel=" + std::to_string(channel) + " ");
}

std::string Market::Finish(Process& receiver, unsigned int channel) {
    usleep(200'000);  // what the board sent last is in the ring: time for the poll to take it out
    receiver.Signal(SIGINT);
    EXPECT_EQ(receiver.WaitEnd(), 0) << receiver.Output();
    return receiver.LastLine("zce-recv channel=" + std::to_string(channel) + " ");
}

void Market::ExpectSame(const std::string& receiverLine, unsigned int channel) const {
    const std::string sent = BoardLine(channel);
    for (const char* field : {"type17", "type18", "type19", "type20"}) {
        EXPECT_EQ(Field(receiverLine, field), Field(sent, field)) << field << ": " << sent;
    }
    EXPECT_GT(Field(receiverLine, "total"), 0) << receiverLine;
    EXPECT_EQ(Field(receiverLine, "gaps"), 0) << receiverLine;
    EXPECT_EQ(Field(sent, "dropped"), 0) << sent;
}

}  // namespace velatest
