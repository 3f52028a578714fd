#include "pausedBoard.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "ctl/Snapshot.h"
#include "memory/Control.h"

namespace velatest {

using namespace ZceBoard;  // NOLINT(google-build-using-namespace)

void PausedBoard::Start() {
    EnterEnvironment({"", m_environment, ""});
    StartClock(80000);
    WriteFile(Path("instruments"),
              "SR301\nSR305\nCF301\nSR301C5000\nSR301P5000\nCF301C14000\nTA301\nTA305\nCF305\n"
              "SPD-SR301&SR305\nSPD-CF301&CF305\nIPS-CF301&TA301\n");
    StartBoard({"--instruments", Path("instruments"), "--seed", "7", "--rate", "1000",
                "--broadcast-cycle-trading", "0.2"});
    ASSERT_EQ(m_memory.Attach(0), 0);
    Ctl({"pause"});
    // The time of the pass that was under way is over, too.
    Ctl({"step"});
}

std::string PausedBoard::Ctl(const std::vector<std::string>& arguments, int status) {
    std::vector<std::string> command{ZCE_BOARD_PROGRAM, "ctl"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    Process process(command, Where("ctl" + std::to_string(m_commands++)));
    EXPECT_EQ(process.WaitEnd(), status) << process.Output();
    return process.Output();
}

void PausedBoard::Open(uint32_t channel) {
    Reader& reader = m_readers.at(channel);
    ASSERT_EQ(m_memory.Reopen(reader.lock), 0);
    ASSERT_EQ(reader.lock.Lock(LOCK_A2C_FIRST + channel), 0);
    const RingView ring = ViewOf(m_memory.Shm().a2c.at(channel));
    reader.consumer = CRingConsumer(ring, OpenRing(ring, true));
    ASSERT_EQ(AwaitPass(m_memory), 0);
}

void PausedBoard::Subscribe(uint32_t table, uint32_t index, uint32_t mask) {
    const uint32_t window = table == TABLE_SINGLE ? REG_SINGLE_TABLE : REG_COMBINE_TABLE;
    CRegisterFile registers = Registers();
    registers.WriteWord(window + WINDOW_WRITE_DATA, mask);
    registers.WriteWord(window + WINDOW_WRITE_ADDRESS, index * TABLE_ENTRY_WORDS);
}

std::map<uint32_t, uint64_t> PausedBoard::Drain(uint32_t channel) {
    std::map<uint32_t, uint64_t> counts;
    const auto count = [&counts](const unsigned char* data, uint32_t /*len*/) {
        uint32_t type = 0;
        memcpy(&type, data, sizeof(type));
        ++counts[type];
    };
    while (m_readers.at(channel).consumer.PollOnce(count) == 1) {}
    return counts;
}

void PausedBoard::Trade() {
    Ctl({"advance", "to", "09:00:00"});
    Open(0);
    Open(3);
    for (const uint32_t index : {0U, 1U, 2U, 3U}) {
        Subscribe(TABLE_SINGLE, index, index < 2 ? 0x9 : 0x1);
    }
    Subscribe(TABLE_COMBINE, 0, 0x8);
    Registers().WriteWord(REG_MAP_TRANSMIT, 1);
    Registers().WriteWord(REG_SWITCH, SWITCH_L1 | SWITCH_L5);
    Ctl({"step", "600"});
}

std::string PausedBoard::Fixed(std::string text) const {
    const auto replace = [&text](const std::string& from, const std::string& to) {
        for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
            text.replace(at, from.size(), to);
            at += to.size();
        }
    };
    replace("process " + std::to_string(m_board->Pid()), "process 4711");
    replace(DateText(m_memory.Shm().stats.date), "2026-11-20");
    return text;
}

namespace {

constexpr const char* PAGE = ZCE_SOURCE "/docs/software-board.md";

// Holds off whoever else rewrites the page just now.
class PageLock {
  public:
    PageLock() : m_fd(open(PAGE, O_RDONLY | O_CLOEXEC)) { flock(m_fd, LOCK_EX); }
    ~PageLock() { close(m_fd); }
    PageLock(const PageLock&) = delete;
    PageLock& operator=(const PageLock&) = delete;

  private:
    int m_fd;
};

}  // namespace

void ExpectDocsShow(const std::string& name, const std::string& text) {
    const PageLock lock;
    std::string page = ReadFile(PAGE);
    const std::string start = "<!-- by a test: " + name + " -->\n```text\n";
    const size_t found = page.find(start);
    ASSERT_NE(found, std::string::npos) << PAGE << " has no block \"" << name << "\"";
    const size_t begin = found + start.size();
    const size_t end = page.find("```\n", begin);
    ASSERT_NE(end, std::string::npos) << name;
    const char* const update = getenv("ZCE_UPDATE_DOCS");
    if (update != nullptr && std::string(update) == "1") {
        WriteFile(PAGE, page.replace(begin, end - begin, text));
        return;
    }
    EXPECT_EQ(page.substr(begin, end - begin), text)
        << PAGE << ", block \"" << name << "\": run this test with ZCE_UPDATE_DOCS=1 to renew it";
}

}  // namespace velatest
