#include "XPCConnection.h"
#include "support/ServiceFixture.h"
#include "xpc/LXPCClient.h"
#include "xpc/LXPCMachServer.h"
#include "xpc/LXPCServer.h"

#include <dispatch/pump.h>

#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// Counts what it is told, and lets a test act on messages.
class Sink final : public LXPCServerEventNotify {
public:
    void EvConnectionError(long connection, LXPCErrorType error) override {
        if (error == xpcErrorConnectionInvalid) {
            invalid++;
            lastInvalid = connection;
        }
        if (error == xpcErrorConnectionInterrupted) interrupted++;
        if (onError) onError(connection, error);
    }
    void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) override {
        if (onMessage) onMessage(connection, message, items);
        messages++;
    }
    void EvReplyReceived(long connection, const LList<LXPCDataListable>& items) override {
        lastReply = items.Head()->nValue;
        lastReplyFrom = connection;
        replies++;
    }
    void EvMessageSent(long) override { sent++; }
    void EvInvalidConnectionAttempt() override { refused++; }

    std::function<void(long, LXPCErrorType)> onError;
    std::function<void(long, long, const LList<LXPCDataListable>&)> onMessage;
    std::atomic<int> invalid{0}, interrupted{0}, messages{0}, replies{0}, sent{0}, refused{0};
    std::atomic<long> lastInvalid{0}, lastReply{0}, lastReplyFrom{0};
};

LXPCData Item(const char* name, LXPCDataType type, long value) {
    const std::unique_ptr<LXPCDataListable> item(CreateXPCData({name, type}, value, 0));
    return *item;
}

class LXPCEndpointTest : public ServiceFixture {
protected:
    // The server's side without its Start, which never returns: a listener that hands it its peers.
    void Serve(std::unique_ptr<LXPCServerBase> endpoint) {
        server = std::move(endpoint);
        server->AddKey("number", xpcDataInt64);
        server->AddKey("fd", xpcDataFD);
        listener = xpc_connection_create_mach_service(kService, dispatch_get_main_queue(),
                                                      XPC_CONNECTION_MACH_SERVICE_LISTENER);
        ASSERT_NE(listener, nullptr);
        xpc_connection_set_event_handler(listener, [this](xpc_object_t peer) {
            if (server) server->NewConnectionHandler(peer);
        });
        xpc_connection_resume(listener);
        serverSink.onMessage = [this](long connection, long message, const LList<LXPCDataListable>& items) {
            Answer(connection, message, items.Head()->nValue + 1);
        };
        client.AddKey("number", xpcDataInt64);
    }
    void Serve() { Serve(std::make_unique<LXPCMachServer>(&serverSink)); }

    void Answer(long connection, long message, long value) {
        LList<LXPCDataListable> reply;
        reply.Add(CreateXPCData({"number", xpcDataInt64}, value, 0));
        server->SendReply(connection, message, reply);
    }

    void Ask(const char* name, unsigned long id, long number, bool withReply = true) {
        const LXPCData item = Item("number", xpcDataInt64, number);
        client.SendMessage(name, id, &item, 1, withReply);
    }

    // Callbacks on other threads read the pointer while the destructor waits for them, so it is cleared only
    // afterwards.
    void DestroyServer() {
        delete server.get();
        static_cast<void>(server.release());
    }

    void TearDown() override {
        if (listener) xpc_connection_cancel(listener);
        xpc_release(listener);
        DestroyServer();
    }

    Sink serverSink, clientSink;
    std::unique_ptr<LXPCServerBase> server;
    xpc_connection_t listener = nullptr;
    LXPCClient client{&clientSink};
};

TEST_F(LXPCEndpointTest, AskAndAnswerAndTellOnceThatItWasSent) {
    Serve();
    ASSERT_TRUE(client.Connect(kService, 1, true));
    Ask(kService, 1, 41);
    PumpUntil([&] { return clientSink.replies == 1 && serverSink.sent == 1; }, "the reply");
    EXPECT_EQ(clientSink.lastReply, 42);
    EXPECT_EQ(clientSink.sent, 0);  // a message that expects a reply isn't told as sent
    Ask(kService, 1, 41, false);
    PumpUntil([&] { return serverSink.messages == 2 && clientSink.sent == 1; }, "the one-way message");
    EXPECT_EQ(serverSink.sent, 1);  // a reply to it goes nowhere
    EXPECT_EQ(clientSink.replies, 1);
}

TEST_F(LXPCEndpointTest, AMessageWithoutAnyKnownKeyIsDropped) {
    Serve();
    ASSERT_TRUE(client.Connect(kService, 1, true));
    const LXPCData unknown = Item("unknown", xpcDataInt64, 1);
    client.SendMessage(kService, 1, &unknown, 1, false);
    client.SendMessage(kService, 1, nullptr, 0, false);
    Ask(kService, 1, 1);
    PumpUntil([&] { return clientSink.replies == 1 && serverSink.messages > 0; }, "the reply");
    EXPECT_EQ(serverSink.messages, 1);
}

