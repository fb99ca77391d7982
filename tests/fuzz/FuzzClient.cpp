// A client and the server that it talks to: answers that come in pieces, twice, unasked or never, a server that goes
// and comes back, requests queued, suspended and cancelled meanwhile. The input is a length, so many script bytes, and
// what the server sends, over one connection after the other. Everything runs on this thread, so that an input does the
// same each time.
#include "EventPool.h"
#include "Frames.h"
#include "Fuzz.h"
#include "Session.h"

#include "MainQueue.h"
#include "ServiceFolder.h"
#include "XPCConnection.h"

#include "support/TempFolder.h"

#include <dispatch/dispatch.h>
#include <dispatch/pump.h>

#include <deque>
#include <fcntl.h>
#include <vector>

using namespace platform;

namespace {

constexpr char kService[] = "fuzzed";

// The service's listening socket, in a runtime folder of our own. Immortal.
class Service {
public:
    Service() {
        setenv("XDG_RUNTIME_DIR", folder.Path().c_str(), 1);
        const Descriptor opened(open(folder.Path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        listener = BindIn(opened.Get(), kService);
        Require(static_cast<bool>(listener), "the service can be bound");
    }
    Descriptor Accept() const {
        pid_t pid = 0;
        return AcceptPeer(listener.Get(), pid);
    }

private:
    const TempFolder folder;
    Descriptor listener;
};

// What came of one request or barrier.
struct Outcome {
    int answers = 0;
    int errors = 0;
};

class Conversation {
public:
    Conversation(const Service& ownService, std::string_view bytes)
        : service(ownService), stream(bytes), client(XPCConnection::Client(kService)) {
        Require(static_cast<bool>(client), "a service that is bound is reached");
        client->SetEventHandler([this](xpc_object_t event) { OnEvent(event); });
        client->Resume();
        Accept();
    }

    void Step(uint8_t code);
    void End();

private:
    void OnEvent(xpc_object_t event);
    void Accept();
    void Ask();
    void Tell(size_t bytes);
    void SendBarrier();
    void Disturb(size_t what);
    static void RunMain();
    void CheckStreams() const;

    const Service& service;
    std::string_view stream;  // what no server has sent yet
    XPCRef<XPCConnection> client;
    std::deque<FuzzPeer> servers;  // the last one is there, unless it was closed
    bool isServed = false;
    std::deque<Outcome> requests, barriers;
    size_t messages = 0, interruptions = 0, ends = 0;
};

void Conversation::OnEvent(xpc_object_t event) {
    Require(ends == 0, "nothing follows the end");
    if (event == XPC_ERROR_CONNECTION_INTERRUPTED)
        interruptions++;
    else if (event == XPC_ERROR_CONNECTION_INVALID)
        ends++;
    else
        messages++;
}

void Conversation::Accept() {
    if (isServed) return;
    Descriptor socket = service.Accept();
    if (!socket) return;
    if (!servers.empty()) stream.remove_prefix(servers.back().Sent().size());
    fcntl(socket.Get(), F_SETFL, O_NONBLOCK);
    servers.emplace_back(std::move(socket), stream);
    isServed = true;
}

void Conversation::Ask() {
    Outcome& outcome = requests.emplace_back();
    const auto message = XPCRef<XPCDictionary>::Adopt(new XPCDictionary);
    message->Set(wire::Type::Bool, "XPC_TEST_CONNECTION", "\1", 1);
    client->SendWithReply(*message, [&outcome](xpc_object_t answer) {
        (xpc_get_type(answer) == XPC_TYPE_ERROR ? outcome.errors : outcome.answers)++;
    });
}

void Conversation::Tell(size_t bytes) {
    const auto message = XPCRef<XPCDictionary>::Adopt(new XPCDictionary);
    const std::string data(bytes, 'x');
    message->Set(wire::Type::Data, "data", data.data(), data.size());
    if (bytes % 3 == 0) message->SetDescriptor("fd", STDERR_FILENO);
    client->Send(*message);
}

void Conversation::SendBarrier() {
    Outcome& outcome = barriers.emplace_back();
    client->SendBarrier([&outcome] { outcome.answers++; });
}

// What the main queue has and, once that is through, what is ready on the main thread's set.
void Conversation::RunMain() {
    int left = 4;
    for (int i = 0; i < 4; i++) dispatch_async(dispatch_get_main_queue(), [&left] { left--; });
    dispatch_pump_main([&left] { return left == 0; }, 10'000);
    Require(left == 0, "the main queue is served");
}

void Conversation::Disturb(size_t what) {
    switch (what % 8) {
    case 0:
    case 1:
        return Accept();
    case 2:
        if (!isServed) return;
        servers.back().Close();
        isServed = false;
        return;
    case 3:
        if (isServed) servers.back().EndStream();
        return;
    case 4:
        if (isServed) servers.back().Read();
        return;
    case 5:
        if (what >= 24) client->Cancel();
        return;
    default:
        return RunMain();
    }
}

void Conversation::Step(uint8_t code) {
    const size_t amount = code >> 3;
    FuzzPeer* const server = isServed ? &servers.back() : nullptr;
    switch (code & 7) {
    case 0:
        if (server) server->Send(1 + amount * 4, 0);
        return;
    case 1:
        if (server) server->Send(1 + amount, amount < 31 ? 1 + amount % 16 : 18);
        return;
    case 2:
        if (server) server->SendFrames(1 + amount % 4);
        return;
    case 3:
        return FuzzPeer::Run(1 + amount);
    case 4:
        return amount % 2 ? client->Suspend() : client->Resume();
    case 5:
        return amount % 4 ? Ask() : SendBarrier();
    case 6:
        return Tell(amount < 31 ? amount * 40 : 60'000);  // a few of which fill the socket's buffer
    default:
        return Disturb(amount);
    }
}

// Of each server: what it received is whole frames, but for one that its end cut off.
void Conversation::CheckStreams() const {
    size_t requestsSent = 0;
    for (const FuzzPeer& server : servers) {
        frames::Frame frame;
        frames::Reading reading;
        const std::string& received = server.Received();
        for (size_t at = 0;; at = frame.end) {
            reading = frames::Read(received, at, frame);
            if (reading != frames::Reading::Whole) break;
            if (frame.number == 0) continue;
            Require(!frame.isReply && frame.number > requestsSent, "requests are numbered in order");
            requestsSent = frame.number;
        }
        Require(reading == frames::Reading::Incomplete, "what a client sends is well-formed");
    }
    Require(requestsSent <= requests.size(), "no request is made up");
}

void Conversation::End() {
    if (isServed) servers.back().SendRest();
    if (isServed) servers.back().Read();
    FuzzPeer::RunAll();
    RunMain();
    client->Cancel();
    FuzzPeer::RunAll();
    RunMain();
    FuzzPeer::RunAll();
    Require(ends == 1, "a connection ends once");
    Require(interruptions <= servers.size(), "each server's end is told once");
    for (const Outcome& outcome : requests)
        Require(outcome.answers + outcome.errors == 1, "a request is answered once, or fails once");
    for (const Outcome& outcome : barriers) Require(outcome.answers == 1, "a barrier's block runs once");
    if (isServed) servers.back().Read();
    CheckStreams();
    while (service.Accept()) continue;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Service& service = (EventPool::Shared().RunByHand(), *new Service);
    MainQueue::Shared();  // has descriptors of its own
    const int lowest = LowestFreeDescriptor();
    {
        FuzzInput input(data, size);
        const std::string_view script = input.Bytes(input.Byte());
        Conversation conversation(service, input.Rest());
        for (const char code : script) conversation.Step(static_cast<uint8_t>(code));
        conversation.End();
    }
    Require(LowestFreeDescriptor() == lowest, "every descriptor is closed");
    return 0;
}
