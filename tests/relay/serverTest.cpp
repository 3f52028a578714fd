// Publisher and subscriber with a real server between them: one that is killed, one that knows
// nobody, one that speaks TLS.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "captureBytes.h"
#include "programRun.h"
#include "relay/Order.h"
#include "relay/Publisher.h"
#include "relay/Receiver.h"
#include "relay/Subscriber.h"
#include "relayServer.h"
#include "tempDir.h"
#include "wholeFile.h"

namespace ZceRelay {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

using std::chrono::milliseconds;

PublishOptions Channel3(const std::string& stream = "") {
    PublishOptions options;
    options.channel = 3;
    options.stream = stream;
    return options;
}

void TakeMessages(CTakenMessages& taken, uint64_t first, uint64_t last) {
    for (uint64_t k = first; k <= last; ++k) {
        const std::string body = "body " + std::to_string(k);
        taken.Take(17 + k % 4, static_cast<int64_t>(1000 + k),
                   reinterpret_cast<const unsigned char*>(body.data()),
                   static_cast<uint32_t>(body.size()));
    }
}

// Takes what comes until `last` has come, or a mark that says so: how many came as they should,
// each once and in order.
uint64_t ReceiveUpTo(CSubscriber& subscriber, CStreamOrder& order, uint64_t last) {
    Incoming incoming;
    uint64_t good = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (order.Last() < last && std::chrono::steady_clock::now() < end) {
        if (!subscriber.Next(incoming, 10)) {
            continue;
        }
        if (incoming.subject.kind == Kind::Mark) {
            order.Mark(incoming.sequence);
        } else if (incoming.subject.kind == Kind::MarketData &&
                   order.Judge(incoming.sequence) == CStreamOrder::Verdict::Next) {
            const uint64_t k = incoming.sequence.number;
            const std::string body(incoming.body.begin(), incoming.body.end());
            good += body == "body " + std::to_string(k) && incoming.subject.type == 17 + k % 4 &&
                            incoming.timeNs == static_cast<int64_t>(1000 + k) &&
                            incoming.subject.channel == 3
                        ? 1
                        : 0;
        }
    }
    EXPECT_GE(order.Last(), last);
    return good;
}

TEST_F(RelayServer, WhatIsPublishedComesInOrderWithTheListForWhoeverAsks) {
    Start();
    CPublisher publisher(To(), Channel3(), Into(m_published));
    SubscribeOptions what;
    what.bus = 0;
    CSubscriber subscriber(To(), what, Into(m_subscribed));
    std::string error;
    ASSERT_TRUE(publisher.Prepare(error) && subscriber.Prepare(error)) << error;
    CTakenMessages taken(1 << 20);
    Incoming incoming;
    publisher.SetInstruments("1,SR209\n");
    ASSERT_TRUE(Until([&] {  // the publisher first: who comes later asks for the list
        publisher.Pass(taken);
        return publisher.IsConnected();
    }));
    ASSERT_TRUE(Until([&] {
        publisher.Pass(taken);
        return subscriber.Next(incoming, 1) && incoming.subject.kind == Kind::Instruments;
    }));
    EXPECT_EQ(std::string(incoming.body.begin(), incoming.body.end()), "1,SR209\n");

    // What anybody may publish there is no message of a publisher.
    natsConnection* other = nullptr;
    ASSERT_EQ(natsConnection_ConnectTo(&other, Url().c_str()), NATS_OK);
    natsConnection_PublishString(other, "zce.0.3.17", "no headers");
    natsConnection_PublishString(other, "zce.0.3.99", "no such type");
    natsConnection_PublishString(other, "zce.0.short", "");
    const std::string large(LARGEST_BODY + 1, 'x');
    for (const auto& [sequence, time, body] :
         {std::tuple("1 1", "5", std::string("x")), std::tuple("1 1 1", "x", std::string("x")),
          std::tuple("1 1 1", "5", std::string()), std::tuple("1 1 1", "5", large)}) {
        natsMsg* message = nullptr;
        natsMsg_Create(&message, "zce.0.3.17", nullptr, body.data(), static_cast<int>(body.size()));
        natsMsgHeader_Set(message, "Zce-Sequence", sequence);
        natsMsgHeader_Set(message, "Zce-Time", time);
        natsConnection_PublishMsg(other, message);
        natsMsg_Destroy(message);
    }
    natsConnection_FlushTimeout(other, 2000);
    natsConnection_Destroy(other);
    ASSERT_TRUE(Until([&] {
        EXPECT_FALSE(subscriber.Next(incoming, 10) && incoming.subject.kind != Kind::Instruments);
        return subscriber.Foreign() == 7;
    }));

    TakeMessages(taken, 1, 3000);
    std::thread publishing([&] {
        Until([&] {
            publisher.Pass(taken);
            return publisher.IsDone(taken);
        });
    });
    CStreamOrder order;
    EXPECT_EQ(ReceiveUpTo(subscriber, order, 3000), 3000U);
    publishing.join();
    EXPECT_EQ(order.First(), 1U);
    EXPECT_EQ(order.Lost(), 0U);
    EXPECT_EQ(publisher.Counts().published, 3000U);
    EXPECT_EQ(publisher.Counts().confirmed, 3000U);
    EXPECT_EQ(publisher.Counts().resent, 0U);
    EXPECT_THAT(m_published, ElementsAre(Url() + ": connected"));
    EXPECT_THAT(m_subscribed, ElementsAre(Url() + ": connected"));
}

TEST_F(RelayServer, AKilledServerCostsTheStreamNothingAndAFullRingIsTold) {
    Start();
    CPublisher publisher(To(), Channel3("ZCE"), Into(m_published));
    SubscribeOptions what;
    what.bus = 0;
    what.stream = "ZCE";
    CSubscriber subscriber(To(), what, Into(m_subscribed));
    std::string error;
    ASSERT_TRUE(publisher.Prepare(error) && subscriber.Prepare(error)) << error;
    CTakenMessages taken(200 * (sizeof(TakenHead) + 8));
    Incoming incoming;
    ASSERT_TRUE(Until([&] {
        publisher.Pass(taken);
        subscriber.Next(incoming, 1);
        return publisher.IsConnected() && subscriber.IsConnected();
    }));
    TakeMessages(taken, 1, 100);
    std::atomic<bool> bEnd{false};
    std::atomic<uint64_t> confirmed{0};
    std::atomic<bool> bConnected{true};
    std::thread publishing([&] {
        while (!bEnd) {
            if (!publisher.Pass(taken)) {
                std::this_thread::sleep_for(milliseconds(1));
            }
            confirmed = publisher.Counts().confirmed;
            bConnected = publisher.IsConnected();
        }
    });
    CStreamOrder order;
    EXPECT_EQ(ReceiveUpTo(subscriber, order, 100), 100U);
    Kill();
    EXPECT_TRUE(Until([&] { return !bConnected; }));
    TakeMessages(taken, 101, 600);  // nobody is there for them: the ring is too small for all
    const uint64_t lost = taken.Lost();
    EXPECT_GT(lost, 200U);
    EXPECT_LT(lost, 500U);
    EXPECT_TRUE(Until([&] { return !subscriber.Next(incoming, 1) && !subscriber.IsConnected(); }));
    Start();
    EXPECT_EQ(ReceiveUpTo(subscriber, order, 600), 500 - lost);
    EXPECT_TRUE(Until([&] { return confirmed == 600 - lost; }));
    bEnd = true;
    publishing.join();
    EXPECT_EQ(order.Received(), 600 - lost);
    EXPECT_EQ(order.Lost(), lost);
    EXPECT_EQ(publisher.Counts().confirmed, 600 - lost);
    EXPECT_THAT(m_published, ElementsAre(Url() + ": connected",
                                         StartsWith(Url() + ": the connection was lost: "),
                                         Url() + ": connected"));
    EXPECT_THAT(m_subscribed, ElementsAre(Url() + ": connected",
                                          StartsWith(Url() + ": the connection was lost: "),
                                          Url() + ": connected"));

    // What the server was sent and has not stored when it is killed is sent once more.
    const PublishCounts before = publisher.Counts();
    kill(m_server, SIGSTOP);
    TakeMessages(taken, 601, 610);
    EXPECT_TRUE(Until([&] {
        publisher.Pass(taken);
        return publisher.Counts().published == before.published + 10;
    }));
    Kill();
    Start();
    EXPECT_TRUE(Until([&] {
        publisher.Pass(taken);
        return publisher.IsDone(taken);
    }));
    EXPECT_EQ(publisher.Counts().resent - before.resent, 10U);

    // Who comes late gets everything from the stream.
    what.sinceNs = 0;
    CSubscriber late(To(), what, Into(m_subscribed));
    ASSERT_TRUE(late.Prepare(error)) << error;
    CStreamOrder lateOrder;
    EXPECT_EQ(ReceiveUpTo(late, lateOrder, 610), 610 - lost);
    EXPECT_EQ(lateOrder.First(), 1U);
    EXPECT_EQ(lateOrder.Lost(), lost);
}

TEST_F(RelayServer, WhoIsNotKnownIsToldOnceAndTheRingGoesOnTaking) {
    Start("authorization { user: zce, password: right }\n");
    Settings settings = To();
    settings.user = "zce";
    settings.password = "wrong";
    CPublisher publisher(settings, Channel3(), Into(m_published));
    std::string error;
    ASSERT_TRUE(publisher.Prepare(error)) << error;
    CTakenMessages taken(1 << 16);
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(Until([&] {  // more than one attempt
        publisher.Pass(taken);
        return std::chrono::steady_clock::now() - begin > milliseconds(500);
    }));
    TakeMessages(taken, 1, 10);
    EXPECT_EQ(taken.Counted(), 10U);
    EXPECT_EQ(taken.Lost(), 0U);
    EXPECT_THAT(
        m_published,
        ElementsAre(Url() + ": not connected: Authorization Violation; look at user and password, "
                            "token, nkey or credentials in the settings file, and at those of the "
                            "server; tried again and again"));

    settings.password = "right";
    CPublisher known(settings, Channel3(), Into(m_subscribed));
    ASSERT_TRUE(known.Prepare(error)) << error;
    EXPECT_TRUE(Until([&] {
        known.Pass(taken);
        return known.IsDone(taken);
    }));
    EXPECT_EQ(known.Counts().confirmed, 10U);
}

TEST_F(RelayServer, TlsIsSpokenWithTheRightCaAndOthersAreTold) {
    if (std::string(OPENSSL).empty()) {
        GTEST_SKIP() << "there is no openssl on this machine";
    }
    const auto make = [this](const std::string& name, const std::string& more) {
        const std::string command = std::string(OPENSSL) +
                                    " req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes "
                                    "-days 2 -subj /CN=127.0.0.1 -addext "
                                    "subjectAltName=IP:127.0.0.1 -keyout " +
                                    (m_folder / name) + ".key -out " + (m_folder / name) + ".pem " +
                                    more + " 2>/dev/null";
        EXPECT_EQ(velatest::ProgramRun(command).status, 0) << command;
    };
    make("server", "");
    make("other", "");
    Start("tls { cert_file: \"" + (m_folder / "server.pem") + "\", key_file: \"" +
          (m_folder / "server.key") + "\" }\n");
    Settings settings = To();
    settings.ca = m_folder / "other.pem";
    CPublisher publisher(settings, Channel3(), Into(m_published));
    std::string error;
    ASSERT_TRUE(publisher.Prepare(error)) << error;
    CTakenMessages taken(1 << 16);
    ASSERT_TRUE(Until([&] {
        publisher.Pass(taken);
        return !m_published.empty();
    }));
    EXPECT_THAT(m_published[0], StartsWith(Url() + ": not connected: "));
    EXPECT_THAT(m_published[0],
                HasSubstr("; look at tls, ca, certificate and key in the settings "
                          "file, and at those of the server; tried again and again"));

    settings.ca = m_folder / "server.key";  // no certificate at all
    CPublisher nonsense(settings, Channel3(), Into(m_published));
    EXPECT_FALSE(nonsense.Prepare(error));
    EXPECT_THAT(error, StartsWith(settings.ca + ": "));

    settings.ca = m_folder / "server.pem";
    CPublisher good(settings, Channel3(), Into(m_subscribed));
    ASSERT_TRUE(good.Prepare(error)) << error;
    TakeMessages(taken, 1, 10);
    EXPECT_TRUE(Until([&] {
        good.Pass(taken);
        return good.IsDone(taken);
    }));
    EXPECT_THAT(m_subscribed, ElementsAre(Url() + ": connected"));
}

TEST_F(RelayServer, AStreamThatTheServerDoesNotHaveIsTold) {
    Start("accounts { A { users: [ { user: a, password: a } ] } }\n");
    Settings settings = To();
    settings.user = "a";
    settings.password = "a";
    CPublisher publisher(settings, Channel3("ZCE"), Into(m_published));
    std::string error;
    ASSERT_TRUE(publisher.Prepare(error)) << error;
    CTakenMessages taken(1 << 16);
    ASSERT_TRUE(Until([&] {
        publisher.Pass(taken);
        return !m_published.empty();
    }));
    EXPECT_THAT(m_published[0], StartsWith(Url() + ": not connected: stream ZCE: "));
    EXPECT_THAT(m_published[0], HasSubstr("; JetStream is not on: start nats-server with -js, or "
                                          "leave --stream out; tried again and again"));
}

// A stream that does not take the subjects: the test answers the publisher's questions itself.
TEST_F(RelayServer, WhatWasAskedBeforeARefusalConfirmsNothing) {
    Start();
    natsConnection* other = nullptr;
    natsSubscription* marks = nullptr;
    jsCtx* js = nullptr;
    jsStreamInfo* info = nullptr;
    ASSERT_EQ(natsConnection_ConnectTo(&other, Url().c_str()), NATS_OK);
    ASSERT_EQ(natsConnection_JetStream(&js, other, nullptr), NATS_OK);
    const char* subjects[] = {"other"};
    jsStreamConfig config;
    jsStreamConfig_Init(&config);
    config.Name = "OTHER";
    config.Subjects = subjects;
    config.SubjectsLen = 1;
    ASSERT_EQ(js_AddStream(&info, js, &config, nullptr, nullptr), NATS_OK);
    jsStreamInfo_Destroy(info);
    jsCtx_Destroy(js);
    ASSERT_EQ(natsConnection_SubscribeSync(&marks, other, "zce.0.3.mark"), NATS_OK);
    natsConnection_FlushTimeout(other, 2000);
    CPublisher publisher(To(), Channel3("OTHER"), Into(m_published));
    std::string error;
    ASSERT_TRUE(publisher.Prepare(error)) << error;
    CTakenMessages taken(1 << 16);
    const auto nextReply = [&] {
        natsMsg* mark = nullptr;
        EXPECT_TRUE(Until([&] {
            publisher.Pass(taken);
            return natsSubscription_NextMsg(&mark, marks, 1) == NATS_OK;
        }));
        std::string reply = mark != nullptr ? natsMsg_GetReply(mark) : "";
        natsMsg_Destroy(mark);
        return reply;
    };
    TakeMessages(taken, 1, 1);
    const std::string first = nextReply();
    TakeMessages(taken, 2, 2);
    const std::string second = nextReply();
    natsConnection_PublishString(other, first.c_str(), "{\"error\":{\"code\":503}}");
    ASSERT_TRUE(Until([&] {
        publisher.Pass(taken);
        return m_published.size() == 2;
    }));
    EXPECT_THAT(m_published[1],
                HasSubstr("stream OTHER: messages are not taken: {\"error\":{\"code\":503}}"));
    natsConnection_PublishString(other, second.c_str(), "{\"stream\":\"OTHER\",\"seq\":1}");
    natsConnection_FlushTimeout(other, 2000);
    const std::string third = nextReply();
    EXPECT_EQ(publisher.Counts().resent, 2U);
    publisher.Pass(taken);
    EXPECT_EQ(publisher.Counts().confirmed, 0U);
    natsConnection_PublishString(other, third.c_str(), "{\"stream\":\"OTHER\",\"seq\":2}");
    EXPECT_TRUE(Until([&] {
        publisher.Pass(taken);
        return publisher.IsDone(taken);
    }));
    EXPECT_EQ(publisher.Counts().confirmed, 2U);
    natsSubscription_Destroy(marks);
    natsConnection_Destroy(other);
}

TEST_F(RelayServer, WhatAUserMayNotPublishIsNotConfirmedAndWhatHeMayNotReadIsTold) {
    Start(
        "authorization { users: [ { user: a, password: a, permissions: { publish: [\"_INBOX.>\"], "
        "subscribe: [\"_INBOX.>\", \"zce-wanted.*\"] } } ] }\n");
    Settings settings = To();
    settings.user = "a";
    settings.password = "a";
    CPublisher publisher(settings, Channel3(), Into(m_published));
    SubscribeOptions what;
    what.bus = 0;
    CSubscriber subscriber(settings, what, Into(m_subscribed));
    std::string error;
    ASSERT_TRUE(publisher.Prepare(error) && subscriber.Prepare(error)) << error;
    CTakenMessages taken(1 << 16);
    TakeMessages(taken, 1, 10);
    Incoming incoming;
    ASSERT_TRUE(Until([&] {
        publisher.Pass(taken);
        EXPECT_FALSE(subscriber.Next(incoming, 1));
        return publisher.Counts().published == 10 && !m_subscribed.empty();
    }));
    EXPECT_EQ(m_subscribed[0], Url() +
                                   ": not connected: Permissions Violation for Subscription to "
                                   "\"zce.0.>\"; tried again and again");
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(Until([&] {  // many questions, 20 ms between them
        publisher.Pass(taken);
        return std::chrono::steady_clock::now() - begin > milliseconds(300);
    }));
    EXPECT_EQ(publisher.Counts().confirmed, 0U);
    EXPECT_FALSE(publisher.IsDone(taken));

    std::vector<std::string> told;
    CPublisher streaming(settings, Channel3("ZCE"), Into(told));
    ASSERT_TRUE(streaming.Prepare(error)) << error;
    ASSERT_TRUE(Until([&] {
        streaming.Pass(taken);
        return !told.empty();
    }));
    EXPECT_EQ(told[0], Url() +
                           ": not connected: stream ZCE: Permissions Violation for Publish to "
                           "\"$JS.API.STREAM.INFO.ZCE\"; tried again and again");
}

TEST_F(RelayServer, AListThatTheServerDoesNotTakeHoldsNothingUp) {
    Start("max_payload: 1024\n");
    CPublisher publisher(To(), Channel3(), Into(m_published));
    std::string error;
    ASSERT_TRUE(publisher.Prepare(error)) << error;
    CTakenMessages taken(1 << 16);
    publisher.SetInstruments(std::string(1025, 'x'));
    TakeMessages(taken, 1, 10);
    EXPECT_TRUE(Until([&] {
        publisher.Pass(taken);
        return publisher.IsDone(taken);
    }));
    EXPECT_EQ(publisher.Counts().confirmed, 10U);
    EXPECT_THAT(
        m_published,
        ElementsAre(Url() + ": connected",
                    Url() + ": the instrument list, 1025 bytes, is not published: the server's "
                            "max_payload is 1024"));
}

TEST_F(RelayServer, AReceiverPutsTheBoardsHeadInFrontAndAsksUntilThereIsAList) {
    Start();
    CReceivedMessages messages(1 << 20);
    SubscribeOptions what;
    what.bus = 0;
    CReceiver receiver(To(), what, messages, Into(m_subscribed));
    std::string error;
    ASSERT_TRUE(receiver.Prepare(error)) << error;
    natsConnection* other = nullptr;
    natsSubscription* wanted = nullptr;
    ASSERT_EQ(natsConnection_ConnectTo(&other, Url().c_str()), NATS_OK);
    ASSERT_EQ(natsConnection_SubscribeSync(&wanted, other, "zce-wanted.0"), NATS_OK);
    natsConnection_FlushTimeout(other, 2000);
    receiver.Start();
    ASSERT_TRUE(Until([&] { return messages.IsConnected(); }));
    for (int k = 0; k < 2; ++k) {
        natsMsg* question = nullptr;
        EXPECT_EQ(natsSubscription_NextMsg(&question, wanted, 10'000), NATS_OK) << k;
        natsMsg_Destroy(question);
    }
    natsSubscription_Destroy(wanted);
    natsConnection_Destroy(other);
    CPublisher publisher(To(), Channel3(), Into(m_published));
    ASSERT_TRUE(publisher.Prepare(error)) << error;
    publisher.SetInstruments("1,SR209\n");
    CTakenMessages taken(1 << 20);
    TakeMessages(taken, 1, 2);
    std::vector<std::string> came;
    ReceivedHead head;
    std::vector<unsigned char> bytes;
    ASSERT_TRUE(Until([&] {
        publisher.Pass(taken);
        while (messages.Take(head, bytes)) {
            EXPECT_EQ(head.channel, head.kind == Kind::Instruments ? 0 : 3);
            came.emplace_back(bytes.begin(), bytes.end());
        }
        return came.size() >= 4;
    }));
    using velatest::Little;
    EXPECT_THAT(came, testing::IsSupersetOf(
                          {Little(18, 4) + Little(3, 2) + Little(6, 2) + Little(0, 4) + "body 1",
                           Little(19, 4) + Little(3, 2) + Little(6, 2) + Little(0, 4) + "body 2",
                           std::string(), std::string("1,SR209\n")}));
}

}  // namespace
}  // namespace ZceRelay
