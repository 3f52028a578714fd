// What the libraries that are loaded in front of the vendor's (LD_PRELOAD) cost the polling thread:
// a delivered message and an idle poll through VelaRecv in a process with one, and in a process
// without. The recorder, libzce-record.so, and the watch, libzce-watch.so; beside them a library
// that only passes the poll on, the least that any such library costs.
//
// The processes are this program once more. All stay; stretches of polls take turns on one
// processor, and the recorder's own thread runs on another one. In the end the capture must have
// every message, and the watch's page must have counted every one. Beside the recorder stands what
// a message costs without it if the callback does no more than ask for the time of day; beside the
// watch what one reading of the processor's counter costs, which it makes once in up to 128 polls,
// and the recorder for each message, but in a burst for up to eight at once.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <string>

#include "benchBoard.h"
#include "benchClock.h"
#include "benchMain.h"
#include "benchMessage.h"
#include "benchProcess.h"
#include "capture/CaptureReader.h"
#include "memory/Ring.h"
#include "watch/Ticks.h"
#include "watch/WatchReader.h"

namespace velabench {

namespace {

constexpr const char* childOption = "--polls-for-its-parent";
constexpr int messagesOfAStretch = 512;
constexpr int idlePolls = 4096;
constexpr auto drainUs = 3000;  // the recorder's thread writes what it got, between two stretches

// The parent asks with one byte, the child answers with the ns of a poll.
constexpr char askMessages = 'm';
constexpr char askClock = 'c';  // messages whose callback asks for the time
constexpr char askIdle = 'i';

// ---- The polling process ----

class CPollSink final : public IVelaZceMdSpi {
  public:
    void OnDmaType17Msg(const unsigned char* body) override {
        if (m_bAsksForTime) {
            timespec now{};
            clock_gettime(CLOCK_REALTIME, &now);
            benchmark::DoNotOptimize(now);
        }
        m_sink.OnDmaType17Msg(body);
    }
    void OnDmaType18Msg(const unsigned char* body) override { m_sink.OnDmaType18Msg(body); }
    void OnDmaType19Msg(const unsigned char* body) override { m_sink.OnDmaType19Msg(body); }
    void OnDmaType20Msg(const unsigned char* body) override { m_sink.OnDmaType20Msg(body); }

    bool m_bAsksForTime = false;
    CSink m_sink;
};
CPollSink g_sink;

class CPolls {
  public:
    explicit CPolls(CBenchBoard& board) : m_board(board) {
        const ZceBoard::RingView ring = ZceBoard::ViewOf(board.Shm().a2c[libraryChannel]);
        m_ring = ZceBoard::CRingProducer(ring);
        m_ring.Begin(ring.control->generation.load());
    }

    double Messages() {
        for (int k = 0; k < messagesOfAStretch; ++k) {
            PutMessage();
        }
        return Time(messagesOfAStretch, messagesOfAStretch);
    }
    double Idle() { return Time(idlePolls, 0); }

  private:
    void PutMessage() {
        unsigned char* place = m_ring.PrepareWrite(l1.Size());
        if (place == nullptr) {
            Die("the ring is full");
        }
        std::memcpy(place, &m_messages.Next(), l1.Size());
        m_ring.CommitWrite(l1.Size());
        ++m_ulPut;
    }
    double Time(int polls, int expected) {
        const std::uint64_t begin = Ticks();
        int delivered = 0;
        for (int k = 0; k < polls; ++k) {
            delivered += m_board.Recv();
        }
        const std::uint64_t ticks = Ticks() - begin;
        if (delivered != expected || g_sink.m_sink.m_ulBack != 0 ||
            g_sink.m_sink.m_ulLast != m_ulPut) {
            Die("messages are missing");
        }
        return static_cast<double>(ticks) * NsOfTick() / polls;
    }