TEST_F(LXPCEndpointTest, ConnectionsAreFoundByNameIgnoringCaseAndNumberNewestFirst) {
    Serve();
    const std::string longName(260, 'n');
    for (const char* name : {"com.example.nobody", "", static_cast<const char*>(nullptr), longName.c_str()})
        EXPECT_FALSE(client.Connect(name, 1, true));
    EXPECT_FALSE(client.Connect("com.example.nobody", 1, false));
    ASSERT_TRUE(client.Connect(kService, 1, true));
    ASSERT_TRUE(client.Connect(kService, 1, true));
    std::string upper = kService;
    for (char& c : upper) c = static_cast<char>(std::toupper(c));
    Ask(upper.c_str(), 1, 1);
    PumpUntil([&] { return clientSink.replies == 1; }, "the reply");
    const long newest = clientSink.lastReplyFrom;
    client.Disconnect(kService, 2);  // finds nothing
    client.Disconnect(upper.c_str(), 1);
    Ask(kService, 1, 2);
    PumpUntil([&] { return clientSink.replies == 2; }, "the reply of the other one");
    EXPECT_NE(clientSink.lastReplyFrom, newest);
    client.Disconnect(kService, 1);
    Ask(kService, 1, 3);  // finds nothing
    PumpUntil([&] { return serverSink.invalid == 2; }, "both ends");
    EXPECT_EQ(serverSink.messages, 2);
}

TEST_F(LXPCEndpointTest, OfTwoItemsWithOneNameTheFirstOfTheArrayCounts) {
    Serve();
    ASSERT_TRUE(client.Connect(kService, 1, true));
    const LXPCData items[] = {Item("number", xpcDataInt64, 10), Item("number", xpcDataInt64, 20)};
    client.SendMessage(kService, 1, items, 2, true);
    PumpUntil([&] { return clientSink.replies == 1; }, "the reply");
    EXPECT_EQ(clientSink.lastReply, 11);
}

TEST_F(LXPCEndpointTest, SuspensionIsAStateNotACount) {
    Serve();
    ASSERT_TRUE(client.Connect(kService, 1, true));
    client.Suspend(kService, 1);
    client.Suspend(kService, 1);
    Ask(kService, 1, 1);
    PumpUntil([&] { return serverSink.messages == 1; }, "the request");
    EXPECT_FALSE(dispatch_pump_main([&] { return clientSink.replies > 0; }, 20));
    client.Resume(kService, 1);
    PumpUntil([&] { return clientSink.replies == 1; }, "the reply");
}

