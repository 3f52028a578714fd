#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Utils/envCheck.h"
#include "VelaZceUtils.h"

namespace {

// Values of g_curEnvBrdType.
enum BoardEnvironment : unsigned int {
    NO_BOARD = 0,
    ONE_E_BOARD = 1,
    ONE_XI_BOARD = 2,
    SEVERAL_E_BOARDS = 3,
    SEVERAL_XI_BOARDS = 4,
    BOTH_KINDS = 5,
    NOT_DETECTED = 6,
};

constexpr char g_szXiDriverCmd[] = "lsmod | grep xdma";
constexpr char g_szEDriverCmd[] = "lsmod | grep hfp";
constexpr char g_szServerName[] = "QyDeliverDmaServer";
constexpr char g_szVersion[] = "3.10.0";

constexpr std::size_t g_uiServerCmdBytes = 128;
constexpr int g_iBoardLineBytes = 256;
constexpr int g_iProcessLineBytes = 2048;

// The output of a shell command, open for the life of the object.
class CCommandOutput {
  public:
    // NOLINTNEXTLINE(bugprone-command-processor): the commands are constants of this file
    explicit CCommandOutput(const char* command) : m_pipe(popen(command, "r")) {}
    ~CCommandOutput() {
        if (m_pipe != nullptr) {
            pclose(m_pipe);
        }
    }
    CCommandOutput(const CCommandOutput&) = delete;
    CCommandOutput& operator=(const CCommandOutput&) = delete;

    bool IsOpen() const { return m_pipe != nullptr; }

    // Number of lines, each read into a buffer of `lineBytes` bytes: a line that is longer counts
    // once for each time that it fills the buffer. `LineBytes` bounds it at compile time.
    template <int LineBytes>
    unsigned int CountLines() {
        char line[LineBytes];
        unsigned int count = 0;
        while (m_pipe != nullptr && std::fgets(line, LineBytes, m_pipe) != nullptr) {
            ++count;
        }
        return count;
    }

  private:
    std::FILE* m_pipe;
};

// Boards of one kind: none, one, several.
unsigned int CountBoards(const char* command) {
    constexpr unsigned int several = 2;
    const unsigned int lines = CCommandOutput(command).CountLines<g_iBoardLineBytes>();
    return lines < several ? lines : several;
}

bool IsServerItself() {
    return std::strncmp(program_invocation_short_name, g_szServerName,
                        std::strlen(g_szServerName)) == 0;
}

// The complaint and -1 if what is asked for is not there.
VORBA2::EnvVerdict_t RequireDriver(bool isInstalled, const char* complaint) {
    VORBA2::EnvVerdict_t verdict;
    if (!isInstalled) {
        verdict.result = -1;
        std::snprintf(verdict.text, sizeof(verdict.text), "%s\n", complaint);
    }
    return verdict;
}

VORBA2::EnvVerdict_t WarnOfMissingDrivers() {
    const char* missingE = IsEDriverInstalled() ? "" : "Attention! the E driver not installed!";
    const char* missingXi = IsXiDriverInstalled() ? "" : "Attention! the Xi driver not installed!";
    VORBA2::EnvVerdict_t verdict;
    std::snprintf(verdict.text, sizeof(verdict.text), "%s%s \n", missingE, missingXi);
    return verdict;
}

}  // namespace

unsigned int g_curEnvBrdType = NOT_DETECTED;
const char* const g_szBrdChkCmd[2] = {"lspci | grep Enyx", "lspci | grep Xilinx"};

unsigned int CheckEnvBoard() {
    // [E boards: none, one, several][Xi boards: none, one, several]
    static constexpr BoardEnvironment environments[3][3] = {
        {NO_BOARD, ONE_XI_BOARD, SEVERAL_XI_BOARDS},
        {ONE_E_BOARD, BOTH_KINDS, BOTH_KINDS},
        {SEVERAL_E_BOARDS, BOTH_KINDS, BOTH_KINDS}};
    if (g_curEnvBrdType == NOT_DETECTED) {
        const unsigned int eBoards = CountBoards(g_szBrdChkCmd[0]);
        const unsigned int xiBoards = CountBoards(g_szBrdChkCmd[1]);
        g_curEnvBrdType = environments[eBoards][xiBoards];
    }
    return g_curEnvBrdType;
}

bool IsXiDriverInstalled() {
    return CCommandOutput(g_szXiDriverCmd).CountLines<g_iBoardLineBytes>() != 0;
}

bool IsEDriverInstalled() {
    return CCommandOutput(g_szEDriverCmd).IsOpen();  // deliberately without a look at the output
}

VORBA2::EnvVerdict_t VORBA2::JudgeEnvironment() {
    const unsigned int environment = CheckEnvBoard();
    switch (environment) {
        case NO_BOARD:
            return RequireDriver(false,
                                 "Unable to recongnize fpga board! if there indeed exist fpga "
                                 "board, firmware maybe error.");
        case ONE_E_BOARD:
        case SEVERAL_E_BOARDS:
            return RequireDriver(IsEDriverInstalled(),
                                 "There exist E board, but the E driver not installed, please "
                                 "install first.");
        case ONE_XI_BOARD:
        case SEVERAL_XI_BOARDS:
            return RequireDriver(IsXiDriverInstalled(),
                                 "There exist Xi board, but the Xi driver not installed, please "
                                 "install first.");
        case BOTH_KINDS:
            return WarnOfMissingDrivers();
        default: {
            EnvVerdict_t verdict;
            std::snprintf(verdict.text, sizeof(verdict.text), "Unsupport board type.%d\n",
                          static_cast<int>(environment));
            return verdict;
        }
    }
}

int CheckBeforeRun() {
    const VORBA2::EnvVerdict_t verdict = VORBA2::JudgeEnvironment();
    std::fputs(verdict.text, stdout);
    return verdict.result;
}

bool IsProdProgRunning() {
    char command[g_uiServerCmdBytes];
    std::snprintf(command, sizeof(command), "ps -ef | grep -w %s | grep -v grep", g_szServerName);
    CCommandOutput processes(command);
    if (!processes.IsOpen()) {
        return false;
    }
    const unsigned int expected = IsServerItself() ? 2 : 1;
    return processes.CountLines<g_iProcessLineBytes>() == expected;
}

char* GetCurUserName() {
    const passwd* entry = getpwuid(getuid());
    return entry == nullptr ? nullptr : entry->pw_name;
}

bool IsCurUserRoot() {
    const char* name = GetCurUserName();
    return name != nullptr && std::strcmp(name, "root") == 0;
}

const char* GetUpDmaLibVersion() {
    return g_szVersion;
}
