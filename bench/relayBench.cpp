// What zce-relay costs: its callback on the polling thread, and a message's way through a real
// nats-server on loopback, beside the bare client of NATS with messages of the same size and
// without headers, which is the server's share; and how that grows with the number of subscribers.
//
// Publisher and subscribers are threads of this program, each with a connection of its own; the
// server is a child on a port of its own. Without nats-server on the machine the callback alone is
// measured, and a line says so.

#include <arpa/inet.h>
#include <atomic_queue/atomic_queue.h>
#include <fcntl.h>
#include <nats/nats.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "VelaZceUtils.h"
#include "benchMain.h"
#include "benchProcess.h"
#include "relay/Publisher.h"
#include "relay/Subscriber.h"

namespace velabench {

namespace {

constexpr std::uint32_t bodySize = 136;
constexpr const char* subject = "zce.0.3.17";
constexpr std::int64_t restNs = 50'000;  // as zce-relay publish rests
const unsigned char g_body[bodySize] = {1, 2, 3};

std::string g_url;

// ---- The callback ----

// What a message would be in a queue of whole elements.
struct Element {
    std::int64_t timeNs;
    std::uint64_t number;
    unsigned char body[bodySize];
};

void Callback(benchmark::State& state) {
    constexpr int burst = 1024;
    const int bursts = IsSmokeRun() ? 2 : 400;
    // false: elements side by side, as is fastest for one producer and one consumer.
    using Queue = atomic_queue::AtomicQueue2<Element, 4096, false, true, false, true>;
    const auto queue = std::make_unique<Queue>();
    ZceRelay::CTakenMessages taken(std::size_t{4096} * sizeof(Element));
    ZceRelay::TakenHead head{};
    std::vector<unsigned char> body;
    Element element{};
    std::memcpy(element.body, g_body, bodySize);
    while (state.KeepRunning()) {
        std::vector<double> ns[3];
        for (std::vector<double>& times : ns) {
            times.reserve(static_cast<std::size_t>(bursts));
        }
        for (int k = 0; k < bursts; ++k) {
            const std::int64_t begin = NowNs();
            for (int m = 0; m < burst; ++m) {
                taken.Take(17, static_cast<std::int64_t>(get_time()), g_body, bodySize);
            }
            const std::int64_t between = NowNs();
            for (int m = 0; m < burst; ++m) {
                element.timeNs = static_cast<std::int64_t>(get_time());
                ++element.number;
                queue->try_push(element);
            }
            const std::int64_t clock = NowNs();
            for (int m = 0; m < burst; ++m) {
                benchmark::DoNotOptimize(get_time());
            }
            const std::int64_t end = NowNs();
            ns[0].push_back(static_cast<double>(between - begin) / burst);
            ns[1].push_back(static_cast<double>(clock - between) / burst);
            ns[2].push_back(static_cast<double>(end - clock) / burst);
            while (taken.Next(head, body)) {}
            while (queue->try_pop(element)) {}
        }
        if (taken.Lost() != 0) {
            Die("the ring was full");
        }
        const char* const names[] = {"callback", "queue", "clock"};
        for (std::size_t k = 0; k < std::size(names); ++k) {
            // The median of the bursts: in some the thread had not its processor all the time.
            std::nth_element(ns[k].begin(), ns[k].begin() + bursts / 2, ns[k].end());
            state.counters[names[k]] = ns[k][static_cast<std::size_t>(bursts) / 2];
        }
        state.SetIterationTime(state.counters["callback"] * 1e-9);
    }
}

// ---- The server ----

pid_t g_server = 0;

void EndServer() {
    if (g_server > 0) {
        kill(g_server, SIGKILL);
    }
}

sockaddr_in Loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

// False: there is no nats-server.
bool StartServer() {
    if (access(VELAZCE_NATS_SERVER, X_OK) != 0) {
        return false;
    }
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Loopback(0);
    socklen_t size = sizeof(address);
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        Die("no free port");
    }
    close(listener);
    const std::string port = std::to_string(ntohs(address.sin_port));
    g_url = "nats://127.0.0.1:" + port;
    std::fflush(nullptr);
    g_server = fork();
    if (g_server == 0) {
        const int nothing = open("/dev/null", O_WRONLY);
        dup2(nothing, STDERR_FILENO);
        execl(VELAZCE_NATS_SERVER, "nats-server", "-a", "127.0.0.1", "-p", port.c_str(),
              static_cast<char*>(nullptr));
        _exit(1);
    }
    AtEnd(EndServer);
    for (const std::int64_t begin = NowNs(); NowNs() - begin < 10'000'000'000;) {
        const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const bool bThere = connect(client, reinterpret_cast<const sockaddr*>(&address), size) == 0;
        close(client);
        if (bThere) {
            return true;
        }
        usleep(10'000);
    }
    Die("nats-server does not start");
}

void Silent(const std::string& /*line*/) {}

// ---- Two ways of sending and receiving ----

class CRelaySender {
  public:
    CRelaySender() : m_publisher(Server(), Options(), Silent) {
        std::string error;
        if (!m_publisher.Prepare(error)) {
            Die(error);
        }
        m_publisher.Pass(m_taken);
        m_thread = std::thread([this] {
            while (!m_bEnd || !m_publisher.IsDone(m_taken)) {
                if (!m_publisher.Pass(m_taken)) {
                    std::this_thread::sleep_for(std::chrono::nanoseconds(restNs));
                }
            }
        });
    }
    ~CRelaySender() {
        m_bEnd = true;
        m_thread.join();
    }
    CRelaySender(const CRelaySender&) = delete;
    CRelaySender& operator=(const CRelaySender&) = delete;

