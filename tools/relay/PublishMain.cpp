#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "IVelaZceMdApi.h"
#include "program/CommandLine.h"
#include "program/Program.h"
#include "relay-tool/Commands.h"
#include "relay-tool/Ending.h"
#include "relay-tool/Feed.h"
#include "relay-tool/PublishRun.h"
#include "relay-tool/ServerOptions.h"

namespace ZceRelay {

namespace {

constexpr size_t MIB = size_t{1} << 20U;
constexpr int64_t NS_PER_HOUR = 3600LL * 1'000'000'000;
constexpr uint32_t MOST_HOURS = 1'000'000;  // a hundred years: more are no number of ns
constexpr const char* CACHE_FILE = "bin";   // which the library writes as the master
constexpr int64_t NS_PER_US = 1000;

struct Words {
    std::string config;
    ServerOptions server;
    std::string stream;
    uint32_t streamHours = 24;
    uint32_t streamMib = 4096;
    uint32_t ringMib = 32;
    uint32_t napUs = 0;
    uint32_t restUs = 50;
    std::optional<std::string> instruments;
    std::vector<std::string> bodySizes;
    bool bQuiet = false;
};

void Describe(const ZceProgram::CArguments& app, Words& words) {
    app.Option("CONFIG", words.config, "The INI file of the library: which board and channel")
        .Required();
    AddServerOptions(app, words.server);
    const auto stream = app.Option("--stream", words.stream,
                                   "JetStream's stream that keeps the messages for those who come "
                                   "late; it is made if it is not there");
    app.Option("--stream-hours", words.streamHours,
               "How long a stream that is made keeps a message; 0: for good")
        .Needs(stream)
        .Range(0U, MOST_HOURS)
        .ShowDefault();
    app.Option("--stream-mib", words.streamMib,
               "How many MiB it keeps, the oldest messages going first; 0: all")
        .Needs(stream)
        .ShowDefault();
    app.Option("--instruments", words.instruments,
               "The cache file of the board's master, whose list is published. Without: bin in "
               "the working directory if CONFIG is the master's, else none");
    app.Option("--body-size", words.bodySizes,
               "TYPE=BYTES, for each of the types 17 to 20: the bodies of a board that is not "
               "the software board");
    app.Option("--ring", words.ringMib,
               "MiB for messages that are not published yet: what a server that is away may "
               "cost")
        .Range(1U, 4096U)
        .ShowDefault();
    app.Option("--nap", words.napUs,
               "Microseconds that the polling thread rests after a poll that found nothing; 0: "
               "it takes a whole processor")
        .Range(0U, 1'000'000U)
        .ShowDefault();
    app.Option("--rest", words.restUs, "The same of the publishing thread, for an empty ring")
        .Range(0U, 1'000'000U)
        .ShowDefault();
    app.Flag("--quiet", words.bQuiet, "No status line each second");
}

void Poll(IVelaZceMdApi& api, uint32_t napUs) {
    // From the first message on the library has both signals, and VelaRecv returns -1 then.
    CatchSignals();
    while (!IsStopped()) {
        const int got = api.VelaRecv();
        if (got == -1) {
            return;
        }
        if (got == 0 && napUs != 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(napUs));
        }
    }
}

}  // namespace

int PublishMain(int argc, const char* const* argv) {
    const ZceProgram::CCommandLine app{"zce-relay publish",
                                       "Publishes one channel's messages through a NATS server."};
    Words words;
    Describe(app, words);
    if (const auto status = app.Read(argc, argv)) {
        return *status;
    }
    std::string error;
    Settings settings;
    if (!SettingsOf(words.server, settings, error)) {
        return NotDone(error);
    }
    BodySizes sizes = BoardBodySizes();
    for (const std::string& text : words.bodySizes) {
        if (!TakeBodySize(text, sizes)) {
            return NotDone(
                fmt::format("--body-size {}: a type from 17 to 20 and 1 to {} bytes are "
                            "needed, like 17=136",
                            text, LARGEST_BODY));
        }
    }
    const auto device = DeviceOf(words.config, error);
    if (!device) {
        return NotDone(error);
    }
    PublishOptions options;
    options.bus = device->bus;
    options.channel = device->channel;
    options.bBoardBodies = words.bodySizes.empty();
    options.stream = words.stream;
    options.streamAgeNs = words.streamHours * NS_PER_HOUR;
    options.streamBytes = static_cast<int64_t>(words.streamMib * MIB);
    CPublisher publisher(settings, options, TellError);
    if (!publisher.Prepare(error)) {
        return NotDone(error);
    }
    CPublishRun::Options run;
    run.instruments = words.instruments.value_or(device->channel == 0 ? CACHE_FILE : "");
    run.restNs = words.restUs * NS_PER_US;
    run.bStatus = !words.bQuiet;
    run.name = fmt::format("bus={} channel={}", device->bus, device->channel);
    CTakenMessages taken(words.ringMib * MIB);
    CFeed feed(taken, sizes);
    IVelaZceMdApi* api = IVelaZceMdApi::CreateVelaZceMdApi();
    if (api == nullptr) {
        return NotDone("out of memory");
    }
    // From before the start on: the list is published while the master learns it.
    CPublishRun publishing(publisher, taken, run);
    const int started = api->VelaStart(feed, words.config.c_str());
    if (started == 0) {
        Poll(*api, words.napUs);
    }
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);
    publishing.Finish();
    if (started != 0) {
        return NotDone("the library's log service could not be started");
    }
    fputs(publishing.LastLine().c_str(), stdout);
    return publishing.IsAllOut() ? ZceProgram::EXIT_FINE : EXIT_LOST;
}

}  // namespace ZceRelay
