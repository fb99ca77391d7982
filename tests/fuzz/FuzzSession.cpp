// A server with the helper's keys and one peer: frames that come in pieces, with descriptors, suspended, resumed and
// cut off at any point. The input is a length, so many script bytes, and the peer's stream. Everything runs on this
// thread, so that an input does the same each time.
#include "EventPool.h"
#include "Frames.h"
#include "Fuzz.h"
#include "Session.h"

#include "XPCConnection.h"

#include "app/LScheduleHelperKeys.h"
#include "app/LScheduleHelperRequest.h"
#include "xpc/LXPCMachServer.h"

#include <map>
#include <sys/socket.h>

using namespace platform;

namespace {

// The keys that the helper registers, and one of each type that it lacks.
std::vector<LScheduleHelperKey> Keys() {
    std::vector<LScheduleHelperKey> keys(LScheduleHelperKeys().begin(), LScheduleHelperKeys().end());
    for (const auto& key : {LScheduleHelperKey{"data", xpcDataData}, {"uuid", xpcDataUUID}, {"fd", xpcDataFD}})
        keys.push_back(key);
    return keys;
}

// What is kept of a message: of each key its name, and its text or number.
std::string Describe(const LXPCData& item) {
    const auto* const bytes = reinterpret_cast<const char*>(item.nValue);
    const std::string name = std::string(item.szName) + "=";
    if (item.type == xpcDataString) return name + (bytes ? bytes : "null") + ";";
    if (item.type == xpcDataData) return name + std::string(bytes ? bytes : "", item.nSize) + ";";
    if (item.type == xpcDataUUID) return name + std::string(bytes ? bytes : "", bytes ? 16 : 0) + ";";
    if (item.type == xpcDataFD) return name + (item.nValue >= 0 ? "open" : "null") + ";";
    return name + std::to_string(item.nValue) + ";";
}

// The same from the frame.
std::string Describe(const LScheduleHelperKey& key, const frames::Item& sent) {
    LXPCDataListable item;
    std::strcpy(item.szName, key.szName);
    item.type = key.type;
    const bool isSame = sent.type == static_cast<int>(key.type);
    item.nValue = 0;
    if (key.type == xpcDataFD) item.nValue = isSame ? 0 : -1;
    if (isSame && (key.type == xpcDataString || key.type == xpcDataData || key.type == xpcDataUUID)) {
        item.nValue = reinterpret_cast<long>(sent.value.data());
        item.nSize = sent.value.size();
    } else if (isSame && key.type == xpcDataUInt64) {
        int32_t low;
        std::memcpy(&low, sent.value.data(), sizeof low);
        item.nValue = low;
    } else if (isSame && key.type != xpcDataFD) {
        std::memcpy(&item.nValue, sent.value.data(), sent.value.size());
    }
    return Describe(item);
}

std::string Describe(const frames::Frame& frame) {
    static const std::vector<LScheduleHelperKey>& keys = *new std::vector(Keys());
    std::string text;
    for (const LScheduleHelperKey& key : keys)
        if (const frames::Item* item = frame.Find(key.szName)) text += Describe(key, *item);
    return text;
}

// Does what the helper's event object does: answers, and disconnects whoever has an error. May leave a connection from
// inside a callback.
class Sink final : public LXPCServerEventNotify {
public:
    void EvConnectionError(long connection, LXPCErrorType error) override {
        Require(error == xpcErrorConnectionInvalid, "a peer's end is an invalid connection");
        errors++;
        server->Disconnect(connection);
    }
    void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) override {
        Require(errors == 0, "nothing follows an error");
        std::string text;
        for (LListIterator<LXPCDataListable> item(items); item; item.Next()) text += Describe(*item);
        received.push_back(text);
        LScheduleHelperRequest::Read(items);
        LList<LXPCDataListable> answer;
        answer.Add(CreateXPCData({kReplyTestConnection, xpcDataBool}, 1, 0));
        server->SendReply(connection, message, answer);
        server->SendReply(connection, message, answer);  // only one can be made
        if (received.size() != leaveAfter) return;
        hasLeft = true;
        server->Disconnect(connection);
    }
    void EvReplyReceived(long, const LList<LXPCDataListable>&) override { Require(false, "nothing was asked"); }
    void EvMessageSent(long) override { sent++; }
    void EvInvalidConnectionAttempt() override { Require(false, "the peer is a process"); }

    LXPCMachServer* server = nullptr;
    std::vector<std::string> received;
    size_t leaveAfter = 0;
    bool hasLeft = false;
    size_t sent = 0;
    int errors = 0;
};