    void Send() { m_taken.Take(17, static_cast<std::int64_t>(get_time()), g_body, bodySize); }
    void End() {}

    static ZceRelay::Settings Server() {
        ZceRelay::Settings settings;
        settings.server = g_url;
        return settings;
    }

  private:
    static ZceRelay::PublishOptions Options() {
        ZceRelay::PublishOptions options;
        options.channel = 3;
        return options;
    }

    ZceRelay::CTakenMessages m_taken{std::size_t{64} << 20U};
    ZceRelay::CPublisher m_publisher;
    std::atomic<bool> m_bEnd{false};
    std::thread m_thread;
};

class CRelayReceiver {
  public:
    CRelayReceiver() : m_subscriber(CRelaySender::Server(), {}, Silent) {
        std::string error;
        if (!m_subscriber.Prepare(error)) {
            Die(error);
        }
        while (!m_subscriber.IsConnected()) {
            m_subscriber.Next(m_incoming, 1);
        }
    }
    // The time at which it was sent; 0: none came.
    std::int64_t Receive() {
        return m_subscriber.Next(m_incoming, 1000) &&
                       m_incoming.subject.kind == ZceRelay::Kind::MarketData
                   ? m_incoming.timeNs
                   : 0;
    }

  private:
    ZceRelay::CSubscriber m_subscriber;
    ZceRelay::Incoming m_incoming;
};

natsConnection* ConnectBare() {
    natsConnection* connection = nullptr;
    if (natsConnection_ConnectTo(&connection, g_url.c_str()) != NATS_OK) {
        Die("no connection to nats-server");
    }
    return connection;
}

// The client of NATS alone: the body with the time in front of it.
class CBareSender {
  public:
    CBareSender() : m_connection(ConnectBare()) {}
    ~CBareSender() { natsConnection_Destroy(m_connection); }
    CBareSender(const CBareSender&) = delete;
    CBareSender& operator=(const CBareSender&) = delete;

