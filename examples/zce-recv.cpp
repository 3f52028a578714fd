// zce-recv: receives one DMA channel and tells what comes. The program to start an application
// from: it shows both ways of receiving, and uses the library's headers and the board's message
// bodies alone.
//
//     zce-recv CONFIG [--seconds N] [--print N] [--own-loop] [--nap US] [--names FILE]
//
// The last line is "zce-recv channel=C total=T type17=A type18=B type19=C type20=D gaps=G", G being
// the number of messages that the board sent to this channel and that did not arrive; behind it
// " bad=B" if B bodies were not what their type says. Those are not in the counts.
//
// Exit status: 0; 1 if the library's log could not be started, or what it prints or writes could
// not be; 2 for a usage error. The reason is told on standard error.

#include <getopt.h>
#include <iniparser.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "IVelaZceMdApi.h"
#include "VelaZceUtils.h"
#include "ZceBoardMsg.h"

namespace {

const unsigned int firstType = ZCE_BOARD_TYPE_L1_SINGLE;
const std::size_t typeCount = 4;
const int usageError = 2;
const int outputPatienceMs = 200;

struct Arguments {
    std::string config;
    std::string namesFile;
    long seconds = 0;  // 0: until a signal
    long print = 0;
    bool ownLoop = false;
    long napUs = 0;
};

// Whether standard output, or another file, takes a line within this time. A program that a signal
// is to end must not wait for a reader that has stopped.
bool CanPrint(int timeoutMs, int fd = STDOUT_FILENO) {
    pollfd output = {fd, POLLOUT, 0};
    int ready = 0;
    do {
        ready = poll(&output, 1, timeoutMs);
    } while (ready < 0 && errno == EINTR);
    return ready != 0;
}

// Why something printed was lost, an errno: the first reason. 0: nothing was.
std::atomic<int> g_iOutputError{0};

// Prints, at once. A reader that is gone, or a full disk, ends the program, at its last line or
// when the reporter looks.
__attribute__((format(printf, 1, 2))) void Print(const char* format, ...) {
    errno = 0;
    va_list values;
    va_start(values, format);
    const int written = std::vprintf(format, values);
    va_end(values);
    if (written < 0 || std::fflush(stdout) != 0) {
        int none = 0;
        g_iOutputError.compare_exchange_strong(none, errno != 0 ? errno : EIO);
    }
}

void TellError(const std::string& what, int err) {
    if (CanPrint(outputPatienceMs, STDERR_FILENO)) {
        std::fprintf(stderr, "zce-recv: %s: %s\n", what.c_str(), std::strerror(err));
    }
}

// `status`, or 1 with the reason on standard error if something printed was lost.
int FinishOutput(int status) {
    if (g_iOutputError == 0) {
        return status;
    }
    TellError("standard output", g_iOutputError);
    return 1;
}

// A callback gives no length, and nobody has looked at the body: one that does not fit its type
// must not be taken for the truth. (Behind a message that is too short there may be the body of an
// old one. It fits, and its number shows as a gap.)
bool IsBodyOf(unsigned int uiType, const ZceBoardQuote_t& quote) {
    const bool bCombine =
        uiType == ZCE_BOARD_TYPE_L1_COMBINE || uiType == ZCE_BOARD_TYPE_L5_COMBINE;
    const bool bLevel1 = uiType == ZCE_BOARD_TYPE_L1_SINGLE || uiType == ZCE_BOARD_TYPE_L1_COMBINE;
    const std::uint64_t ulSeconds = quote.ulTimeNs / 1000000000;
    return quote.ucTable == (bCombine ? 1 : 0) && quote.ucLevels == (bLevel1 ? 1 : 5) &&
           quote.ucPhase <= ZCE_BOARD_PHASE_BREAK && quote.ulSeq != 0 && quote.szName[0] != '\0' &&
           quote.uiTime == ulSeconds / 3600 * 10000 + ulSeconds / 60 % 60 * 100 + ulSeconds % 60;
}

// A counter that the receiving thread alone writes and the reporting thread reads.
class CCount {
  public:
    void Add(std::uint64_t more) {
        m_ulValue.store(m_ulValue.load(std::memory_order_relaxed) + more,
                        std::memory_order_relaxed);
    }
    std::uint64_t Get() const { return m_ulValue.load(std::memory_order_relaxed); }

  private:
    std::atomic<std::uint64_t> m_ulValue{0};
};

// The application's side of the interface. Every callback comes on the receiving thread, and the
// body is only valid until it returns.
class CReceiver : public IVelaZceMdSpi {
  public:
    explicit CReceiver(const Arguments& arguments)
        : m_lPrint(arguments.print), m_bKeepNames(!arguments.namesFile.empty()) {}

