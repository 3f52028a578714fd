#include "startDay.h"

#include <gmock/gmock.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): SIGINT

#include <algorithm>
#include <chrono>
#include <sstream>
#include <thread>

namespace velatest {

namespace {

// Registers of the board.
constexpr unsigned int resetRegister = 0x10;
constexpr unsigned int decodeRegister = 0x11;
constexpr unsigned int dateRegister = 0x106;
constexpr unsigned int tableRegisters[] = {0x11000, 0x12000};
constexpr unsigned int writeAddress = 0;
constexpr unsigned int writeData = 1;
constexpr unsigned int readAddress = 2;
constexpr unsigned int readData = 3;
constexpr unsigned int entryWords = 64;
constexpr unsigned int entries = 4095;
constexpr unsigned int lastNameWord = 4;  // holds the first four characters
constexpr unsigned int bothFeeds = 3;
constexpr unsigned int everyChannel = 0xFFFF;

// The clock's rate while the exchange's broadcast goes round: four seconds a round.
constexpr double learningRate = 40;

constexpr unsigned int dayExpiry = 85511;
constexpr unsigned int nightExpiry = 205511;

constexpr const char* rules =
    "[channel0]\ninsts = SR, CF\noptions = recv\nspd = recv\n"
    "[channel3]\ninsts = all\noptions = norecv\nips = recv\n"
    "[channel7]\ninsts = TA301, AP305\noptions = recv\n";

std::string InstrumentFile() {
    std::ostringstream text;
    for (const char* const product : {"SR", "CF", "TA", "MA", "AP"}) {
        for (const char* const month : {"301", "303", "305"}) {
            text << product << month << '\n';
        }
        text << "SPD-" << product << "301&" << product << "305\n";
        for (const char* const strike : {"C5000", "P5000", "C5100", "P5100"}) {
            if (product != std::string("AP")) {
                text << product << "301" << strike << '\n' << product << "303" << strike << '\n';
            }
        }
    }
    text << "IPS-SR301&CF301\nIPS-TA305&MA305\n";
    return text.str();
}

bool IsCombination(const std::string& name) {
    return name[3] == '-';
}
// A future of the list is two letters and three digits.
bool IsFuture(const std::string& name) {
    return name.size() == 5;
}

bool Wants(unsigned int channel, const std::string& name) {
    const std::string kind = name.substr(0, 3);
    const std::string contract = name.substr(0, 5);
    const std::string product = name.substr(0, 2);
    switch (channel) {
        case 0:
            return IsCombination(name) ? kind == "SPD" : product == "SR" || product == "CF";
        case 3:
            return IsCombination(name) ? kind == "IPS" : IsFuture(name);
        case 7:
            return !IsCombination(name) &&
                   (contract == "TA301" || (contract == "AP305" && IsFuture(name)));
        default:
            return false;
    }
}

}  // namespace

BoardAccess::BoardAccess() {
    enyx_hw_filter* const filter = enyx_hw_filter_create();
    enyx_hw_filter_set_index(filter, 0);
    enyx_hw_accelerator_descriptor* board = nullptr;
    enyx_hw_mmio_descriptor* space = nullptr;
    EXPECT_EQ(enyx_hw_enumerate_accelerators(filter, &board, 1), 1);
    enyx_hw_accelerator* const accelerator = enyx_hw_accelerator_get(board);
    EXPECT_EQ(enyx_hw_accelerator_enumerate_mmios(accelerator, filter, &space, 1), 1);
    m_mmio = enyx_hw_mmio_create(space);
    enyx_hw_core* const root = enyx_hw_core_tree_get_root(enyx_hw_enumerate_cores(m_mmio));
    EXPECT_EQ(enyx_hw_core_enumerate(root, 474, &m_core, 1), 1);
    enyx_hw_free_mmio_descriptors(&space, 1);
    enyx_hw_free_accelerator_descriptors(&board, 1);
    enyx_hw_filter_destroy(filter);
}

BoardAccess::~BoardAccess() {
    enyx_hw_mmio_destroy(m_mmio);
}

unsigned int BoardAccess::Read(unsigned int number) const {
    const enyx_hw_register_description description{uint64_t{4} * number, 0, 32};
    uint64_t value = 0;
    EXPECT_EQ(enyx_hw_read(m_core, &description, &value), 0);
    return static_cast<unsigned int>(value);
}

void BoardAccess::Write(unsigned int number, unsigned int value) const {
    const enyx_hw_register_description description{uint64_t{4} * number, 0, 32};
    EXPECT_EQ(enyx_hw_write(m_core, &description, value), 0);
}

unsigned int BoardAccess::TableWord(unsigned int table, unsigned int index,
                                    unsigned int word) const {
    const unsigned int first = tableRegisters[table];
    enyx_hw_core_lock(m_core);
    Write(first + readAddress, index * entryWords + word);
    const unsigned int value = Read(first + readData);
    enyx_hw_core_unlock(m_core);
    return value;
}

void BoardAccess::WriteMask(unsigned int table, unsigned int index, unsigned int mask) const {
    const unsigned int first = tableRegisters[table];
    enyx_hw_core_lock(m_core);
    Write(first + writeData, mask);
    Write(first + writeAddress, index * entryWords);
    enyx_hw_core_unlock(m_core);
}

StartDay::StartDay() : m_clock(Path("clock")) {
    m_rules = rules;
}

void StartDay::SetUp() {
    WriteFile(Path("instruments"), InstrumentFile());
    for (const std::string& entry : m_clock.Environment()) {
        m_environment.push_back(entry);
    }
    const std::vector<std::string> board{ZCE_BOARD_PROGRAM, "--bus", "0", "--instruments",
                                         Path("instruments")};
    std::vector<std::string> list = board;
    list.push_back("--list-instruments");
    Process listing(list, Where("list"));
    ASSERT_EQ(listing.WaitEnd(), 0) << listing.Output();
    std::istringstream lines(listing.Output());
    Listed listed;
    for (char comma = 0; lines >> listed.index >> comma >> listed.table >> comma >> listed.name;) {
        m_listed.push_back(listed);
    }
    ASSERT_EQ(m_listed.size(), 54U);

    Process::Options where = Where("board");
    where.environment.push_back(m_clock.BoardEnvironment().back());
    m_board = std::make_unique<Process>(board, where);
    ASSERT_TRUE(m_board->WaitFor("ready")) << m_board->Output();
    ASSERT_TRUE(m_clock.AwaitBoard(1));
    EnterEnvironment({"", {m_environment.front()}, ""});  // the board's name alone
    m_access = std::make_unique<BoardAccess>();
}

std::unique_ptr<Process> StartDay::Start(const std::string& name, unsigned int channel) {
    const Process::Options where = Where(name);
    WriteFile(Path(name) + "/config.ini",
              "[config]\ndevice = xilinx0:" + std::to_string(channel) + "\n" + m_rules);
    return std::make_unique<Process>(std::vector<std::string>{ZCE_RECV_PROGRAM, "config.ini",
                                                              "--print", "1", "--names", "names"},
                                     where);
}

StartDay::Names StartDay::Delivered(Process& receiver, const std::string& name) {
    // 20 ticks a round, and the rarest instrument has one in a hundred.
    constexpr unsigned int rounds = 200;
    EXPECT_TRUE(receiver.WaitFor("zce-recv type=")) << receiver.Output();
    EXPECT_TRUE(m_clock.AwaitBoard(rounds));
    receiver.Signal(SIGINT);
    EXPECT_EQ(receiver.WaitEnd(), 0) << receiver.Output();
    EXPECT_EQ(Field(receiver.LastLine("zce-recv channel="), "gaps"), 0);
    Names names;
    std::istringstream lines(ReadFile(Path(name) + "/names"));
    for (std::string line; std::getline(lines, line);) {
        names.insert(line.substr(line.find(',') + 1));
    }
    return names;
}

void StartDay::LearnThrough(Process& master, const std::string& name, unsigned int date,
                            bool night) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    m_clock.Run(learningRate);
    while (InCache(Path(name) + "/bin").size() < m_listed.size()) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << master.Output();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    m_clock.Set(date, night ? nightExpiry : dayExpiry);
    m_clock.Run(learningRate);
    ASSERT_TRUE(master.WaitFor("All channel subs over.")) << master.Output();
    m_clock.Run(0);
}