    void Send() {
        unsigned char bytes[bodySize];
        std::memcpy(bytes, g_body, bodySize);
        const std::uint64_t now = get_time();
        std::memcpy(bytes, &now, sizeof(now));
        natsConnection_Publish(m_connection, subject, bytes, bodySize);
    }
    void End() { natsConnection_FlushTimeout(m_connection, 10'000); }

  private:
    natsConnection* m_connection;
};

class CBareReceiver {
  public:
    CBareReceiver() : m_connection(ConnectBare()) {
        natsConnection_SubscribeSync(&m_subscription, m_connection, "zce.>");
        natsSubscription_SetPendingLimits(m_subscription, -1, -1);
        natsConnection_FlushTimeout(m_connection, 10'000);
    }
    ~CBareReceiver() {
        natsSubscription_Destroy(m_subscription);
        natsConnection_Destroy(m_connection);
    }
    CBareReceiver(const CBareReceiver&) = delete;
    CBareReceiver& operator=(const CBareReceiver&) = delete;

    std::int64_t Receive() {
        natsMsg* message = nullptr;
        std::int64_t timeNs = 0;
        if (natsSubscription_NextMsg(&message, m_subscription, 1000) == NATS_OK) {
            std::memcpy(&timeNs, natsMsg_GetData(message), sizeof(timeNs));
        }
        natsMsg_Destroy(message);
        return timeNs;
    }

  private:
    natsConnection* m_connection;
    natsSubscription* m_subscription = nullptr;
};

// ---- Messages a second ----

// Messages a second that each of so many subscribers gets.
template <class Sender, class Receiver>
double Rate(int subscribers) {
    const int messages = IsSmokeRun() ? 200 : 40'000 / subscribers;
    std::vector<std::unique_ptr<Receiver>> receivers;
    receivers.reserve(static_cast<std::size_t>(subscribers));
    for (int k = 0; k < subscribers; ++k) {
        receivers.push_back(std::make_unique<Receiver>());
    }
    Sender sender;
    const std::int64_t begin = NowNs();
    std::vector<std::thread> threads;
    threads.reserve(receivers.size());
    for (const auto& receiver : receivers) {
        threads.emplace_back([&receiver, messages, begin] {
            for (int got = 0; got < messages;) {
                got += receiver->Receive() != 0 ? 1 : 0;
                if (NowNs() - begin > 60'000'000'000) {
                    Die("messages are missing");
                }
            }
        });
    }
    for (int k = 0; k < messages; ++k) {
        sender.Send();
    }
    sender.End();
    for (std::thread& thread : threads) {
        thread.join();
    }
    return messages / (static_cast<double>(NowNs() - begin) * 1e-9);
}

template <class Sender, class Receiver>
void Throughput(benchmark::State& state, int subscribers) {
    while (state.KeepRunning()) {
        const double rate = Rate<Sender, Receiver>(subscribers);
        state.SetIterationTime(1 / rate);
        state.counters["a second"] = rate;
    }
}

// ---- Latency ----

// One message at a time, 2,000 a second.
template <class Sender, class Receiver>
void Latency(benchmark::State& state) {
    const int messages = IsSmokeRun() ? 20 : 400;
    Receiver receiver;
    Sender sender;
    while (state.KeepRunning()) {
        std::vector<double> us;
        us.reserve(static_cast<std::size_t>(messages));
        for (int k = 0; k < messages; ++k) {
            usleep(500);
            sender.Send();
            std::int64_t sent = 0;
            while (sent == 0) {
                sent = receiver.Receive();
            }
            us.push_back(static_cast<double>(static_cast<std::int64_t>(get_time()) - sent) * 1e-3);
        }
        std::sort(us.begin(), us.end());
        state.SetIterationTime(us[us.size() / 2] * 1e-6);
        state.counters["median us"] = us[us.size() / 2];
        state.counters["99% us"] = us[us.size() * 99 / 100];
    }
}

constexpr int subscriberCounts[] = {1, 2, 4, 8};

void RegisterServer() {
    for (const int count : subscriberCounts) {
        Register("relay-" + std::to_string(count), [count](benchmark::State& state) {
            Throughput<CRelaySender, CRelayReceiver>(state, count);
        });
        Register("bare-" + std::to_string(count), [count](benchmark::State& state) {
            Throughput<CBareSender, CBareReceiver>(state, count);
        });
    }
    Register("relay-latency", Latency<CRelaySender, CRelayReceiver>);
    Register("bare-latency", Latency<CBareSender, CBareReceiver>);
}

void PrintServer(const CMedians& medians) {
    for (const int count : subscriberCounts) {
        const std::string name = std::to_string(count);
        const double relay = medians.Counter("relay-" + name, "a second");
        const double bare = medians.Counter("bare-" + name, "a second");
        std::printf("%s subscribers: %.0f messages a second to each, NATS alone %.0f\n",
                    name.c_str(), relay, bare);
        PrintRatio("relay-throughput-" + name + "/nats", relay / bare);
        PrintPoint("relay-throughput", "zce-relay", count, relay);
        PrintPoint("relay-throughput", "NATS-alone", count, bare);
    }
    const double relay = medians.Counter("relay-latency", "median us");
    const double bare = medians.Counter("bare-latency", "median us");
    std::printf("one way: %.0f us (99 %%: %.0f), NATS alone %.0f us (99 %%: %.0f)\n", relay,
                medians.Counter("relay-latency", "99% us"), bare,
                medians.Counter("bare-latency", "99% us"));
    PrintRatio("relay-latency/nats", relay / bare);
}

void Run() {
    constexpr double callbackBound = 2;
    Register("relay-callback", Callback);
    const bool bServer = StartServer();
    if (bServer) {
        RegisterServer();
    } else {
        std::puts("relay: there is no nats-server on this machine: the callback alone");
    }
    CMedians medians;
    RunAll(medians);
    const double callback = medians.Counter("relay-callback", "callback");
    const double queue = medians.Counter("relay-callback", "queue");
    std::printf(
        "the callback: %.1f ns; the clock and a push into a queue: %.1f ns; the clock "
        "alone: %.1f ns\n",
        callback, queue, medians.Counter("relay-callback", "clock"));
    PrintRatio("relay-callback-ns", callback);
    PrintRatioAtMost("relay-callback/queue", callback / queue, callbackBound);
    if (bServer) {
        PrintServer(medians);
    }
    Finish();
}

}  // namespace

}  // namespace velabench

int main(int argc, char** argv) {
    velabench::ReadOptions(argc, argv, 5);
    velabench::Run();
    return 0;
}
