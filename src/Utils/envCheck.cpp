#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

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

constexpr char XI_DRIVER_CMD[] = "lsmod | grep xdma";
constexpr char E_DRIVER_CMD[] = "lsmod | grep hfp";
constexpr char SERVER_NAME[] = "QyDeliverDmaServer";
constexpr char VERSION[] = "3.10.0";

constexpr std::size_t NOTE_BYTES = 256;
constexpr std::size_t SERVER_CMD_BYTES = 128;
constexpr int BOARD_LINE_BYTES = 256;
constexpr int PROCESS_LINE_BYTES = 2048;

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
    const unsigned int lines = CCommandOutput(command).CountLines<BOARD_LINE_BYTES>();
    return lines < several ? lines : several;
}

bool IsServerItself() {
    return std::strncmp(program_invocation_short_name, SERVER_NAME, std::strlen(SERVER_NAME)) == 0;
}

int RequireDriver(bool isInstalled, const char* complaint) {
    if (isInstalled) {
        return 0;
    }
    std::puts(complaint);
    return -1;
}

void WarnOfMissingDrivers() {
    const char* missingE = IsEDriverInstalled() ? "" : "Attention! the E driver not installed!";
    const char* missingXi = IsXiDriverInstalled() ? "" : "Attention! the Xi driver not installed!";
    char note[NOTE_BYTES];
    std::snprintf(note, sizeof(note), "%s%s", missingE, missingXi);
    std::printf("%s \n", note);
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
    return CCommandOutput(XI_DRIVER_CMD).CountLines<BOARD_LINE_BYTES>() != 0;
}

bool IsEDriverInstalled() {
    return CCommandOutput(E_DRIVER_CMD).IsOpen();  // deliberately without a look at the output
}

int CheckBeforeRun() {
    const unsigned int environment = CheckEnvBoard();
    switch (environment) {
        case NO_BOARD:
            std::puts(
                "Unable to recongnize fpga board! if there indeed exist fpga board, firmware maybe "
                "error.");
            return -1;
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
            WarnOfMissingDrivers();
            return 0;
        default:
            std::printf("Unsupport board type.%d\n", static_cast<int>(environment));
            return 0;
    }
}

bool IsProdProgRunning() {
    char command[SERVER_CMD_BYTES];
    std::snprintf(command, sizeof(command), "ps -ef | grep -w %s | grep -v grep", SERVER_NAME);
    CCommandOutput processes(command);
    if (!processes.IsOpen()) {
        return false;
    }
    const unsigned int expected = IsServerItself() ? 2 : 1;
    return processes.CountLines<PROCESS_LINE_BYTES>() == expected;
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
    return VERSION;
}