TEST_F(LXPCEndpointTest, PeersWithImpossibleProcessNumbersAreRefusedWhereTheyAreChecked) {
    Serve();
    for (const pid_t pid : {0, 100'000}) {
        platform::SetReportedPeerPid(pid);
        const int refusedBefore = serverSink.refused, interruptedBefore = clientSink.interrupted;
        ASSERT_TRUE(client.Connect(kService, 1, true));
        PumpUntil([&] { return serverSink.refused > refusedBefore && clientSink.interrupted > interruptedBefore; },
                  "the refusal");
        client.Disconnect(kService, 1);
    }
    for (const pid_t pid : {1, 99'999}) {
        platform::SetReportedPeerPid(pid);
        const int before = clientSink.replies;
        ASSERT_TRUE(client.Connect(kService, 1, true));
        Ask(kService, 1, 1);
        PumpUntil([&] { return clientSink.replies > before; }, "the reply");
        client.Disconnect(kService, 1);
    }
    platform::SetReportedPeerPid(-1);
    EXPECT_EQ(serverSink.refused, 2);
}

TEST_F(LXPCEndpointTest, TheEmbeddedServerTakesEveryPeerAndItsCallbackNeedsAServer) {
    Serve(std::make_unique<LXPCServer>(&serverSink));
    EXPECT_EQ(LXPCServerBase::pServer, server.get());
    platform::SetReportedPeerPid(0);
    ASSERT_TRUE(client.Connect(kService, 1, false));
    Ask(kService, 1, 1);
    PumpUntil([&] { return clientSink.replies == 1; }, "the reply");
    platform::SetReportedPeerPid(-1);
    client.Disconnect(kService, 1);
    DestroyServer();
    EXPECT_EQ(LXPCServerBase::pServer, nullptr);
    LXPCServer::StaticNewConnectionHandler(nullptr);
}

TEST_F(LXPCEndpointTest, DisconnectInTheErrorCallbackForgetsThePeer) {
    Serve();
    serverSink.onError = [this](long connection, LXPCErrorType) { server->Disconnect(connection); };
    const size_t before = OpenDescriptors();
    for (int i = 0; i < 50; i++) {
        ASSERT_TRUE(client.Connect(kService, 1, true));
        Ask(kService, 1, i);
        client.Disconnect(kService, 1);
    }
    PumpUntil([&] { return serverSink.invalid == 50; }, "the ends");
    PumpUntil([&] { return OpenDescriptors() <= before; }, "closed descriptors");
    server->Disconnect(serverSink.lastInvalid);  // a stale identifier
    server->Disconnect(0);
}

TEST_F(LXPCEndpointTest, StaleIdentifiersSendNothing) {
    Serve();
    ASSERT_TRUE(client.Connect(kService, 1, true));
    long kept = 0;
    serverSink.onMessage = [&](long connection, long message, const LList<LXPCDataListable>&) {
        kept = message;
        Answer(connection, message, 1);
        Answer(connection, message, 2);  // answered already
        Answer(12345, message, 3);
    };
    Ask(kService, 1, 1);
    PumpUntil([&] { return clientSink.replies == 1 && serverSink.messages == 1; }, "the reply");
    Answer(12345, kept, 4);
    LXPCBase& base = client;
    LList<LXPCDataListable> items;
    base.SendMessage(0, items, true);
    base.SendMessage(12345, items, false);
    EXPECT_EQ(serverSink.sent, 1);
}

TEST_F(LXPCEndpointTest, DescriptorsThatTheSinkLeavesAreClosed) {
    Serve();
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ASSERT_TRUE(client.Connect(kService, 1, true));
    Ask(kService, 1, 1);
    PumpUntil([&] { return clientSink.replies == 1; }, "the connection");
    const size_t before = OpenDescriptors();
    const LXPCData item = Item("fd", xpcDataFD, ends[1]);
    for (int i = 0; i < 20; i++) client.SendMessage(kService, 1, &item, 1, false);
    PumpUntil([&] { return serverSink.messages == 21; }, "the messages");
    PumpUntil([&] { return OpenDescriptors() <= before; }, "closed descriptors");
    close(ends[0]);
    close(ends[1]);
}

TEST_F(LXPCEndpointTest, TheServerMayBeDestroyedInItsOwnCallback) {
    Serve();
    serverSink.onMessage = [this](long, long, const LList<LXPCDataListable>&) { DestroyServer(); };
    ASSERT_TRUE(client.Connect(kService, 1, true));
    Ask(kService, 1, 1);
    PumpUntil([&] { return serverSink.messages == 1 && clientSink.interrupted > 0; }, "the end");
    EXPECT_EQ(clientSink.replies, 0);
    EXPECT_GE(clientSink.interrupted, 1);
}

TEST_F(LXPCEndpointTest, DestructionWaitsForCallbacksOnOtherThreads) {
    Serve();
    std::atomic<bool> inside{false}, leave{false}, left{false};
    serverSink.onMessage = [&](long, long, const LList<LXPCDataListable>&) {
        inside = true;
        while (!leave) std::this_thread::yield();
        left = true;
    };
    ASSERT_TRUE(client.Connect(kService, 1, true));
    Ask(kService, 1, 1, false);
    PumpUntil([&] { return inside.load(); }, "the callback");
    std::thread destroyer([&] {
        DestroyServer();
        EXPECT_TRUE(left);
    });
    leave = true;
    destroyer.join();
}

TEST_F(LXPCEndpointTest, EightClientsAskWhileConnectionsComeAndGo) {
    Serve();
    serverSink.onError = [this](long connection, LXPCErrorType) { server->Disconnect(connection); };
    constexpr int kClients = 8, kRequests = 200;
    std::vector<std::unique_ptr<Sink>> sinks;
    std::vector<std::unique_ptr<LXPCClient>> clients;
    for (int c = 0; c < kClients; c++) {
        sinks.push_back(std::make_unique<Sink>());
        clients.push_back(std::make_unique<LXPCClient>(sinks.back().get()));
        clients.back()->AddKey("number", xpcDataInt64);
    }
    std::vector<std::thread> threads;
    for (auto& c : clients)
        threads.emplace_back([&c] {
            const LXPCData item = Item("number", xpcDataInt64, 1);
            EXPECT_TRUE(c->Connect(kService, 0, true));
            for (int i = 0; i < kRequests; i++) {
                c->SendMessage(kService, 0, &item, 1, true);
                if (i % 20 == 0 && c->Connect(kService, 9, true)) {
                    c->SendMessage(kService, 9, &item, 1, false);
                    c->Disconnect(kService, 9);
                }
            }
        });
    PumpUntil(
        [&] {
            for (const auto& sink : sinks)
                if (sink->replies < kRequests) return false;
            return true;
        },
        "all replies");
    for (auto& thread : threads) thread.join();
    clients.clear();
    PumpUntil([&] { return serverSink.invalid == kClients * 11; }, "all ends");
}

}  // namespace
