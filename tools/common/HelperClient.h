// HelperClient: one connection to the helper, for programs that wait for each answer. Main thread only; the main queue
// is served while it waits, and only then. One connection in its life: connect again with a new object.
#pragma once

#include "HelperRequest.h"
#include "xpc/LXPCClient.h"
#include "xpc/LXPCEventNotify.h"

#include <cstdint>
#include <memory>
#include <string>

namespace tools {

class HelperClient final : private LXPCEventNotify {
public:
    enum class Answer {
        Yes,           // the reply's value is true
        No,            // it is false
        None,          // nothing came in time
        Disconnected,  // the helper went away
    };

    HelperClient();
    ~HelperClient();
    HelperClient(const HelperClient&) = delete;
    HelperClient& operator=(const HelperClient&) = delete;

    // False: no helper serves.
    bool Connect();
    // Sends a request that the helper replies to, and waits for the reply.
    Answer Ask(const HelperRequest& request, uint32_t timeoutMs);
    // Sends a request without a reply, and a test behind it: the helper works off one connection's requests in order,
    // so the test's answer says that the request was carried out. True: it was.
    bool Tell(const HelperRequest& request, uint32_t timeoutMs);
    // Asks the helper to end, and waits for its end. True: it is gone.
    bool TellToQuit(uint32_t timeoutMs);

private:
    // Touched on the main thread only. Shared with the blocks that bring events there: one may still be queued when the
    // client goes.
    struct State {
        std::string replyKey;  // of the request that is open
        Answer answer = Answer::None;
        bool disconnected = false;
    };

    void EvConnectionError(long connection, LXPCErrorType error) override;
    void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) override;
    void EvReplyReceived(long connection, const LList<LXPCDataListable>& items) override;
    void EvMessageSent(long connection) override;

    void Send(const HelperRequest& request);

    std::shared_ptr<State> state = std::make_shared<State>();
    LXPCClient client;  // last: its end waits for callbacks that run
};

}  // namespace tools
