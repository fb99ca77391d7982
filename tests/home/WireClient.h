// WireClient: a client of the helper in its plainest form, as one in another language would be: a blocking socket and
// the frames of docs/protocol.md. One thread at a time.
#pragma once

#include "Descriptor.h"
#include "common/HelperRequest.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

class WireClient {
public:
    // Connects at once. Where nobody serves, requests just fail.
    explicit WireClient(const std::string& socketPath);
    bool IsConnected() const { return static_cast<bool>(socket); }

    // Sends a request without waiting for anything. False: nobody is there (any more).
    bool Send(const tools::HelperRequest& request);
    // The bytes that Send would send.
    std::string FrameOf(const tools::HelperRequest& request);
    // Any bytes. False where not all are taken: by nobody, or, with MSG_DONTWAIT, by a peer that reads too slowly.
    bool SendBytes(std::string_view bytes, int flags = 0) const;
    // No more comes from here; the other direction stays open.
    void EndStream() const;
    // Takes what comes until the other end hangs up. False: it didn't within `timeoutMs` of silence.
    bool AwaitEnd(int timeoutMs = 15'000) const;
    // The value of the reply; nothing when none comes within `timeoutMs`, or the helper hangs up.
    std::optional<bool> Ask(const tools::HelperRequest& request, int timeoutMs = 15'000);
    // The same for the oldest request that has been sent without waiting.
    std::optional<bool> Answer(const tools::HelperRequest& request, int timeoutMs = 15'000);

private:
    bool Receive(char* bytes, size_t size, int timeoutMs) const;

    platform::Descriptor socket;
    uint64_t number = 0, answered = 0;
};
