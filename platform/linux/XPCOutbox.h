// XPCOutbox: what a connection's socket refused to take, in order: bytes, descriptors that travel with the first byte
// of their frame, and barriers. Frames without descriptors are put together, so that what has piled up leaves in few
// system calls. Guarded by its owner's lock.
#pragma once

#include "Descriptor.h"
#include "XPCWire.h"

#include <xpc/xpc.h>

#include <list>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <sys/uio.h>
#include <vector>

namespace platform {

class XPCOutbox {
public:
    // Barriers may wait behind bytes only.
    bool IsEmpty() const { return chunks.empty(); }
    // What it holds in memory.
    size_t Held() const { return bytesHeld + (barriers.size() - firstBarrier) * kBarrierSize; }

    // A frame of which `sent` bytes have gone. Descriptors are taken along only while none have. Without memory nothing
    // of it is added.
    void Add(const wire::FrameHeader& header, std::string_view payload, size_t sent,
             std::vector<Descriptor> descriptors);
    // Due once all that was added before has gone.
    void AddBarrier(dispatch_block_t block);

    // Sends what the socket takes, and moves the barriers that have become due to `due`. False when the socket is dead.
    bool Flush(int socket, std::vector<dispatch_block_t>& due);
    // Forgets everything; all barriers are due.
    void Drop(std::vector<dispatch_block_t>& due);

private:
    static constexpr size_t kBarrierSize = 128;

    struct Chunk {
        std::string bytes;
        size_t sent = 0;
        std::vector<Descriptor> descriptors;
    };
    struct Barrier {
        uint64_t position;  // as many bytes must have gone
        dispatch_block_t block;
    };
    Chunk& ChunkFor(size_t size, bool hasDescriptors);
    void MoveDue(std::vector<dispatch_block_t>& due);

    std::list<Chunk> chunks;
    std::vector<Barrier> barriers;
    size_t firstBarrier = 0;  // those before it are due and gone
    size_t bytesHeld = 0;
    uint64_t bytesAdded = 0, bytesGone = 0;
};

// Bytes sent; 0 when the socket is full; -1 when it is dead.
ssize_t SendNow(int socket, iovec* parts, size_t count, const std::vector<Descriptor>& descriptors);

}  // namespace platform