    void OnDmaType17Msg(const unsigned char* body) override { Take(17, body); }
    void OnDmaType18Msg(const unsigned char* body) override { Take(18, body); }
    void OnDmaType19Msg(const unsigned char* body) override { Take(19, body); }
    void OnDmaType20Msg(const unsigned char* body) override { Take(20, body); }

    std::uint64_t Count(std::size_t type) const { return m_aCounts[type].Get(); }
    std::uint64_t Gaps() const { return m_gaps.Get(); }
    std::uint64_t Bad() const { return m_bad.Get(); }
    std::uint64_t Total() const {
        std::uint64_t ulTotal = 0;
        for (const CCount& count : m_aCounts) {
            ulTotal += count.Get();
        }
        return ulTotal;
    }

    // One line "messages,name" for each instrument that had any. False, with errno: `out` did not
    // take all of them.
    bool WriteNames(std::FILE* out) const {
        for (const std::vector<Instrument>& table : m_aTables) {
            for (const Instrument& instrument : table) {
                if (instrument.messages != 0 && !WriteName(out, instrument)) {
                    return false;
                }
            }
        }
        return true;
    }

  private:
    struct Instrument {
        std::uint64_t messages = 0;
        std::string name;
    };

    static bool WriteName(std::FILE* out, const Instrument& instrument) {
        if (!CanPrint(outputPatienceMs, fileno(out))) {
            errno = EAGAIN;
            return false;
        }
        return std::fprintf(out, "%llu,%s\n", static_cast<unsigned long long>(instrument.messages),
                            instrument.name.c_str()) >= 0 &&
               std::fflush(out) == 0;
    }

    void Take(unsigned int uiType, const unsigned char* body) {
        ZceBoardQuote_t quote;
        ZceBoardReadQuote(body, &quote);
        if (!IsBodyOf(uiType, quote)) {
            m_bad.Add(1);
            return;
        }
        m_aCounts[uiType - firstType].Add(1);
        if (quote.ulSeq != m_ulLastSeq + 1) {
            // The numbers begin at 1 when the stream is opened, so that a lost first message shows.
            m_gaps.Add(quote.ulSeq > m_ulLastSeq ? quote.ulSeq - m_ulLastSeq - 1 : 1);
        }
        m_ulLastSeq = quote.ulSeq;
        if (m_lPrint > 0 && CanPrint(outputPatienceMs)) {
            --m_lPrint;
            PrintMessage(uiType, quote, body);
        }
        if (m_bKeepNames) {
            KeepName(quote);
        }
    }

    static void PrintMessage(unsigned int uiType, const ZceBoardQuote_t& quote,
                             const unsigned char* body) {
        char szName[ZCE_BOARD_NAME_SIZE + 1];
        ZceBoardLevel_t best;
        std::memcpy(&best, body + sizeof(quote), sizeof(best));
        Print("zce-recv type=%u %s %06u last %.2f bid %.2f x %u ask %.2f x %u volume %llu\n",
              uiType, ZceBoardName(&quote, szName), quote.uiTime, ZceBoardPrice(quote.lLastPrice),
              ZceBoardPrice(best.lBidPrice), best.uiBidVolume, ZceBoardPrice(best.lAskPrice),
              best.uiAskVolume, static_cast<unsigned long long>(quote.ulVolume));
    }

    void KeepName(const ZceBoardQuote_t& quote) {
        std::vector<Instrument>& table = m_aTables[quote.ucTable != 0 ? 1 : 0];
        if (table.size() <= quote.usIndex) {
            table.resize(quote.usIndex + 1U);
        }
        Instrument& instrument = table[quote.usIndex];
        if (instrument.messages == 0) {
            char szName[ZCE_BOARD_NAME_SIZE + 1];
            instrument.name = ZceBoardName(&quote, szName);
        }
        ++instrument.messages;
    }

