// FuzzPeer: the other end of a connection, played by hand: sends the bytes of an input in pieces, with descriptors, and
// reads what comes back. Between its steps it runs the pool's events on the calling thread. Lives for one input.
#pragma once

#include "Descriptor.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

// The number that the next descriptor would get: the same as before when nothing was left open.
int LowestFreeDescriptor();

class FuzzPeer {
public:
    FuzzPeer(platform::Descriptor socket, std::string_view bytes) : end(std::move(socket)), stream(bytes) {}

    // The next `count` bytes in one piece, with so many descriptors.
    void Send(size_t count, size_t descriptors);
    // The rest of the current frame, and further ones whole, each with the descriptors that its header announces.
    void SendFrames(size_t count);
    void SendRest();
    // No more bytes come.
    void EndStream();
    void Close() { end.Reset(); }
    // Takes what has come from the other end; gives all that was taken.
    const std::string& Read();
    const std::string& Received() const { return received; }

    // At most so many events of the pool; all that come.
    static void Run(size_t count);
    static void RunAll();

    // The bytes that the other end was given, and how many descriptors went with the byte at a position.
    std::string_view Sent() const { return stream.substr(0, sent); }
    const std::map<size_t, size_t>& DescriptorsSent() const { return descriptorsSent; }

private:
    platform::Descriptor end;
    const std::string_view stream;
    size_t sent = 0;
    bool isBroken = false;
    std::map<size_t, size_t> descriptorsSent;
    std::string received;
};
