// HelperRequest: one request to the helper, as the items that LXPCClient sends. One thread at a time; it owns the texts
// that its items point to, so it must outlive the sending call.
#pragma once

#include "NewSchedule.h"
#include "xpc/LXPCData.h"

#include <list>
#include <string>
#include <vector>

namespace tools {

// What the helper starts: an application by its identifier and the path of its bundle.
struct Application {
    std::string bundleId;
    std::string path;
};

class HelperRequest {
public:
    static HelperRequest Test();
    static HelperRequest Handshake(const Application& application);
    static HelperRequest Add(const Application& application, const NewSchedule& schedule);
    static HelperRequest Delete(const Application& application, const std::string& name);
    static HelperRequest DeleteAll(const Application& application);
    static HelperRequest MayQuit();
    static HelperRequest Quit();

    HelperRequest(HelperRequest&&) = default;
    HelperRequest& operator=(HelperRequest&&) = default;
    HelperRequest(const HelperRequest&) = delete;
    HelperRequest& operator=(const HelperRequest&) = delete;

    const std::vector<LXPCData>& Items() const { return items; }
    // The key of the reply's one item; "" where the helper doesn't reply.
    const std::string& ReplyKey() const { return replyKey; }

private:
    HelperRequest() = default;
    explicit HelperRequest(const Application& application);

    HelperRequest& Put(const char* key, LXPCDataType type, long value);
    HelperRequest& PutFlag(const char* key) { return Put(key, xpcDataBool, 1); }
    HelperRequest& PutText(const char* key, const std::string& text);

    std::list<std::string> texts;  // a list: its elements stay where they are
    std::vector<LXPCData> items;
    std::string replyKey;
};

}  // namespace tools