    std::array<CCount, typeCount> m_aCounts;
    CCount m_gaps;
    CCount m_bad;
    std::uint64_t m_ulLastSeq = 0;
    long m_lPrint;
    bool m_bKeepNames;
    std::array<std::vector<Instrument>, 2> m_aTables;  // single-leg and combination instruments
};

void PrintLastLine(long lChannel, const CReceiver& receiver) {
    if (!CanPrint(outputPatienceMs)) {
        return;
    }
    std::string bad;
    if (receiver.Bad() != 0) {
        bad = " bad=" + std::to_string(receiver.Bad());
    }
    Print(
        "zce-recv channel=%ld total=%llu type17=%llu type18=%llu type19=%llu type20=%llu "
        "gaps=%llu%s\n",
        lChannel, static_cast<unsigned long long>(receiver.Total()),
        static_cast<unsigned long long>(receiver.Count(0)),
        static_cast<unsigned long long>(receiver.Count(1)),
        static_cast<unsigned long long>(receiver.Count(2)),
        static_cast<unsigned long long>(receiver.Count(3)),
        static_cast<unsigned long long>(receiver.Gaps()), bad.c_str());
}

// "-" is standard output.
bool WriteNamesTo(const std::string& path, const CReceiver& receiver) {
    if (path == "-") {
        return receiver.WriteNames(stdout);
    }
    std::FILE* file = std::fopen(path.c_str(), "w");
    if (file == nullptr) {
        return false;
    }
    const bool bWritten = receiver.WriteNames(file);
    return std::fclose(file) == 0 && bWritten;
}

// ---- Ending ------------------------------------------------------------------------------------
// The library takes SIGINT and SIGTERM over with the first market-data message, and VelaRecv then
// returns -1. Before that message they are this program's own: a loop of its own looks at
// g_bStop, while VelaRecvStart cannot be left, so that the process ends in the handler.

volatile std::sig_atomic_t g_bStop = 0;
volatile std::sig_atomic_t g_bOwnLoop = 0;
char g_szEmptyLastLine[128];

void OnEarlySignal(int /*signal*/) {
    g_bStop = 1;
    if (g_bOwnLoop == 0) {
        const ssize_t written =
            CanPrint(0) ? write(STDOUT_FILENO, g_szEmptyLastLine, std::strlen(g_szEmptyLastLine))
                        : -1;
        _exit(written < 0 ? 1 : 0);
    }
}

void CatchEarlySignals(long lChannel, bool bOwnLoop) {
    std::snprintf(g_szEmptyLastLine, sizeof(g_szEmptyLastLine),
                  "zce-recv channel=%ld total=0 type17=0 type18=0 type19=0 type20=0 gaps=0\n",
                  lChannel);
    g_bOwnLoop = bOwnLoop ? 1 : 0;
    std::signal(SIGINT, OnEarlySignal);
    std::signal(SIGTERM, OnEarlySignal);
}

// Prints the rate once a second while messages come, and ends the program after `--seconds`, or
// when what is printed is lost, the way Ctrl-C does.
class CReporter {
  public:
    CReporter(const CReceiver& receiver, long lSeconds)
        : m_receiver(receiver), m_lSeconds(lSeconds), m_thread(&CReporter::Run, this) {}
    ~CReporter() {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_bEnd = true;
        }
        m_wake.notify_one();
        m_thread.join();
    }
    CReporter(const CReporter&) = delete;
    CReporter& operator=(const CReporter&) = delete;

  private:
    void Run() {
        const std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
        std::uint64_t ulBefore = 0;
        std::unique_lock<std::mutex> lock(m_mutex);
        for (long lSecond = 1;; ++lSecond) {
            if (m_wake.wait_until(lock, begin + std::chrono::seconds(lSecond),
                                  [this] { return m_bEnd; })) {
                return;
            }
            const std::uint64_t ulNow = m_receiver.Total();
            if (ulNow != ulBefore && CanPrint(outputPatienceMs)) {
                Print("zce-recv rate=%llu/s total=%llu gaps=%llu\n",
                      static_cast<unsigned long long>(ulNow - ulBefore),
                      static_cast<unsigned long long>(ulNow),
                      static_cast<unsigned long long>(m_receiver.Gaps()));
            }
            ulBefore = ulNow;
            if (lSecond == m_lSeconds || g_iOutputError != 0) {
                kill(getpid(), SIGINT);
            }
        }
    }

    const CReceiver& m_receiver;
    const long m_lSeconds;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_bEnd = false;
    std::thread m_thread;
};

// ---- Arguments ---------------------------------------------------------------------------------

bool ReadNumber(const char* option, const char* text, long& value) {
    char* end = nullptr;
    errno = 0;
    value = std::strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || value < 0 || value > INT_MAX) {
        std::fprintf(stderr, "zce-recv: %s: '%s' is not a number from 0 to %d\n", option, text,
                     INT_MAX);
        return false;
    }
    return true;
}

void PrintUsage() {
    Print(
        "usage: zce-recv CONFIG [--seconds N] [--print N] [--own-loop] [--nap US] [--names FILE]\n"
        "Receives one DMA channel and tells what comes.\n"
        "  CONFIG        the INI file; its config:device names board and channel\n"
        "  --seconds N   end after N seconds (0: at Ctrl-C only)\n"
        "  --print N     print the first N messages\n"
        "  --own-loop    VelaStart and a loop of VelaRecv, instead of VelaRecvStart\n"
        "  --nap US      with --own-loop: after a poll that found nothing rest for US "
        "microseconds;\n"
        "                leaves the CPU to others, and each message may come that much later\n"
        "  --names FILE  at the end, write 'messages,instrument' lines to FILE (-: standard "
        "output)\n"
        "  --help        print this, and end\n"
        "  --version     print the version, and end\n");
}

