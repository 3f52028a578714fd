#include "benchBoard.h"

#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "benchMain.h"
#include "benchMessage.h"
#include "exchange/Exchange.h"

namespace {

enyx_hw_a2c_stream* g_lastOpened = nullptr;

}  // namespace

// Stands in front of the vendor's call in the whole program, so that the program knows the stream
// that the library opens.
extern "C" __attribute__((visibility("default"))) enyx_hw_a2c_stream* enyx_hw_a2c_stream_create(
    const enyx_hw_a2c_stream_descriptor* descriptor, uint32_t flags) {
    static const auto next = reinterpret_cast<decltype(&enyx_hw_a2c_stream_create)>(
        dlsym(RTLD_NEXT, "enyx_hw_a2c_stream_create"));
    g_lastOpened = next(descriptor, flags);
    return g_lastOpened;
}

namespace velabench {

namespace {

// The names are removed and the program ends only outside this guard.
class CNoSignals {
  public:
    CNoSignals() {
        sigset_t ends;
        sigemptyset(&ends);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
            sigaddset(&ends, signal);
        }
        sigprocmask(SIG_BLOCK, &ends, &m_before);
    }
    ~CNoSignals() { sigprocmask(SIG_SETMASK, &m_before, nullptr); }
    CNoSignals(const CNoSignals&) = delete;
    CNoSignals& operator=(const CNoSignals&) = delete;

  private:
    sigset_t m_before{};
};

std::string StreamName(unsigned int channel) {
    return "CUSTOM_CHAN" + std::to_string(channel) + "_DATA";
}

void RemoveBoardName() {
    shm_unlink(ZceBoard::ShmName(0).c_str());
}

}  // namespace

CBenchBoard::CBenchBoard(IVelaZceMdSpi& spi, bool bAllStreams) {
    const CNoSignals guard;
    setenv("ZCE_BOARD_SHM_PREFIX", ("bench" + std::to_string(getpid()) + "-").c_str(), 1);
    AtEnd(RemoveBoardName);
    std::int32_t pid = 0;
    if (m_memory.Create(0, pid) != 0) {
        Die("no shared memory for a board");
    }
    StartLibrary(spi);
    OpenStreams(bAllStreams);
    RemoveBoardName();  // whoever is to use it has it
}

CBenchBoard::~CBenchBoard() {
    enyx_hw_c2a_stream_destroy(m_c2a);
    for (unsigned int channel = 0; channel < m_streams.size(); ++channel) {
        if (channel != libraryChannel) {
            enyx_hw_a2c_stream_destroy(m_streams[channel]);  // null is no stream, and taken
        }
    }
    IVelaZceMdApi::DestroyVelaZceMdApi(*m_pApi);
}

void CBenchBoard::StartLibrary(IVelaZceMdSpi& spi) {
    // A file that has no name anywhere.
    const int fd = memfd_create("config", 0);
    const std::string config =
        "[config]\ndevice = xilinx0:" + std::to_string(libraryChannel) + "\n";
    if (fd < 0 || write(fd, config.data(), config.size()) != static_cast<ssize_t>(config.size())) {
        Die("no memory for the configuration");
    }
    m_pApi = IVelaZceMdApi::CreateVelaZceMdApi();
    if (m_pApi->VelaStart(spi, ("/proc/self/fd/" + std::to_string(fd)).c_str()) != 0) {
        Die("VelaStart failed");
    }
    close(fd);
    m_streams[libraryChannel] = g_lastOpened;
    if (g_lastOpened == nullptr) {
        Die("the library has opened no stream");
    }
}

void CBenchBoard::OpenStreams(bool bAllStreams) {
    enyx_hw_filter* filter = enyx_hw_filter_create();
    enyx_hw_filter_set_index(filter, 0);
    enyx_hw_accelerator_descriptor* accelerator = nullptr;
    if (enyx_hw_enumerate_accelerators(filter, &accelerator, 1) != 1) {
        Die("no accelerator");
    }
    enyx_hw_filter_destroy(filter);
    m_accelerator = enyx_hw_accelerator_get(accelerator);
    enyx_hw_free_accelerator_descriptors(&accelerator, 1);

    for (unsigned int channel = 0; channel < m_streams.size(); ++channel) {
        if (channel == vendorChannel || (bAllStreams && channel != libraryChannel)) {
            m_streams[channel] = OpenStream(channel);
        }
    }
    filter = enyx_hw_filter_create();
    enyx_hw_filter_set_name(filter, StreamName(answerChannel).c_str());
    enyx_hw_c2a_stream_descriptor* c2a = nullptr;
    if (enyx_hw_accelerator_enumerate_c2a_streams(m_accelerator, filter, &c2a, 1) == 1) {
        m_c2a = enyx_hw_c2a_stream_create(c2a, 0);
        enyx_hw_free_c2a_stream_descriptors(&c2a, 1);
    }
    enyx_hw_filter_destroy(filter);
    if (m_c2a == nullptr) {
        Die("a stream cannot be opened");
    }
}

enyx_hw_a2c_stream* CBenchBoard::OpenStream(unsigned int channel) const {
    enyx_hw_filter* filter = enyx_hw_filter_create();
    enyx_hw_filter_set_name(filter, StreamName(channel).c_str());
    enyx_hw_a2c_stream_descriptor* found = nullptr;
    enyx_hw_a2c_stream* stream = nullptr;
    if (enyx_hw_accelerator_enumerate_a2c_streams(m_accelerator, filter, &found, 1) == 1) {
        stream = enyx_hw_a2c_stream_create(found, 0);
        enyx_hw_free_a2c_stream_descriptors(&found, 1);
    }
    enyx_hw_filter_destroy(filter);
    if (stream == nullptr) {
        Die("a stream cannot be opened");
    }
    return stream;
}

void CBenchBoard::Interrupted() {
    Die("interrupted");
}

namespace {

Bodies MakeBodies(const Kind& kind) {
    ZceBoard::CInstrumentList list;
    list.AddAllProducts();
    ZceBoard::CExchange exchange(list.All(), 1);
    const ZceBoard::BoardTime time{20261120, 93000, 34'200'000'000'000, 0};
    Bodies bodies{};
    for (ZceBoardL5_t& body : bodies) {
        ZceBoard::Tick tick = exchange.Next();
        while (tick.type != kind.type) {
            tick = exchange.Next();
        }
        exchange.Fill(tick, time, ZceBoard::Phase::Trading, body);
    }
    return bodies;
}

}  // namespace

const Bodies& BodiesOf(const Kind& kind) {
    static const Bodies l1Bodies = MakeBodies(l1);
    static const Bodies l5Bodies = MakeBodies(l5);
    return kind.type == l1.type ? l1Bodies : l5Bodies;
}

}  // namespace velabench
