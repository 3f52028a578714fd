#include "faultDay.h"

#include <gmock/gmock.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): SIGINT

#include <algorithm>
#include <regex>
#include <set>
#include <sstream>

#include "faultTable.h"
#include "memory/FaultText.h"

namespace velatest {

namespace {

constexpr unsigned int inSession = 93000;

// WARN lines of every recovery, of a directory without a cache file, and of an end.
constexpr const char* usual[] = {
    "WARN Subscribe:Meeting conditions count is:",
    "WARN Cannot open file:bin, errmsg:No such file or directory",
    "WARN Received signal 2 !!",
};

bool IsUsual(const std::string& line) {
    return std::any_of(std::begin(usual), std::end(usual),
                       [&line](const char* start) { return line.starts_with(start); });
}

}  // namespace

std::vector<std::string> LinesOf(const std::string& output, const std::string& levels) {
    static const std::regex format(R"(\[(INFO|WARN|ERROR) *\]\[[0-9:-]+\]\[fpga\](.*))");
    std::vector<std::string> lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);) {
        std::smatch found;
        if (std::regex_match(line, found, format) && levels.find(found[1]) != std::string::npos) {
            lines.push_back(found[1].str() + " " + found[2].str());
        }
    }
    return lines;
}

void FaultDay::SetUp() {
    StartDay::SetUp();
    ASSERT_FALSE(HasFatalFailure());
    ASSERT_EQ(m_memory.Attach(0), 0);
    m_faults.emplace(m_memory.Shm());
}

void FaultDay::Set(const std::string& fault) {
    ZceBoard::FaultSetting setting{};
    std::string error;
    ASSERT_TRUE(ZceBoard::ParseFault(fault, setting, error)) << error;
    m_faults->Set(setting);
    ASSERT_TRUE(m_clock.AwaitBoard(2));
}

void FaultDay::ClearFaults() {
    m_faults->ClearAll();
    ASSERT_TRUE(m_clock.AwaitBoard(2));
}

void FaultDay::BeginSession() {
    LetBoardLearn(today, 83100);
    m_clock.Set(today, inSession);
}

std::string FaultDay::Recover(const std::string& name) {
    m_master = Start(name);
    EXPECT_TRUE(m_master->WaitFor("Init dma channel :CUSTOM_CHAN0_DATA success."))
        << m_master->Output();
    return m_master->Output();
}

std::string FaultDay::End(Process& receiver) {
    receiver.Signal(SIGINT);
    EXPECT_EQ(receiver.WaitEnd(), 0) << receiver.Output();
    return receiver.Output();
}

void FaultDay::ExpectRow(const std::string& output) {
    std::set<std::string> beside = LinesBesideRow(LinesOf(output, "INFO WARN ERROR"));
    std::erase_if(beside, IsUsual);
    EXPECT_THAT(beside, testing::IsEmpty()) << "lines that the row does not have";
}

const Listed& FaultDay::Find(const std::string& name) const {
    const auto found = std::find_if(m_listed.begin(), m_listed.end(),
                                    [&name](const Listed& one) { return one.name == name; });
    EXPECT_NE(found, m_listed.end()) << name;
    return *found;
}

void FaultDay::StartAnotherBoard() {
    Process::Options where = Where("another");
    where.environment.push_back(m_clock.BoardEnvironment().back());
    m_board =
        std::make_unique<Process>(std::vector<std::string>{ZCE_BOARD_PROGRAM, "--bus", "0",
                                                           "--instruments", Path("instruments")},
                                  where);
    ASSERT_TRUE(m_board->WaitFor("ready")) << m_board->Output();
}

}  // namespace velatest