void StartDay::RunSession(const std::string& name, unsigned int date, bool night) {
    m_clock.Set(date, night ? 205000 : 85000);
    auto master = Start(name);
    ASSERT_TRUE(master->WaitFor("Init dma channel :CUSTOM_CHAN0_DATA success."))
        << master->Output();
    LearnThrough(*master, name, date, night);
    ASSERT_FALSE(HasFatalFailure());
    ExpectDelivered(*master, name, m_listed);
}

void StartDay::ResetBoard() {
    m_access->Write(resetRegister, 1);
    ASSERT_TRUE(m_clock.AwaitBoard(3));
    m_access->Write(resetRegister, 0);
    ASSERT_EQ(m_access->Read(dateRegister), 0U);
}

void StartDay::LetBoardLearn(unsigned int date, unsigned int hhmmss) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    m_clock.Set(date, hhmmss);
    m_clock.Run(learningRate);
    while (!std::all_of(m_listed.begin(), m_listed.end(), [this](const Listed& one) {
        return m_access->TableWord(one.table, one.index, lastNameWord) != 0;
    })) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
        ASSERT_TRUE(m_clock.AwaitBoard(2));
    }
    m_clock.Run(0);
    for (const Listed& one : m_listed) {
        m_access->WriteMask(one.table, one.index, everyChannel);
    }
    m_access->Write(dateRegister, date);
    m_access->Write(decodeRegister, bothFeeds);
}

