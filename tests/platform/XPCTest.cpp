#include "EventPool.h"
#include "EventSet.h"
#include "XPCConnection.h"
#include "XPCWire.h"
#include "support/ServiceFixture.h"

#include <dispatch/exit_gate.h>
#include <dispatch/pump.h>
#include <xpc/xpc.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <future>
#include <mutex>
#include <new>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

// Allocations of at least so many bytes fail.
static std::atomic<size_t> refusedBytes{SIZE_MAX};

void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return size < refusedBytes ? std::malloc(size) : nullptr;
}
void* operator new(size_t size) {
    void* const memory = operator new(size, std::nothrow);
    if (!memory) throw std::bad_alloc();
    return memory;
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
void* operator new[](size_t size) {
    return operator new(size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return operator new(size, std::nothrow);
}
void operator delete[](void* memory) noexcept {
    operator delete(memory);
}
void operator delete[](void* memory, size_t) noexcept {
    operator delete(memory);
}

namespace {

namespace wire = platform::wire;

// One reference for a scope.
class Object {
public:
    explicit Object(xpc_object_t o) : object(o) {}
    ~Object() { xpc_release(object); }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    operator xpc_object_t() const { return object; }

private:
    xpc_object_t object;
};

xpc_object_t NewMessage() {
    return xpc_dictionary_create(nullptr, nullptr, 0);
}

// An event of an earlier connection that lay at the same address, handled only now.
void GiveStaleHint(xpc_connection_t connection) {
    const platform::EventSet events;
    const platform::Descriptor ready(eventfd(1, EFD_CLOEXEC));
    ASSERT_TRUE(events.AddNumbered(ready.Get(), EPOLLIN, reinterpret_cast<uintptr_t>(connection)));
    const platform::EventSet::Ready hint = events.Wait(0);
    ASSERT_TRUE(hint);
    hint.Handle();
}

// Serves kService in this process. Every peer's events go to `handle`, on pool threads.
class XPCTest : public ServiceFixture {
protected:
    using Handle = std::function<void(xpc_connection_t peer, xpc_object_t event)>;

    void Serve(Handle handle) {
        listener = xpc_connection_create_mach_service(kService, dispatch_get_main_queue(),
                                                      XPC_CONNECTION_MACH_SERVICE_LISTENER);
        ASSERT_NE(listener, nullptr);
        xpc_connection_set_event_handler(listener, [this, handle = std::move(handle)](xpc_object_t peer) {
            if (refusePeers) return GiveStaleHint(peer);
            accepted++;
            xpc_retain(peer);
            {
                std::lock_guard guard(peersLock);
                peers.push_back(peer);
            }
            xpc_connection_set_event_handler(peer, [this, peer, handle](xpc_object_t event) {
                handle(peer, event);
                if (xpc_get_type(event) == XPC_TYPE_ERROR) errors++;
                if (event == XPC_ERROR_CONNECTION_INVALID) invalid++;  // last: the test may end now
            });
            xpc_connection_resume(peer);
        });
        xpc_connection_resume(listener);
    }

    // Replies with {"number": what came under "number" plus one}.
    void ServeAddingOne() {
        Serve([](xpc_connection_t peer, xpc_object_t event) {
            if (xpc_get_type(event) != XPC_TYPE_DICTIONARY) return;
            const Object reply(xpc_dictionary_create_reply(event));
            if (!reply) return;
            xpc_dictionary_set_int64(reply, "number", xpc_dictionary_get_int64(event, "number") + 1);
            xpc_connection_send_message(peer, reply);
        });
    }

    xpc_connection_t Connect() {
        const xpc_connection_t client = xpc_connection_create_mach_service(kService, nullptr, 0);
        EXPECT_NE(client, nullptr);
        if (!client) return nullptr;
        xpc_connection_set_event_handler(client, [this](xpc_object_t event) {
            if (event == XPC_ERROR_CONNECTION_INTERRUPTED) clientInterrupted++;
            if (event == XPC_ERROR_CONNECTION_INVALID) clientInvalid++;
        });
        xpc_connection_resume(client);
        clients.push_back(client);
        connected++;
        return client;
    }

    // Sends {"number": n} and gives the reply's number; -1 for an error.
    int64_t Ask(xpc_connection_t client, int64_t n) {
        const Object message(NewMessage());
        xpc_dictionary_set_int64(message, "number", n);
        bool answered = false;
        int64_t answer = -1;
        xpc_connection_send_message_with_reply(client, message, dispatch_get_main_queue(), [&](xpc_object_t reply) {
            answered = true;
            if (xpc_get_type(reply) == XPC_TYPE_DICTIONARY) answer = xpc_dictionary_get_int64(reply, "number");
        });
        PumpUntil([&] { return answered; }, "an answer");
        return answer;
    }

    // For the main thread while it doesn't serve its queue; false when the condition doesn't come true within 10 s.
    static bool WaitUntil(const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!condition() && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
        return condition();
    }

    void EndClient(xpc_connection_t client) {
        xpc_connection_cancel(client);
        xpc_release(client);
        std::erase(clients, client);
    }

    void CancelPeers() {
        std::lock_guard guard(peersLock);
        for (xpc_connection_t peer : peers) {
            xpc_connection_cancel(peer);
            xpc_release(peer);
        }
        peers.clear();
    }

    void TearDown() override {
        for (xpc_connection_t client : std::vector(clients)) EndClient(client);
        PumpUntil([this] { return clientInvalid == connected; }, "every client's end");
        PumpUntil([this] { return invalid == accepted; }, "every peer's end");
        CancelPeers();
        StopListening();
    }

    void StopListening() {
        if (!listener) return;
        xpc_connection_cancel(listener);
        xpc_release(listener);
        listener = nullptr;
    }

    xpc_connection_t listener = nullptr;
    bool refusePeers = false;
    std::mutex peersLock;
    std::vector<xpc_connection_t> peers, clients;
    int connected = 0;
    std::atomic<int> accepted{0}, errors{0}, invalid{0}, clientInterrupted{0}, clientInvalid{0};
};

TEST_F(XPCTest, EveryTypeTravelsAndReadsAsNothingUnderAnotherType) {
    std::atomic<bool> checked{false};
    Serve([&](xpc_connection_t, xpc_object_t event) {
        if (xpc_get_type(event) != XPC_TYPE_DICTIONARY) return;
        EXPECT_TRUE(xpc_dictionary_get_bool(event, "bool"));
        EXPECT_EQ(xpc_dictionary_get_int64(event, "int64"), INT64_MIN);
        EXPECT_EQ(xpc_dictionary_get_uint64(event, "uint64"), UINT64_MAX);
        EXPECT_EQ(xpc_dictionary_get_double(event, "double"), -2.5);
        EXPECT_EQ(xpc_dictionary_get_date(event, "date"), 1'700'000'000);
        EXPECT_STREQ(xpc_dictionary_get_string(event, "string"), "h\xC3\xA9llo");
        EXPECT_STREQ(xpc_dictionary_get_string(event, "empty"), "");
        size_t length = 99;
        EXPECT_EQ(std::memcmp(xpc_dictionary_get_data(event, "data", &length), "a\0b", 3), 0);
        EXPECT_EQ(length, 3u);
        EXPECT_EQ(std::memcmp(xpc_dictionary_get_uuid(event, "uuid"), "0123456789abcdef", 16), 0);
        const int fd = xpc_dictionary_dup_fd(event, "fd");
        EXPECT_EQ(write(fd, "x", 1), 1);
        close(fd);

        EXPECT_EQ(xpc_dictionary_get_int64(event, "uint64"), 0);
        EXPECT_EQ(xpc_dictionary_get_string(event, "int64"), nullptr);
        length = 99;
        EXPECT_EQ(xpc_dictionary_get_data(event, "string", &length), nullptr);
        EXPECT_EQ(length, 99u);
        EXPECT_EQ(xpc_dictionary_dup_fd(event, "data"), -1);
        EXPECT_NE(xpc_dictionary_get_value(event, "bool"), nullptr);
        EXPECT_EQ(xpc_dictionary_get_value(event, "absent"), nullptr);
        checked = true;
    });
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    {
        const Object message(NewMessage());
        xpc_dictionary_set_fd(message, "replaced", ends[0]);
        xpc_dictionary_set_bool(message, "bool", true);
        xpc_dictionary_set_int64(message, "int64", INT64_MIN);
        xpc_dictionary_set_uint64(message, "uint64", UINT64_MAX);
        xpc_dictionary_set_double(message, "double", -2.5);
        xpc_dictionary_set_date(message, "date", 1'700'000'000);
        xpc_dictionary_set_string(message, "string", "to be replaced");
        xpc_dictionary_set_string(message, "empty", "");
        xpc_dictionary_set_string(message, "string", "h\xC3\xA9llo");
        xpc_dictionary_set_string(message, "skipped", nullptr);
        xpc_dictionary_set_data(message, "data", "a\0b", 3);
        xpc_dictionary_set_uuid(message, "uuid", reinterpret_cast<const unsigned char*>("0123456789abcdef"));
        xpc_dictionary_set_fd(message, "fd", ends[1]);
        xpc_dictionary_set_bool(message, "replaced", false);
        EXPECT_EQ(xpc_dictionary_get_value(message, "skipped"), nullptr);
        xpc_connection_send_message(Connect(), message);
    }
    close(ends[1]);
    PumpUntil([&] { return checked.load(); }, "the message");
    char byte;
    EXPECT_EQ(read(ends[0], &byte, 1), 1);
    close(ends[0]);
}

TEST_F(XPCTest, RepliesComeOnceAndOnlyWhereOneIsExpected) {
    std::atomic<int> oneWay{0};
    Serve([&](xpc_connection_t peer, xpc_object_t event) {
        if (xpc_get_type(event) != XPC_TYPE_DICTIONARY) return;
        const Object reply(xpc_dictionary_create_reply(event));
        if (!reply) {
            oneWay++;
            return;
        }
        EXPECT_EQ(xpc_dictionary_create_reply(event), nullptr);
        xpc_dictionary_set_int64(reply, "number", 7);
        xpc_connection_send_message(peer, reply);
        xpc_connection_send_message(peer, reply);  // a second one is nobody's
    });
    const xpc_connection_t client = Connect();
    const Object message(NewMessage());
    xpc_connection_send_message(client, message);
    EXPECT_EQ(Ask(client, 1), 7);
    EXPECT_EQ(Ask(client, 1), 7);
    EXPECT_EQ(oneWay, 1);
}

TEST_F(XPCTest, MessagesKeepTheirOrderAndBarriersFollowThem) {
    std::vector<int64_t> seen;  // one connection: one event at a time
    std::atomic<int> count{0};
    Serve([&](xpc_connection_t, xpc_object_t event) {
        if (xpc_get_type(event) != XPC_TYPE_DICTIONARY) return;
        seen.push_back(xpc_dictionary_get_int64(event, "number"));
        count++;
    });
    constexpr int kMessages = 5000;
    std::atomic<int> barriers{0};
    const xpc_connection_t client = Connect();
    for (int i = 0; i < kMessages; i++) {
        const Object message(NewMessage());
        xpc_dictionary_set_int64(message, "number", i);
        xpc_connection_send_message(client, message);
        xpc_connection_send_barrier(client, [&] { barriers++; });
    }
    PumpUntil([&] { return count == kMessages && barriers == kMessages; }, "all messages");
    for (int i = 0; i < kMessages; i++) ASSERT_EQ(seen[static_cast<size_t>(i)], i);
}

TEST_F(XPCTest, NamesThatCannotBeServedOrReachedGiveNothing) {
    EXPECT_EQ(xpc_connection_create_mach_service("com.example.unlisted", nullptr, XPC_CONNECTION_MACH_SERVICE_LISTENER),
              nullptr);
    EXPECT_EQ(xpc_connection_create_mach_service(nullptr, nullptr, XPC_CONNECTION_MACH_SERVICE_LISTENER), nullptr);
    const std::string tooLong(300, 'n');
    for (const char* name : {static_cast<const char*>(nullptr), "", kService, "../x", tooLong.c_str()})
        EXPECT_EQ(xpc_connection_create_mach_service(name, nullptr, 0), nullptr);
    ServeAddingOne();
    EXPECT_EQ(xpc_connection_create_mach_service(kService, nullptr, XPC_CONNECTION_MACH_SERVICE_LISTENER), nullptr);
}

TEST_F(XPCTest, AStaleSocketIsReplacedAndForeignThingsInItsPlaceAreNotTrusted) {
    ASSERT_EQ(symlink("/nowhere", SocketPath().c_str()), 0);
    EXPECT_EQ(xpc_connection_create_mach_service(kService, nullptr, 0), nullptr);
    ServeAddingOne();
    EXPECT_EQ(Ask(Connect(), 1), 2);
    // A folder that others may enter is no place for a service.
    ASSERT_EQ(chmod(RuntimeFolder().c_str(), 0755), 0);
    EXPECT_EQ(xpc_connection_create_mach_service(kService, nullptr, 0), nullptr);
    ASSERT_EQ(chmod(RuntimeFolder().c_str(), 0700), 0);
}

TEST_F(XPCTest, AClientsEndIsOneInvalidEventAndLeavesNoDescriptor) {
    ServeAddingOne();
    EXPECT_EQ(Ask(Connect(), 1), 2);
    const size_t before = OpenDescriptors();
    for (int i = 0; i < 100; i++) {
        const xpc_connection_t client = Connect();
        EXPECT_EQ(Ask(client, i), i + 1);
        EndClient(client);
    }
    PumpUntil([&] { return invalid == 100; }, "the peers' ends");
    CancelPeers();
    PumpUntil([&] { return OpenDescriptors() <= before && invalid == 101; }, "closed descriptors");
    EXPECT_EQ(errors, 101);
}

TEST_F(XPCTest, AServersEndInterruptsAndTheNextUseConnectsAgain) {
    ServeAddingOne();
    const xpc_connection_t client = Connect();
    EXPECT_EQ(Ask(client, 1), 2);
    CancelPeers();
    PumpUntil([&] { return clientInterrupted == 1; }, "the interruption");
    EXPECT_EQ(Ask(client, 5), 6);
    // With nobody there any more the next use finds the connection finished, for good.
    CancelPeers();
    PumpUntil([&] { return clientInterrupted == 2; }, "the second interruption");
    ASSERT_EQ(unlink(SocketPath().c_str()), 0);
    EXPECT_EQ(Ask(client, 5), -1);
    PumpUntil([&] { return clientInvalid == 1; }, "the end");
    EXPECT_EQ(Ask(client, 5), -1);
    EXPECT_EQ(clientInvalid, 1);
}

TEST_F(XPCTest, OpenRepliesFailOnceWhenTheServerGoesAway) {
    std::atomic<int> received{0};
    Serve([&](xpc_connection_t, xpc_object_t event) {
        if (xpc_get_type(event) == XPC_TYPE_DICTIONARY) received++;
    });
    const xpc_connection_t client = Connect();
    const Object message(NewMessage());
    int failed = 0;
    for (int i = 0; i < 3; i++)
        xpc_connection_send_message_with_reply(client, message, dispatch_get_main_queue(), [&](xpc_object_t reply) {
            failed += reply == XPC_ERROR_CONNECTION_INTERRUPTED;
            EXPECT_EQ(xpc_dictionary_get_remote_connection(reply), client);
        });
    PumpUntil([&] { return received == 3; }, "the requests");
    CancelPeers();
    PumpUntil([&] { return failed == 3; }, "three errors");
}

TEST_F(XPCTest, ARefusedPeerIsClosedWhenItsEventReturns) {
    refusePeers = true;
    ServeAddingOne();
    Connect();
    PumpUntil([&] { return clientInterrupted == 1; }, "the hang-up");
}

TEST_F(XPCTest, ASuspendedConnectionKeepsItsMessagesUntilItIsResumed) {
    std::atomic<int> received{0};
    Serve([&](xpc_connection_t peer, xpc_object_t event) {
        if (xpc_get_type(event) != XPC_TYPE_DICTIONARY) return;
        received++;
        xpc_connection_suspend(peer);
    });
    const xpc_connection_t client = Connect();
    const Object message(NewMessage());
    for (int i = 0; i < 3; i++) xpc_connection_send_message(client, message);
    for (int expected = 1; expected <= 3; expected++) {
        PumpUntil([&] { return received == expected; }, "one message");
        EXPECT_FALSE(dispatch_pump_main([&] { return received > expected; }, 20));
        xpc_connection_resume(peers[0]);
    }
    xpc_connection_resume(peers[0]);  // of one that isn't suspended: harmless
}

TEST_F(XPCTest, StaleHandlesAreTold) {
    ServeAddingOne();
    const xpc_connection_t client = Connect();
    const auto handle = reinterpret_cast<long>(client);
    const Object live(xpc_handle_retain(handle, XPC_TYPE_CONNECTION));
    EXPECT_EQ(live, client);
    EXPECT_EQ(xpc_handle_retain(handle, XPC_TYPE_DICTIONARY), nullptr);
    EXPECT_EQ(xpc_handle_retain(0, XPC_TYPE_CONNECTION), nullptr);
    EXPECT_EQ(xpc_handle_retain(12345, XPC_TYPE_CONNECTION), nullptr);
}

TEST_F(XPCTest, AValueMayComeFromTheSameMessage) {
    const Object message(NewMessage());
    const std::string text(100, 't');
    xpc_dictionary_set_string(message, "a", text.c_str());
    for (const char* key : {"b", "c", "a"})
        xpc_dictionary_set_string(message, key, xpc_dictionary_get_string(message, "a"));
    for (const char* key : {"a", "b", "c"}) EXPECT_EQ(xpc_dictionary_get_string(message, key), text);
}

TEST_F(XPCTest, AReplyHandlerMayServeTheMainQueueUntilTheSameConnectionHasMore) {
    ServeAddingOne();
    const xpc_connection_t client = Connect();
    const Object message(NewMessage());
    const auto ask = [&](const std::function<void()>& answered) {
        xpc_connection_send_message_with_reply(client, message, dispatch_get_main_queue(),
                                               [answered](xpc_object_t) { answered(); });
    };
    bool inner = false, outer = false;
    std::atomic<bool> barrier{false};
    // The first reply may be read by the pool; while that one is waited for, the main thread comes to read the next.
    ask([&] {
        ask([&] {
            ask([&] { inner = true; });
            EXPECT_TRUE(dispatch_pump_main([&] { return inner; }, 5000));
            xpc_connection_send_barrier(client, [&] {
                barrier = true;
                dispatch_async(dispatch_get_main_queue(), [] {});
            });
            EXPECT_TRUE(dispatch_pump_main([&] { return barrier.load(); }, 5000));
            outer = true;
        });
    });
    EXPECT_TRUE(dispatch_pump_main([&] { return outer; }, 20'000));
}

TEST_F(XPCTest, AClientThatIsFinishedWhileSuspendedHearsOfItWhenResumed) {
    ServeAddingOne();
    const xpc_connection_t client = Connect();
    EXPECT_EQ(Ask(client, 1), 2);
    CancelPeers();
    PumpUntil([&] { return clientInterrupted == 1; }, "the interruption");
    ASSERT_EQ(unlink(SocketPath().c_str()), 0);
    xpc_connection_suspend(client);
    EXPECT_EQ(Ask(client, 1), -1);
    std::atomic<bool> delivered{false};  // by now the pool has looked at the suspended connection
    dispatch_async(dispatch_get_global_queue(0, 0), [&] { delivered = true; });
    PumpUntil([&] { return delivered.load(); }, "the pool");
    EXPECT_EQ(clientInvalid, 0);
    xpc_connection_resume(client);
    PumpUntil([&] { return clientInvalid == 1; }, "the end");
}

// A server of plain sockets in the service's place.
class RawServer {
public:
    explicit RawServer(const std::string& path, int backlog = 5)
        : listening(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        EXPECT_EQ(bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listening, backlog), 0);
    }
    ~RawServer() {
        for (int fd : accepted) close(fd);
        close(listening);
    }
    RawServer(const RawServer&) = delete;
    RawServer& operator=(const RawServer&) = delete;

    // Waits for one.
    int AcceptNext() {
        pollfd wait{listening, POLLIN, 0};
        EXPECT_EQ(poll(&wait, 1, 10'000), 1);
        return Accept();
    }
    int Accept() {
        accepted.push_back(accept4(listening, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        return accepted.back();
    }
    void TurnAway() const { close(accept4(listening, nullptr, nullptr, SOCK_CLOEXEC)); }
    bool IsAskedFor() const {
        pollfd wait{listening, POLLIN, 0};
        return poll(&wait, 1, 0) == 1;
    }

private:
    int listening;
    std::vector<int> accepted;
};

// Sends more than the socket of a peer that doesn't read takes.
void FillSocket(xpc_connection_t client) {
    const Object bulk(NewMessage());
    const std::string bytes(500'000, 'b');
    xpc_dictionary_set_data(bulk, "bulk", bytes.data(), bytes.size());
    for (int i = 0; i < 4; i++) xpc_connection_send_message(client, bulk);
}

TEST_F(XPCTest, AnInterruptionWhileMessagesWaitToBeSentStillLetsTheNextUseConnectAgain) {
    RawServer server(SocketPath());
    const xpc_connection_t client = xpc_connection_create_mach_service(kService, nullptr, 0);
    ASSERT_NE(client, nullptr);
    clients.push_back(client);
    connected++;
    xpc_connection_set_event_handler(client, [&](xpc_object_t event) {
        if (event == XPC_ERROR_CONNECTION_INVALID) clientInvalid++;
        if (event != XPC_ERROR_CONNECTION_INTERRUPTED) return;
        // While this handler runs, the pool gets to the socket's "writable", which was due before these blocks.
        for (int i = 0; i < 10; i++) {
            std::promise<void> ran;
            dispatch_async(dispatch_get_global_queue(0, 0), [&] { ran.set_value(); });
            ran.get_future().wait();
        }
        clientInterrupted++;
    });
    xpc_connection_resume(client);
    const int peer = server.Accept();
    FillSocket(client);
    ASSERT_EQ(send(peer, std::string(24, 'x').data(), 24, MSG_NOSIGNAL), 24);  // no frame: ends the connection
    PumpUntil([&] { return clientInterrupted == 1; }, "the interruption");
    const Object message(NewMessage());
    xpc_connection_send_message(client, message);
    PumpUntil([&] { return server.IsAskedFor(); }, "the next connection");
}

TEST_F(XPCTest, NothingWaitsForAServerThatIsSlowToLetTheClientInAgain) {
    RawServer server(SocketPath(), 0);
    const xpc_connection_t client = Connect();
    const int first = server.Accept(), filler = ConnectRaw();  // the server's queue is full now
    shutdown(first, SHUT_RDWR);
    PumpUntil([&] { return clientInterrupted == 1; }, "the interruption");
    const Object message(NewMessage());
    for (int i = 0; i < 2; i++) xpc_connection_send_message(client, message);
    xpc_connection_suspend(client);
    xpc_connection_resume(client);
    EXPECT_GE(server.Accept(), 0);
    const int next = server.AcceptNext();
    const size_t sent = 2 * sizeof(wire::FrameHeader);
    char bytes[sent];
    PumpUntil([&] { return recv(next, bytes, sent, MSG_PEEK) == static_cast<ssize_t>(sent); }, "both messages");
    close(filler);
}

TEST_F(XPCTest, AConnectThatWaitsOutlastsSignals) {
    static std::atomic<int> handled;
    handled = 0;
    struct sigaction counting {};
    struct sigaction old {};
    counting.sa_handler = [](int) { handled++; };
    ASSERT_EQ(sigaction(SIGUSR1, &counting, &old), 0);
    RawServer server(SocketPath(), 0);
    const int filler = ConnectRaw();  // the server's queue is full now
    std::atomic<bool> isOver{false};
    xpc_connection_t client = nullptr;
    std::thread connecting([&] {
        client = xpc_connection_create_mach_service(kService, nullptr, 0);
        isOver = true;
        while (handled >= 0) std::this_thread::yield();
    });
    while (handled < 1000 && !isOver) {
        pthread_kill(connecting.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }
    server.Accept();
    EXPECT_TRUE(WaitUntil([&] { return isOver.load(); }));
    handled = -1;
    connecting.join();
    EXPECT_NE(client, nullptr);
    xpc_release(client);
    close(filler);
    sigaction(SIGUSR1, &old, nullptr);
}

TEST_F(XPCTest, AServerThatLetsTheClientInAndEndsBeforeItSendsIsNoticed) {
    RawServer server(SocketPath());
    const xpc_connection_t client = Connect();
    std::atomic<bool> isOver{false};
    std::thread ending([&] {
        while (!isOver)
            if (server.IsAskedFor()) server.TurnAway();
    });
    for (int i = 0; i < 300 && !HasFailure(); i++) EXPECT_EQ(Ask(client, i), -1);
    isOver = true;
    ending.join();
}

TEST_F(XPCTest, EventsReachAClientWhoseMainThreadHangsInAHandler) {
    ServeAddingOne();
    const xpc_connection_t client = Connect();
    for (int i = 0; i < 3; i++) EXPECT_EQ(Ask(client, 1), 2);  // by now the main thread reads its replies
    bool isTold = false;
    dispatch_async(dispatch_get_main_queue(), [&] {
        CancelPeers();
        isTold = WaitUntil([&] { return clientInterrupted == 1; });
    });
    PumpUntil([&] { return clientInterrupted == 1; }, "the interruption");
    EXPECT_TRUE(isTold);
    for (int i = 0; i < 3; i++) EXPECT_EQ(Ask(client, 1), 2);
}

TEST_F(XPCTest, HoweverManyHandlersHangTimersAreServed) {
    std::atomic<int> hanging{0}, ended{0};
    std::atomic<bool> release{false}, fired{false};
    Serve([&](xpc_connection_t, xpc_object_t event) {
        if (xpc_get_type(event) != XPC_TYPE_DICTIONARY) return;
        hanging++;
        release.wait(false);
        ended++;
    });
    const Object message(NewMessage());
    for (int i = 0; i < 80; i++) xpc_connection_send_message(Connect(), message);
    PumpUntil([&] { return hanging >= 48; }, "handlers that hang");
    dispatch_pump_main([&] { return hanging >= 64; }, 100);
    const dispatch_source_t timer =
        dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, dispatch_get_global_queue(0, 0));
    dispatch_source_set_timer(timer, dispatch_time(DISPATCH_TIME_NOW, 1), DISPATCH_TIME_FOREVER, 0);
    dispatch_source_set_event_handler(timer, [&] { fired = true; });
    dispatch_resume(timer);
    PumpUntil([&] { return fired.load(); }, "the timer");
    release = true;
    release.notify_all();
    PumpUntil([&] { return ended == 80; }, "the handlers that had to wait, too");
    dispatch_release(timer);
}

TEST_F(XPCTest, ASuspensionHoldsBackBarriersThatAreDueTogether) {
    const RawServer server(SocketPath());
    const xpc_connection_t client = Connect();
    std::atomic<int> ran{0};
    xpc_connection_suspend(client);
    for (int i = 0; i < 2; i++)
        xpc_connection_send_barrier(client, [&] {
            xpc_connection_suspend(client);
            ran++;
        });
    xpc_connection_resume(client);
    for (int expected = 1; expected <= 2; expected++) {
        PumpUntil([&] { return ran == expected; }, "one barrier");
        EXPECT_FALSE(dispatch_pump_main([&] { return ran > expected; }, 20));
        xpc_connection_resume(client);
    }
}

TEST_F(XPCTest, MemoryThatRunsOutCostsOneConnection) {
    Serve([](xpc_connection_t peer, xpc_object_t event) {
        if (xpc_get_type(event) != XPC_TYPE_DICTIONARY) return;
        if (xpc_dictionary_get_int64(event, "number") == 13) throw std::bad_alloc();
        const Object reply(xpc_dictionary_create_reply(event));
        xpc_connection_send_message(peer, reply);
    });
    const xpc_connection_t bystander = Connect(), client = Connect();
    EXPECT_EQ(Ask(bystander, 1), 0);
    EXPECT_EQ(Ask(client, 13), -1);
    EXPECT_EQ(Ask(bystander, 1), 0);
    PumpUntil([&] { return invalid == 1 && clientInterrupted == 1; }, "the end of the one");
}

// Refuses large allocations for a scope.
class LittleMemory {
public:
    LittleMemory() { refusedBytes = 100'000; }
    ~LittleMemory() { refusedBytes = SIZE_MAX; }
    LittleMemory(const LittleMemory&) = delete;
    LittleMemory& operator=(const LittleMemory&) = delete;
};

TEST_F(XPCTest, AReplyForWhichTheMainThreadHasNoMemoryEndsItsConnection) {
    RawServer server(SocketPath());
    const xpc_connection_t client = Connect();
    const int peer = server.Accept();
    const Object message(NewMessage());
    constexpr uint64_t kAnswered = 10;  // until the main thread reads the replies itself
    uint64_t sent = 0, answers = 0;
    for (uint64_t i = 0; i <= kAnswered; i++)
        xpc_connection_send_message_with_reply(client, message, dispatch_get_main_queue(),
                                               [&](xpc_object_t) { answers++; });
    const LittleMemory little;
    PumpUntil(
        [&] {
            if (sent > answers || sent > kAnswered) return clientInvalid == 1;
            wire::FrameHeader header;
            header.flags = wire::kFlagReply;
            header.number = ++sent;
            header.payloadLength = sent > kAnswered ? 500'000 : 0;
            std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
            if (sent > kAnswered) bytes.append(50'000, '\0');
            EXPECT_EQ(send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
            return false;
        },
        "the end");
    EXPECT_EQ(answers, kAnswered);
}

TEST_F(XPCTest, AMessageForWhoseRestThereIsNoMemoryEndsTheStream) {
    RawServer server(SocketPath());
    const xpc_connection_t client = Connect();
    const int peer = server.Accept();
    const Object bulk(NewMessage());
    const std::string bytes(1'000'000, 'b');
    xpc_dictionary_set_data(bulk, "bulk", bytes.data(), bytes.size());
    {
        const LittleMemory little;
        EXPECT_THROW(xpc_connection_send_message(client, bulk), std::bad_alloc);
    }
    PumpUntil([&] { return clientInterrupted == 1; }, "the interruption");
    EXPECT_GE(peer, 0);
}

TEST_F(XPCTest, AMessageWhoseDescriptorsCannotBeQueuedFailsAndTheOthersArrive) {
    RawServer server(SocketPath());
    const xpc_connection_t client = Connect();
    const int peer = server.Accept();
    const Object message(NewMessage());
    xpc_dictionary_set_fd(message, "fd", peer);
    FillSocket(client);
    bool failed = false;
    rlimit old{};
    getrlimit(RLIMIT_NOFILE, &old);
    const rlimit none{0, old.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    xpc_connection_send_message_with_reply(client, message, dispatch_get_main_queue(),
                                           [&](xpc_object_t) { failed = true; });
    setrlimit(RLIMIT_NOFILE, &old);
    PumpUntil([&] { return failed; }, "the refusal");
    size_t got = 0;
    std::vector<char> buffer(1 << 20);
    PumpUntil(
        [&] {
            const ssize_t n = recv(peer, buffer.data(), buffer.size(), 0);
            if (n > 0) got += static_cast<size_t>(n);
            return got >= 4 * 500'000;
        },
        "the other messages");
    EXPECT_EQ(clientInterrupted, 0);
}

TEST_F(XPCTest, AListenerMayBeCancelledInItsOwnHandler) {
    const std::string text(100, 't');  // what the running handler holds must stay alive
    bool called = false;
    listener =
        xpc_connection_create_mach_service(kService, dispatch_get_main_queue(), XPC_CONNECTION_MACH_SERVICE_LISTENER);
    xpc_connection_set_event_handler(listener, [this, text, &called](xpc_object_t) {
        StopListening();
        called = text == std::string(100, 't');
    });
    xpc_connection_resume(listener);
    const int fd = ConnectRaw();
    PumpUntil([&] { return called; }, "the peer");
    close(fd);
}

// --- what a hostile or broken peer sends -----------------------------------------------------------------------------

std::string Frame(const std::string& payload, uint16_t items,
                  const std::function<void(wire::FrameHeader&)>& edit = {}) {
    wire::FrameHeader header;
    header.number = 1;
    header.payloadLength = static_cast<uint32_t>(payload.size());
    header.items = items;
    if (edit) edit(header);
    return std::string(reinterpret_cast<const char*>(&header), sizeof header) + payload;
}

std::string Item(uint8_t type, const std::string& key, const std::string& value) {
    std::string payload;
    wire::AppendItem(payload, static_cast<wire::Type>(type), key, value.data(), value.size());
    return payload;
}

const std::string kNumber41("\x29\0\0\0\0\0\0\0", 8);

bool IsClosedByPeer(int fd) {
    pollfd wait{fd, POLLIN, 0};
    char byte;
    return poll(&wait, 1, 0) == 1 && recv(fd, &byte, 1, MSG_PEEK) <= 0;
}

TEST_F(XPCTest, FramesOutOfBoundsEndThatPeerOnly) {
    ServeAddingOne();
    const xpc_connection_t bystander = Connect();
    EXPECT_EQ(Ask(bystander, 1), 2);
    const std::string good = Item(2, "number", kNumber41);
    const std::vector<std::pair<const char*, std::string>> bad = {
        {"magic", Frame(good, 1, [](auto& h) { h.magic ^= 1; })},
        {"version", Frame(good, 1, [](auto& h) { h.version = 2; })},
        {"flags", Frame(good, 1, [](auto& h) { h.flags = 2; })},
        {"reply to nothing", Frame(good, 1, [](auto& h) { h.flags = 1, h.number = 0; })},
        {"payload over the bound", Frame("", 0, [](auto& h) { h.payloadLength = wire::kMaxPayload + 1; })},
        {"too many items", Frame("", 0, [](auto& h) { h.items = wire::kMaxItems + 1; })},
        {"more items than bytes", Frame(good, 1, [](auto& h) { h.items = 100; })},
        {"descriptors announced, none sent", Frame(good, 1, [](auto& h) { h.descriptors = 1; })},
        {"too many descriptors", Frame(good, 1, [](auto& h) { h.descriptors = wire::kMaxDescriptors + 1; })},
        {"bytes behind the items", Frame(good + "x", 1)},
        {"fewer items than said", Frame(good, 2)},
        {"unknown type", Frame(Item(10, "k", ""), 1)},
        {"type none", Frame(Item(0, "k", ""), 1)},
        {"short number", Frame(Item(2, "k", "1234567"), 1)},
        {"bool of 2", Frame(Item(1, "k", "\2"), 1)},
        {"text without end", Frame(Item(8, "k", "abc"), 1)},
        {"text with two ends", Frame(Item(8, "k", std::string("a\0b\0", 4)), 1)},
        {"empty text value", Frame(Item(8, "k", ""), 1)},
        {"short uuid", Frame(Item(7, "k", "123"), 1)},
        {"descriptor with a value", Frame(Item(9, "k", "1"), 1, [](auto& h) { h.descriptors = 1; })},
        {"key over the bound", Frame(Item(2, std::string(1024, 'k'), kNumber41), 1)},
        {"value beyond the payload", Frame(good.substr(0, good.size() - 1), 1)},
    };
    for (const auto& [what, bytes] : bad) {
        const int fd = ConnectRaw();
        EXPECT_EQ(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
        PumpUntil([&] { return IsClosedByPeer(fd); }, what);
        close(fd);
    }
    EXPECT_EQ(Ask(bystander, 2), 3);
}

TEST_F(XPCTest, FramesMayComeInPiecesOfAnySize) {
    ServeAddingOne();
    std::string bytes;
    for (int i = 0; i < 3; i++) bytes += Frame(Item(2, "number", kNumber41), 1);
    const std::string expected(24 + 8 + 6 + 8, '\0');
    for (size_t piece : {size_t{1}, size_t{23}, size_t{25}, size_t{47}, bytes.size()}) {
        const int fd = ConnectRaw();
        std::thread sender([&] {
            for (size_t at = 0; at < bytes.size(); at += piece)
                EXPECT_GT(send(fd, bytes.data() + at, std::min(piece, bytes.size() - at), MSG_NOSIGNAL), 0);
        });
        std::string got;
        PumpUntil(
            [&] {
                char buffer[512];
                const ssize_t n = recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
                if (n > 0) got.append(buffer, static_cast<size_t>(n));
                return got.size() >= 3 * expected.size();
            },
            "three replies");
        sender.join();
        EXPECT_EQ(got.size(), 3 * expected.size());
        close(fd);
    }
}

TEST_F(XPCTest, SurplusDescriptorsEndThePeerAndAreClosed) {
    ServeAddingOne();
    EXPECT_EQ(Ask(Connect(), 1), 2);
    const size_t before = OpenDescriptors();
    for (const int count : {1, 16, 30}) {
        const int fd = ConnectRaw();
        std::vector<int> sent(static_cast<size_t>(count), fd);
        alignas(cmsghdr) char control[CMSG_SPACE(30 * sizeof(int))]{};
        std::string bytes = Frame(Item(2, "number", kNumber41), 1);
        iovec part{bytes.data(), bytes.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(sent.size() * sizeof(int));
        cmsghdr* header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sent.size() * sizeof(int));
        std::memcpy(CMSG_DATA(header), sent.data(), sent.size() * sizeof(int));
        EXPECT_GT(sendmsg(fd, &message, MSG_NOSIGNAL), 0);
        const int ended = invalid;
        PumpUntil([&] { return invalid > ended; }, "the end");
        close(fd);
    }
    CancelPeers();
    PumpUntil([&] { return OpenDescriptors() <= before; }, "closed descriptors");
}

TEST_F(XPCTest, APeerThatDoesNotReadIsDroppedAndNobodyElseNotices) {
    std::atomic<bool> flooded{false};
    Serve([&](xpc_connection_t peer, xpc_object_t event) {
        if (xpc_get_type(event) != XPC_TYPE_DICTIONARY) return;
        const Object reply(xpc_dictionary_create_reply(event));
        if (xpc_dictionary_get_int64(event, "number") == 41) {
            const Object message(NewMessage());
            const std::string bulk(100'000, 'b');
            xpc_dictionary_set_data(message, "bulk", bulk.data(), bulk.size());
            for (int i = 0; i < 100; i++) xpc_connection_send_message(peer, message);
            flooded = true;
            return;
        }
        xpc_dictionary_set_int64(reply, "number", 5);
        xpc_connection_send_message(peer, reply);
    });
    const int deaf = ConnectRaw();
    const std::string request = Frame(Item(2, "number", kNumber41), 1);
    ASSERT_GT(send(deaf, request.data(), request.size(), MSG_NOSIGNAL), 0);
    PumpUntil([&] { return flooded && invalid == 1; }, "the drop");
    EXPECT_EQ(Ask(Connect(), 1), 5);
    close(deaf);
}

TEST_F(XPCTest, AMessageOverTheBoundsIsNotSent) {
    ServeAddingOne();
    const xpc_connection_t client = Connect();
    const Object message(NewMessage());
    const std::string huge(wire::kMaxPayload, 'x');
    xpc_dictionary_set_data(message, "huge", huge.data(), huge.size());
    bool failed = false;
    xpc_connection_send_message_with_reply(client, message, dispatch_get_main_queue(),
                                           [&](xpc_object_t reply) { failed = xpc_get_type(reply) == XPC_TYPE_ERROR; });
    PumpUntil([&] { return failed; }, "the refusal");
    EXPECT_EQ(Ask(client, 1), 2);
}

// --- in processes of their own ---------------------------------------------------------------------------------------

class XPCProcessTest : public XPCTest {
protected:
    void SetUp() override { testing::FLAGS_gtest_death_test_style = "threadsafe"; }

    // Runs out of descriptors with a peer waiting, and has the listener find that before there are some again.
    [[noreturn]] void RunOutOfDescriptors() {
        ServeAddingOne();
        ConnectRaw();  // everything ran once: a sanitizer's first look at an object takes descriptors of its own
        PumpUntil([this] { return accepted == 1; }, "a first peer");
        const int fd = ConnectRaw();
        std::vector<int> taken;
        for (int next; (next = fcntl(fd, F_DUPFD_CLOEXEC, 0)) >= 0;) taken.push_back(next);
        dispatch_pump_main(nullptr, 1);
        for (int next : taken) close(next);
        PumpUntil([this] { return accepted == 2; }, "the peer");
        _exit(accepted == 2 ? 7 : 8);
    }

    // Both served by one thread; each message of the first peer brings another one of it.
    [[noreturn]] void ServeBesideOneThatAlwaysSends() {
        platform::EventPool::Shared().RunByHand();
        const std::string frame = Frame("", 0);
        int sender[2], other[2], messages = 0;
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sender) | socketpair(AF_UNIX, SOCK_STREAM, 0, other), 0);
        const auto busy = platform::XPCConnection::Peer(platform::Descriptor(sender[0]), 1);
        const auto patient = platform::XPCConnection::Peer(platform::Descriptor(other[0]), 1);
        busy->SetEventHandler([&](xpc_object_t) {
            if (++messages > 100'000) _exit(8);
            EXPECT_GT(write(sender[1], frame.data(), frame.size()), 0);
        });
        patient->SetEventHandler([](xpc_object_t) { _exit(7); });
        for (int fd : {sender[1], other[1]}) EXPECT_GT(write(fd, frame.data(), frame.size()), 0);
        busy->Resume();
        patient->Resume();
        for (;;) platform::EventPool::Shared().RunOne();
    }

    // A barrier closes the gate; the next one, which waits behind it for the same delivery, must not run.
    [[noreturn]] void CloseTheGateInAnEvent() {
        const RawServer server(SocketPath());
        const xpc_connection_t client = Connect();
        std::atomic<bool> closed{false};
        xpc_connection_suspend(client);
        xpc_connection_send_barrier(client, [&] {
            dispatch_gate_close(0);
            closed = true;
        });
        xpc_connection_send_barrier(client, [] { _exit(8); });
        xpc_connection_resume(client);
        while (!closed) std::this_thread::yield();
        dispatch_pump_main(nullptr, 50);
        _exit(7);
    }
};

TEST_F(XPCProcessTest, AcceptAtTheDescriptorLimitGoesOnWhenThereAreSome) {
    EXPECT_EXIT(RunOutOfDescriptors(), testing::ExitedWithCode(7), "");
}

TEST_F(XPCProcessTest, APeerThatAlwaysSendsLeavesRoomForOthers) {
    EXPECT_EXIT(ServeBesideOneThatAlwaysSends(), testing::ExitedWithCode(7), "");
}

TEST_F(XPCProcessTest, NoFurtherEventOfAConnectionPassesAClosedGate) {
    EXPECT_EXIT(CloseTheGateInAnEvent(), testing::ExitedWithCode(7), "");
}

TEST_F(XPCTest, ManyClientsFromManyThreadsWithCancelsInBetween) {
    ServeAddingOne();
    std::atomic<int> running{8};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; t++)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 50; i++) {
                const xpc_connection_t client = xpc_connection_create_mach_service(kService, nullptr, 0);
                xpc_connection_set_event_handler(client, [](xpc_object_t) {});
                xpc_connection_resume(client);
                const Object message(NewMessage());
                for (int m = 0; m < 5; m++)
                    xpc_connection_send_message_with_reply(client, message, dispatch_get_main_queue(),
                                                           [](xpc_object_t) {});
                if (t % 2) xpc_connection_suspend(client), xpc_connection_resume(client);
                xpc_connection_cancel(client);
                xpc_release(client);
            }
            running--;
        });
    PumpUntil([&] { return running == 0; }, "the threads");
    for (auto& thread : threads) thread.join();
}

}  // namespace
