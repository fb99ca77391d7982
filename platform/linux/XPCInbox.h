// XPCInbox: what a connection has received but not delivered yet, cut into frames. Used by whoever delivers the
// connection's events, one thread at a time. Its room is the thread's spare one, given back when nothing is left: a
// silent connection holds no memory, and one with half a frame no more than that frame.
#pragma once

#include "Descriptor.h"
#include "XPCWire.h"

#include <memory>
#include <string_view>
#include <vector>

namespace platform {

class XPCInbox {
public:
    struct Frame {
        wire::FrameHeader header;
        std::string_view payload;  // until Skip
    };
    enum class Cut { Whole, Incomplete, Broken };
    enum class Read { Empty, Drained, More, Ended };

    bool IsEmpty() const { return begin == end; }

    // Reads once. Drained: what comes from now on is a new edge; More: there may be something left; Empty: nothing was
    // there, not even an end.
    Read Receive(int socket);
    // The frame at the front, which stays until it is skipped.
    Cut Next(Frame& frame) const;
    // Moves the descriptors that a frame announces to `into`; false when fewer have come.
    bool TakeDescriptors(size_t count, std::vector<Descriptor>& into);
    void Skip(const Frame& frame) { begin += sizeof frame.header + frame.payload.size(); }

    // Nothing is delivered for now: gives back what room isn't needed.
    void Rest();
    void Clear();

private:
    bool HasSurplusDescriptors(const wire::FrameHeader* next) const;
    size_t WantedRoom() const;
    void MakeRoom();
    void MoveTo(std::unique_ptr<char[]> room, size_t size);

    std::unique_ptr<char[]> bytes;
    size_t capacity = 0, begin = 0, end = 0;
    std::vector<Descriptor> descriptors;
};

}  // namespace platform