StartDay::Names StartDay::Wanted(unsigned int channel, const std::vector<Listed>& of) {
    Names names;
    for (const Listed& one : of) {
        if (Wants(channel, one.name)) {
            names.insert(one.name);
        }
    }
    return names;
}

void StartDay::ExpectMasks(const std::vector<Listed>& of) const {
    std::map<unsigned int, unsigned int> expected[2];
    for (const Listed& one : of) {
        for (const unsigned int channel : {0U, 3U, 7U}) {
            if (Wants(channel, one.name)) {
                expected[one.table][one.index] |= 1U << channel;
            }
        }
    }
    for (const unsigned int table : {0U, 1U}) {
        std::map<unsigned int, unsigned int> found;
        for (unsigned int index = 0; index < entries; ++index) {
            const unsigned int mask = m_access->TableWord(table, index, 0);
            if (mask != 0) {
                found[index] = mask;
            }
        }
        EXPECT_EQ(found, expected[table]) << "table " << table;
    }
}

void StartDay::ExpectDelivered(Process& master, const std::string& name,
                               const std::vector<Listed>& of) {
    EXPECT_EQ(Delivered(master, name), Wanted(0, of));
    ExpectMasks(of);
}

void StartDay::ExpectNothing(Process& master) {
    constexpr unsigned int rounds = 100;
    ExpectMasks({});
    EXPECT_TRUE(m_clock.AwaitBoard(rounds));
    master.Signal(SIGINT);
    EXPECT_EQ(master.WaitEnd(), 0) << master.Output();
    EXPECT_EQ(master.LastLine("zce-recv channel="),
              "zce-recv channel=0 total=0 type17=0 type18=0 type19=0 type20=0 gaps=0");
}

std::string StartDay::CacheFile(const std::vector<Listed>& of, unsigned int date,
                                unsigned int hhmmss) {
    std::string text;
    for (const Listed& one : of) {
        text += std::to_string(one.index) + "," + one.name + "\n";
    }
    return text + "contract's_corresponding_time=" + std::to_string(date * 1'000'000UL + hhmmss) +
           "\nbin_file_over_tag";
}

std::vector<Listed> StartDay::InCache(const std::string& path) const {
    const std::string text = "\n" + ReadFile(path);
    std::vector<Listed> found;
    std::copy_if(m_listed.begin(), m_listed.end(), std::back_inserter(found),
                 [&text](const Listed& one) {
                     return text.find("\n" + std::to_string(one.index) + "," + one.name + "\n") !=
                            std::string::npos;
                 });
    return found;
}

unsigned int CountIn(const std::string& output, const std::string& text) {
    unsigned int count = 0;
    for (auto found = output.find(text); found != std::string::npos;
         found = output.find(text, found + text.size())) {
        ++count;
    }
    return count;
}

}  // namespace velatest
