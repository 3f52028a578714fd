// How many messages a second zce-capture writes as a table: L1 and L5 messages of the software
// board's, from a capture in memory, to /dev/null; and the same from a compressed capture. The
// program is run as it is installed, and the time is that which it had a processor: others on the
// machine do not count.

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zstd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "ZceBoardMsg.h"
#include "benchFolder.h"
#include "benchMain.h"
#include "benchProcess.h"
#include "capture/CaptureFile.h"
#include "capture/ZceCapture.h"

namespace velabench {

namespace {

constexpr std::size_t HEADS_SIZE = std::size_t{ZCE_CAPTURE_PREFIX_SIZE} + ZCE_BOARD_HEAD_SIZE;
constexpr const char* files[] = {"L1.pcap", "L5.pcap", "L1.pcap.zst", "L5.pcap.zst"};

std::uint64_t Messages() {
    return IsSmokeRun() ? 1000 : 500'000;
}

// Prices around 5600 with half units, names of five letters, volumes below 300: a busy minute.
class CTicks {
  public:
    ZceBoardL5_t Next() {
        ZceBoardL5_t body{};
        ZceBoardQuote_t& quote = body.quote;
        quote.ulSeq = ++m_seq;
        quote.uiDate = 20261120;
        quote.uiTime = 93000;
        quote.ulTimeNs = 34'200'000'000'000 + m_seq * 1000;
        std::snprintf(quote.szName, sizeof(quote.szName), "SR%03u", Below(300) + 300);
        quote.ucPhase = ZCE_BOARD_PHASE_TRADING;
        quote.lLastPrice = 56'000'000 + 5000 * static_cast<std::int64_t>(Below(400));
        quote.lOpenPrice = 56'000'000;
        quote.lHighPrice = 58'000'000;
        quote.lLowPrice = 55'990'000;
        quote.lPreSettlePrice = 56'010'000;
        quote.ulVolume = m_seq * 3;
        quote.ulOpenInterest = 99'999;
        quote.uiLastVolume = Below(50);
        std::int64_t away = 5000;
        for (ZceBoardLevel_t& level : body.aLevel) {
            level = {quote.lLastPrice - away, quote.lLastPrice + away, Below(300), Below(300)};
            away += 5000;
        }
        return body;
    }

  private:
    std::uint32_t Below(std::uint32_t limit) {
        return static_cast<std::uint32_t>(m_random()) % limit;
    }

    std::mt19937 m_random{20261120};
    std::uint64_t m_seq = 0;
};

void WriteCapture(const std::string& path, std::uint16_t type, unsigned char levels) {
    ZceCapture::CCaptureFile file;
    std::string error;
    if (!file.Open(path, error)) {
        Die(error);
    }
    const auto size = static_cast<std::uint16_t>(ZceBoardBodySize(type));
    std::array<unsigned char, HEADS_SIZE + sizeof(ZceBoardL5_t)> packet{};
    CTicks ticks;
    for (std::uint64_t number = 1; number <= Messages(); ++number) {
        const ZceCapturePrefix_t prefix{
            ZCE_CAPTURE_VERSION, ZCE_CAPTURE_KIND_MESSAGE, 0, 3, 1, number};
        const ZceBoardHead_t head{type, 3, size, 0};
        ZceBoardL5_t body = ticks.Next();
        body.quote.ucLevels = levels;
        std::memcpy(packet.data(), &prefix, sizeof(prefix));
        std::memcpy(packet.data() + ZCE_CAPTURE_PREFIX_SIZE, &head, sizeof(head));
        std::memcpy(packet.data() + HEADS_SIZE, &body, size);
        const auto timeNs = static_cast<std::int64_t>(1795138200'000'000'000 + number * 997);
        file.Add(timeNs, packet.data(), static_cast<std::uint32_t>(HEADS_SIZE) + size);
        if (file.Pending() > (1U << 20U) && !file.Flush(error)) {
            Die(error);
        }
    }
    if (!file.Flush(error)) {
        Die(error);
    }
}

void Compress(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    std::string packed(ZSTD_compressBound(bytes.size()), '\0');
    const std::size_t size =
        ZSTD_compress(packed.data(), packed.size(), bytes.data(), bytes.size(), 3);
    if (ZSTD_isError(size) != 0) {
        Die(path + ": " + ZSTD_getErrorName(size));
    }
    std::ofstream(path + ".zst", std::ios::binary)
        .write(packed.data(), static_cast<std::streamsize>(size));
}

double Seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

// The seconds that the program had a processor for.
double ExportSeconds(const char* path) {
    std::string file = path;
    std::array<std::string, 6> words = {
        VELAZCE_CAPTURE_PROGRAM, "export", "--csv", file, "--output", "/dev/null"};
    std::array<char*, words.size() + 1> arguments{};
    for (std::size_t k = 0; k < words.size(); ++k) {
        arguments[k] = words[k].data();
    }
    pid_t child = 0;
    if (posix_spawn(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0) {
        Die("zce-capture does not start");
    }
    int status = 0;
    rusage usage{};
    if (wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) ||
        WEXITSTATUS(status) != 0) {
        Die("zce-capture failed");
    }
    return Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
}

void Export(benchmark::State& state) {
    while (state.KeepRunning()) {
        double all = 0;
        for (const char* path : files) {
            const double seconds = ExportSeconds(path);
            all += seconds;
            state.counters[path] = static_cast<double>(Messages()) / seconds * 1e-6;
        }
        state.SetIterationTime(all);
    }
}

}  // namespace

}  // namespace velabench

int main(int argc, char** argv) {
    using namespace velabench;
    ReadOptions(argc, argv, 5);
    GoAhead();
    EnterOwnFolder();
    WriteCapture("L1.pcap", ZCE_BOARD_TYPE_L1_SINGLE, 1);
    WriteCapture("L5.pcap", ZCE_BOARD_TYPE_L5_SINGLE, 5);
    Compress("L1.pcap");
    Compress("L5.pcap");
    Register("export", Export);
    CMedians medians;
    RunAll(medians);
    PrintRatioAtLeast("capture-export-L1", medians.Counter("export", "L1.pcap"), 1.0);
    PrintRatioAtLeast("capture-export-L5", medians.Counter("export", "L5.pcap"), 1.0);
    PrintRatio("capture-export-L1-zstd", medians.Counter("export", "L1.pcap.zst"));
    PrintRatio("capture-export-L5-zstd", medians.Counter("export", "L5.pcap.zst"));
    Finish();
    return 0;
}