// What must have come of the peer's stream: the messages of all whole frames up to the first broken one.
struct Expected {
    std::vector<std::string> messages;
    std::vector<uint64_t> answers;
    size_t certain = 0;  // so many messages come in any case: what follows depends on where descriptors arrive
};

Expected Expect(const FuzzPeer& peer) {
    Expected expected;
    auto descriptors = peer.DescriptorsSent();
    // More than the system hands over at once break the connection as soon as they are read, and what was read with
    // them.
    bool isCertain = std::none_of(descriptors.begin(), descriptors.end(), [](const auto& d) { return d.second > 16; });
    frames::Frame frame;
    for (size_t at = 0; frames::Read(peer.Sent(), at, frame) == frames::Reading::Whole; at = frame.end) {
        const auto with = descriptors.lower_bound(at);
        const size_t count = with != descriptors.end() && with->first == at ? with->second : 0;
        const auto next = count ? std::next(with) : with;
        if (count != frame.descriptors || (next != descriptors.end() && next->first < frame.end)) isCertain = false;
        const std::string message = frame.isReply ? "" : Describe(frame);
        if (message.empty()) continue;
        expected.messages.push_back(message);
        if (frame.number != 0) expected.answers.push_back(frame.number);
        if (isCertain) expected.certain = expected.messages.size();
    }
    return expected;
}

void CheckAnswers(const std::string& stream, const Expected& expected, bool areAll) {
    size_t count = 0, at = 0;
    frames::Frame frame;
    for (; frames::Read(stream, at, frame) == frames::Reading::Whole; at = frame.end, count++) {
        Require(frame.isReply && frame.Find(kReplyTestConnection) && frame.items.size() == 1, "an answer is one");
        Require(count < expected.answers.size() && frame.number == expected.answers[count], "answers come in order");
    }
    if (areAll) Require(at == stream.size() && count == expected.answers.size(), "every request is answered");
}

// One script byte: what happens next, and how much of it.
void Step(FuzzPeer& peer, XPCConnection& connection, Sink& sink, uint8_t code, bool& left) {
    const size_t amount = code >> 3;
    switch (code & 7) {
    case 0:
        return peer.Send(1 + amount, 0);
    case 1:
        return peer.Send(1 + amount * 8, 0);
    case 2:
        return peer.Send(1 + amount, amount < 31 ? 1 + amount % 16 : 18);
    case 3:
        return peer.SendFrames(1 + amount % 4);
    case 4:
        return peer.Run(1 + amount);
    case 5:
        return amount % 2 ? connection.Suspend() : connection.Resume();
    case 6:
        peer.Read();
        return;
    default:
        if (amount < 8) sink.leaveAfter = sink.received.size() + 1 + amount;
        if (amount < 8 || amount > 9) return;
        left = true;
        if (amount == 8)
            connection.Cancel();
        else
            sink.server->Disconnect(reinterpret_cast<long>(&connection));
    }
}

void Serve(FuzzInput input) {
    Sink sink;
    LXPCMachServer server(&sink);
    sink.server = &server;
    for (const LScheduleHelperKey& key : Keys()) server.AddKey(key.szName, key.type);
    int ends[2];
    Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) == 0, "a pair of sockets");
    const auto connection = XPCConnection::Peer(Descriptor(ends[1]), getpid());
    const std::string_view script = input.Bytes(input.Byte());
    FuzzPeer peer{Descriptor(ends[0]), input.Rest()};
    server.NewConnectionHandler(connection.get());
    bool left = false;
    for (const char code : script) Step(peer, *connection, sink, static_cast<uint8_t>(code), left);

    for (size_t i = 0; i <= script.size(); i++) connection->Resume();
    peer.SendRest();
    peer.EndStream();
    FuzzPeer::RunAll();
    left |= sink.hasLeft;
    Require(sink.errors == 1, "a connection ends once");
    const Expected expected = Expect(peer);
    const auto& received = sink.received;
    Require(received.size() <= expected.messages.size() &&
                std::equal(received.begin(), received.end(), expected.messages.begin()),
            "messages come as they were sent");
    if (!left) Require(received.size() >= expected.certain, "no message is lost");
    CheckAnswers(peer.Read(), expected, !left && expected.certain == expected.messages.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    [[maybe_unused]] static const bool isReady = (EventPool::Shared().RunByHand(), true);
    const int lowest = LowestFreeDescriptor();
    Serve(FuzzInput(data, size));
    FuzzPeer::RunAll();
    Require(LowestFreeDescriptor() == lowest, "every descriptor is closed");
    return 0;
}