// What is wrong with the argument that getopt_long has just refused.
void TellRefused(int choice, const char* argument) {
    const bool bLong = std::strncmp(argument, "--", 2) == 0;
    if (choice == ':') {
        std::fprintf(stderr, "zce-recv: %s: the value is missing\n", argument);
    } else if (bLong && optopt != 0) {
        std::fprintf(stderr, "zce-recv: %s: this option takes no value\n", argument);
    } else if (bLong) {
        std::fprintf(stderr, "zce-recv: %s: no such option\n", argument);
    } else {
        std::fprintf(stderr, "zce-recv: -%c: no such option\n", optopt);
    }
}

// One line on standard error says what is wrong.
bool CheckArguments(int argc, char** argv, Arguments& arguments) {
    if (arguments.napUs > 0 && !arguments.ownLoop) {
        std::fputs("zce-recv: --nap: needs --own-loop\n", stderr);
        return false;
    }
    if (optind == argc) {
        std::fputs("zce-recv: CONFIG is missing\n", stderr);
        return false;
    }
    if (argc - optind > 1) {
        std::fprintf(stderr, "zce-recv: %s: one CONFIG only\n", argv[optind + 1]);
        return false;
    }
    arguments.config = argv[optind];
    return true;
}

// 0: go on; otherwise the program ends with this status (-1: with 0).
int ReadArguments(int argc, char** argv, Arguments& arguments) {
    const option options[] = {
        {"seconds", required_argument, nullptr, 's'}, {"print", required_argument, nullptr, 'p'},
        {"own-loop", no_argument, nullptr, 'o'},      {"nap", required_argument, nullptr, 'r'},
        {"names", required_argument, nullptr, 'n'},   {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'v'},       {nullptr, 0, nullptr, 0}};
    opterr = 0;
    for (int choice = 0; (choice = getopt_long(argc, argv, ":h", options, nullptr)) != -1;) {
        bool bGood = true;
        switch (choice) {
            case 's':
                bGood = ReadNumber("--seconds", optarg, arguments.seconds);
                break;
            case 'p':
                bGood = ReadNumber("--print", optarg, arguments.print);
                break;
            case 'o':
                arguments.ownLoop = true;
                break;
            case 'r':
                bGood = ReadNumber("--nap", optarg, arguments.napUs);
                break;
            case 'n':
                arguments.namesFile = optarg;
                break;
            case 'h':
                PrintUsage();
                return -1;
            case 'v':
                Print("zce-recv %s\n", GetUpDmaLibVersion());
                return -1;
            default:
                TellRefused(choice, argv[optind - 1]);
                bGood = false;
                break;
        }
        if (!bGood) {
            return usageError;
        }
    }
    return CheckArguments(argc, argv, arguments) ? 0 : usageError;
}

// The channel that the file's config:device names, -1 if it names none: the library will say so.
long ConfiguredChannel(const std::string& config) {
    if (access(config.c_str(), R_OK) != 0) {
        return -1;
    }
    dictionary* ini = iniparser_load(config.c_str());
    if (ini == nullptr) {
        return -1;
    }
    const char* device = iniparser_getstring(ini, "config:device", "");
    const char* colon = std::strchr(device, ':');
    const long lChannel = colon == nullptr ? -1 : std::strtol(colon + 1, nullptr, 10);
    iniparser_freedict(ini);
    return lChannel;
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);  // a reader that is gone is an error of what is printed
    Arguments arguments;
    const int usage = ReadArguments(argc, argv, arguments);
    if (usage != 0) {
        return usage < 0 ? FinishOutput(0) : usage;
    }
    const long lChannel = ConfiguredChannel(arguments.config);
    CatchEarlySignals(lChannel, arguments.ownLoop);

    CReceiver receiver(arguments);
    IVelaZceMdApi* api = IVelaZceMdApi::CreateVelaZceMdApi();
    int result = 0;
    {
        const CReporter reporter(receiver, arguments.seconds);
        if (arguments.ownLoop) {
            // One's own loop: anything that must not wait for market data can be done in it.
            result = api->VelaStart(receiver, arguments.config.c_str());
            while (result == 0 && g_bStop == 0) {
                const int got = api->VelaRecv();
                if (got == -1) {
                    break;
                }
                if (got == 0 && arguments.napUs > 0) {
                    usleep(static_cast<useconds_t>(arguments.napUs));
                }
            }
        } else {
            // The short way: starts, and polls until SIGINT or SIGTERM.
            result = api->VelaRecvStart(receiver, arguments.config.c_str());
        }
    }
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);

    if (!arguments.namesFile.empty() && !WriteNamesTo(arguments.namesFile, receiver)) {
        TellError("--names: cannot write " + arguments.namesFile, errno);
        result = 1;
    }
    PrintLastLine(lChannel, receiver);
    return FinishOutput(result == 0 ? 0 : 1);
}
