#include "HelperClient.h"

#include "ScheduleStore.h"
#include "app/LScheduleHelperKeys.h"

#include <dispatch/dispatch.h>
#include <dispatch/pump.h>

#include <chrono>

namespace tools {

namespace {

constexpr unsigned long connectionId = 0;
constexpr uint32_t lookAgainMs = 20;

}  // namespace

HelperClient::HelperClient() : client(this) {
    for (const char* key : {kReplyTestConnection, kReplyNewConnection, kReplyShutdownHelperRequest})
        client.AddKey(key, xpcDataBool);
}

HelperClient::~HelperClient() {
    client.Disconnect(kHelperServiceName, connectionId);
}

bool HelperClient::Connect() {
    return client.Connect(kHelperServiceName, connectionId, true);
}

HelperClient::Answer HelperClient::Ask(const HelperRequest& request, uint32_t timeoutMs) {
    state->replyKey = request.ReplyKey();
    state->answer = Answer::None;
    Send(request);
    dispatch_pump_main([this] { return state->answer != Answer::None || state->disconnected; }, timeoutMs);
    if (state->answer == Answer::None && state->disconnected) return Answer::Disconnected;
    return state->answer;
}

bool HelperClient::Tell(const HelperRequest& request, uint32_t timeoutMs) {
    Send(request);
    return Ask(HelperRequest::Test(), timeoutMs) == Answer::Yes;
}

bool HelperClient::TellToQuit(uint32_t timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    Send(HelperRequest::Quit());
    if (!dispatch_pump_main([this] { return state->disconnected; }, timeoutMs)) return false;
    // Its connections go first; it holds the store until it has ended, and that nobody tells.
    while (IsHelperRunning(StorePath())) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        dispatch_pump_main({}, lookAgainMs);
    }
    return true;
}

void HelperClient::Send(const HelperRequest& request) {
    const auto& items = request.Items();
    client.SendMessage(kHelperServiceName, connectionId, items.data(), items.size(), !request.ReplyKey().empty());
}

// On a pool thread, or on the main thread for a request whose reply won't come any more.
void HelperClient::EvConnectionError(long, LXPCErrorType) {
    dispatch_async(dispatch_get_main_queue(), [shared = state] { shared->disconnected = true; });
}

// The helper sends replies only.
void HelperClient::EvMessageReceived(long, long, const LList<LXPCDataListable>&) {}

// On the main thread: replies are served by its queue.
void HelperClient::EvReplyReceived(long, const LList<LXPCDataListable>& items) {
    for (LListIterator<LXPCDataListable> item(items); item; item.Next())
        if (state->replyKey == item->szName) state->answer = item->nValue ? Answer::Yes : Answer::No;
}

void HelperClient::EvMessageSent(long) {}

}  // namespace tools