    CBenchBoard& m_board;
    ZceBoard::CRingProducer m_ring;
    CMessages<ZceBoardL1_t> m_messages{l1};
    std::uint64_t m_ulPut = 0;
};

int PollForParent(int questions, int answers, int cpu) {
    GoAhead();
    CBenchBoard board(g_sink);  // a recorder's thread starts here, where the parent put it
    Pin(cpu);
    CPolls polls(board);
    char question = 0;
    while (read(questions, &question, 1) == 1) {
        double ns = 0;
        if (question != askIdle) {
            g_sink.m_bAsksForTime = question == askClock;
            ns = polls.Messages();
            board.Recv();  // the ring stays away once after a burst: not a part of an idle poll
        } else {
            ns = polls.Idle();
        }
        if (write(answers, &ns, sizeof(ns)) != sizeof(ns)) {
            break;
        }
    }
    Finish();
    return 0;
}

// ---- The parent ----

Cpus g_cpus{};

// A library in front of the vendor's, and the variable of its file, if it has one.
struct Preload {
    const char* library;
    const char* variable;
    std::string value;
};

class CPollingProcess {
  public:
    // Null: nothing in front of the vendor's library.
    explicit CPollingProcess(const Preload* preload) {
        int questions[2];
        int answers[2];
        if (pipe2(questions, O_CLOEXEC) != 0 || pipe2(answers, O_CLOEXEC) != 0) {
            Die("no pipe");
        }
        std::fflush(nullptr);
        m_pid = fork();
        if (m_pid < 0) {
            Die("fork failed");
        }
        if (m_pid == 0) {
            Become(questions[0], answers[1], preload);
        }
        close(questions[0]);
        close(answers[1]);
        m_questions = questions[1];
        m_answers = answers[0];
    }
    ~CPollingProcess() {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
        }
    }
    CPollingProcess(const CPollingProcess&) = delete;
    CPollingProcess& operator=(const CPollingProcess&) = delete;

    double Ask(char question) const {
        double ns = 0;
        if (write(m_questions, &question, 1) != 1 ||
            read(m_answers, &ns, sizeof(ns)) != sizeof(ns)) {
            Die("a polling process has ended");
        }
        return ns;
    }
    void End() {
        close(m_questions);
        close(m_answers);
        int status = 0;
        if (waitpid(m_pid, &status, 0) != m_pid || status != 0) {
            Die("a polling process failed");
        }
        m_pid = -1;
    }

  private:
    [[noreturn]] static void Become(int questions, int answers, const Preload* preload) {
        fcntl(questions, F_SETFD, 0);
        fcntl(answers, F_SETFD, 0);
        Pin(g_cpus.board);
        if (preload != nullptr) {
            setenv("LD_PRELOAD", preload->library, 1);
        }
        if (preload != nullptr && preload->variable != nullptr) {
            setenv(preload->variable, preload->value.c_str(), 1);
        }
        execl("/proc/self/exe", "preload_bench", childOption, std::to_string(questions).c_str(),
              std::to_string(answers).c_str(), std::to_string(g_cpus.application).c_str(),
              IsSmokeRun() ? "--smoke" : static_cast<char*>(nullptr), static_cast<char*>(nullptr));
        _exit(1);
    }

    pid_t m_pid = -1;
    int m_questions = -1;
    int m_answers = -1;
};

std::string g_folder;
CPollingProcess* g_without = nullptr;
CPollingProcess* g_passOn = nullptr;
CPollingProcess* g_recorder = nullptr;
CPollingProcess* g_watch = nullptr;
std::uint64_t g_ulMessages = 0;  // that each of them has polled

// One reading of the clock that the watch reads, in ns.
double TimeReadings() {
    const ZceWatch::TickSource source = ZceWatch::FindTickSource();
    const std::uint64_t begin = Ticks();
    for (int k = 0; k < idlePolls; ++k) {
        benchmark::DoNotOptimize(ZceWatch::ReadTicks(source));
    }
    return static_cast<double>(Ticks() - begin) * NsOfTick() / idlePolls;
}

void Compare(benchmark::State& state) {
    const int stretches = IsSmokeRun() ? 2 : 40;
    const std::map<std::string, CPollingProcess*> all = {{"without", g_without},
                                                         {"pass-on", g_passOn},
                                                         {"recorder", g_recorder},
                                                         {"watch", g_watch}};
    while (state.KeepRunning()) {
        std::map<std::string, double> ns;
        for (int k = 0; k < stretches; ++k) {
            for (const auto& [name, process] : all) {
                ns["message " + name] += process->Ask(askMessages) / stretches;
            }
            ns["clock"] += g_without->Ask(askClock) / stretches;
            ns["reading"] += TimeReadings() / stretches;
            g_ulMessages += messagesOfAStretch;
            usleep(drainUs);
            for (const auto& [name, process] : all) {
                ns["idle " + name] += process->Ask(askIdle) / stretches;
            }
        }
        for (const auto& [name, value] : ns) {
            state.counters[name] = value;
        }
        for (const std::string what : {"message ", "idle "}) {
            for (const std::string library : {"pass-on", "recorder", "watch"}) {
                state.counters[what + library + " more"] =
                    ns[what + library] - ns[what + "without"];
            }
        }
        state.counters["clock more"] = ns["clock"] - ns["message without"];
        state.SetIterationTime(ns["message watch"] * 1e-9);
    }
}

// The capture has every message that the recorded process polled.
void CheckCapture(const std::string& capture) {
    ZceCapture::CCaptureReader reader;
    std::string error;
    if (!reader.Open(capture, error)) {
        Die(error);
    }
    ZceCapture::CaptureMessage message;
    std::uint64_t count = 0;
    while (reader.Read(message) == ZceCapture::CCaptureReader::Next::Message) {
        count += message.channel == libraryChannel && message.bytes.size() == l1.Size() ? 1 : 0;
    }
    if (count != g_ulMessages || reader.Lost() != 0) {
        Die("the capture has " + std::to_string(count) + " of " + std::to_string(g_ulMessages) +
            " messages");
    }
}

// The page has counted every message that the watched process polled.
void CheckPage(const std::string& directory) {
    ZceWatch::Directory pages;
    std::string error;
    if (!ZceWatch::ReadDirectory(directory, pages, error)) {
        Die(error);
    }
    if (pages.processes.size() != 1 || pages.processes[0].life != ZceWatch::Life::Ended) {
        Die("the watched process left no page that ended in order");
    }
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
    for (const ZceWatch::Stream& stream : pages.processes[0].streams) {
        messages += stream.channel == libraryChannel ? stream.Messages() : 0;
        bytes += stream.Bytes();
    }
    if (messages != g_ulMessages || bytes != g_ulMessages * l1.Size()) {
        Die("the page has " + std::to_string(messages) + " of " + std::to_string(g_ulMessages) +
            " messages");
    }
}

void RemoveFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(g_folder, ignored);
}

void MakeFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "velazce-bench-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        Die("no folder for a capture");
    }
    g_folder = name;
    AtEnd(RemoveFolder);
}

void Print(const CMedians& medians) {
    struct Bounds {
        std::string library;
        double message;
        double idle;
    };
    for (const Bounds& bounds : {Bounds{"recorder", 25, 3}, Bounds{"watch", 5, 2}}) {
        for (const std::string what : {"message", "idle"}) {
            std::printf("%s: without the %s %.1f ns, with it %.1f ns\n", what.c_str(),
                        bounds.library.c_str(), medians.Counter("preload", what + " without"),
                        medians.Counter("preload", what + " " + bounds.library));
        }
        PrintRatioAtMost(bounds.library + "-message-ns",
                         medians.Counter("preload", "message " + bounds.library + " more"),
                         bounds.message);
        PrintRatioAtMost(bounds.library + "-idle-ns",
                         medians.Counter("preload", "idle " + bounds.library + " more"),
                         bounds.idle);
    }
    for (const std::string what : {"message", "idle"}) {
        PrintRatio("pass-on-" + what + "-ns", medians.Counter("preload", what + " pass-on more"));
    }
    PrintRatio("recorder-clock-alone-ns", medians.Counter("preload", "clock more"));
    PrintRatio("watch-clock-alone-ns", medians.Counter("preload", "reading"));
}

void RunParent() {
    g_cpus = PickCpus();
    MakeFolder();
    const Preload recorder{VELAZCE_RECORDER, "ZCE_RECORD", g_folder + "/capture.pcap"};
    const Preload watch{VELAZCE_WATCH, "ZCE_WATCH", g_folder + "/watch"};
    const Preload passOn{.library = VELAZCE_PASS_ON, .variable = nullptr, .value = ""};
    CPollingProcess without(nullptr);
    CPollingProcess passingOn(&passOn);
    CPollingProcess recorded(&recorder);
    CPollingProcess watched(&watch);
    g_without = &without;
    g_passOn = &passingOn;
    g_recorder = &recorded;
    g_watch = &watched;
    Register("preload", Compare);
    CMedians medians;
    RunAll(medians);
    without.End();
    passingOn.End();
    recorded.End();
    watched.End();
    CheckCapture(recorder.value);
    CheckPage(watch.value);
    Print(medians);
    Finish();
}

}  // namespace

}  // namespace velabench

int main(int argc, char** argv) {
    using namespace velabench;
    constexpr int childArguments = 5;
    if (argc >= childArguments && std::string(argv[1]) == childOption) {
        if (argc > childArguments) {
            ReadOptions(2, argv + childArguments - 1);  // --smoke
        }
        return PollForParent(std::atoi(argv[2]), std::atoi(argv[3]), std::atoi(argv[4]));
    }
    ReadOptions(argc, argv);
    RunParent();
    return 0;
}
