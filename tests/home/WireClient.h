// WireClient: a client of the helper in its plainest form, as one in another language would be: a blocking socket and
// the frames of docs/protocol.md. One thread at a time.
#pragma once

#include "Descriptor.h"
#include "common/HelperRequest.h"

#include <cstdint>
#include <optional>
#include <string>

class WireClient {
public:
    // Connects at once. Where nobody serves, requests just fail.
    explicit WireClient(const std::string& socketPath);
    bool IsConnected() const { return static_cast<bool>(socket); }

    // Sends a request without waiting for anything. False: nobody is there (any more).
    bool Send(const tools::HelperRequest& request);
    // The value of the reply; nothing when none comes within `timeoutMs`, or the helper hangs up.
    std::optional<bool> Ask(const tools::HelperRequest& request, int timeoutMs = 15'000);

private:
    bool Receive(char* bytes, size_t size, int timeoutMs) const;

    platform::Descriptor socket;
    uint64_t number = 0;
};
