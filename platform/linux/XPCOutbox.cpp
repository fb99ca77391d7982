#include "XPCOutbox.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>

namespace platform {

namespace {

constexpr size_t kChunk = size_t{64} * 1024;

// Control data for the descriptors of one frame.
union ControlBuffer {
    cmsghdr alignment;
    char bytes[CMSG_SPACE(wire::kMaxDescriptors * sizeof(int))];
};

void AttachDescriptors(msghdr& message, ControlBuffer& control, const std::vector<Descriptor>& descriptors) {
    if (descriptors.empty()) return;
    const size_t size = descriptors.size() * sizeof(int);
    message.msg_control = control.bytes;
    message.msg_controllen = CMSG_SPACE(size);
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(size);
    for (size_t i = 0; i < descriptors.size(); i++) {
        const int fd = descriptors[i].Get();
        std::memcpy(CMSG_DATA(header) + i * sizeof fd, &fd, sizeof fd);
    }
}

}  // namespace

ssize_t SendNow(int socket, iovec* parts, size_t count, const std::vector<Descriptor>& descriptors) {
    msghdr message{};
    ControlBuffer control;
    message.msg_iov = parts;
    message.msg_iovlen = count;
    AttachDescriptors(message, control, descriptors);
    for (;;) {
        const ssize_t sent = sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) return sent;
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS) return 0;
        if (errno != EINTR) return -1;
    }
}

// A frame with descriptors begins a chunk of its own, since they travel with the chunk's first byte; a chunk that has
// begun to go still takes more behind it. It has room for `size` bytes: nothing fails once a frame is partly there.
XPCOutbox::Chunk& XPCOutbox::ChunkFor(size_t size, bool hasDescriptors) {
    if (chunks.empty() || hasDescriptors || chunks.back().bytes.size() + size > kChunk) {
        std::list<Chunk> fresh(1);
        fresh.back().bytes.reserve(size);
        chunks.splice(chunks.end(), fresh);
    } else {
        std::string& bytes = chunks.back().bytes;
        bytes.reserve(bytes.size() + size);
    }
    return chunks.back();
}

void XPCOutbox::Add(const wire::FrameHeader& header, std::string_view payload, size_t sent,
                    std::vector<Descriptor> descriptors) {
    const std::string_view head(reinterpret_cast<const char*>(&header), sizeof header);
    Chunk& chunk = ChunkFor(head.size() + payload.size(), !descriptors.empty());
    if (!descriptors.empty()) chunk.descriptors = std::move(descriptors);
    const size_t before = chunk.bytes.size();
    if (sent < head.size()) chunk.bytes.append(head.substr(sent));
    chunk.bytes.append(payload.substr(sent > head.size() ? sent - head.size() : 0));
    bytesHeld += chunk.bytes.size() - before;
    bytesAdded += chunk.bytes.size() - before;
}

void XPCOutbox::AddBarrier(dispatch_block_t block) {
    barriers.push_back({bytesAdded, std::move(block)});
}

bool XPCOutbox::Flush(int socket, std::vector<dispatch_block_t>& due) {
    bool isAlive = true;
    while (!chunks.empty()) {
        Chunk& chunk = chunks.front();
        iovec part{chunk.bytes.data() + chunk.sent, chunk.bytes.size() - chunk.sent};
        const ssize_t sent = SendNow(socket, &part, 1, chunk.descriptors);
        isAlive = sent >= 0;
        if (sent <= 0) break;
        chunk.descriptors.clear();
        chunk.sent += static_cast<size_t>(sent);
        bytesGone += static_cast<size_t>(sent);
        if (chunk.sent < chunk.bytes.size()) break;
        bytesHeld -= chunk.bytes.size();
        chunks.pop_front();
    }
    MoveDue(due);
    return isAlive;
}

void XPCOutbox::MoveDue(std::vector<dispatch_block_t>& due) {
    for (; firstBarrier < barriers.size() && barriers[firstBarrier].position <= bytesGone; firstBarrier++)
        due.push_back(std::move(barriers[firstBarrier].block));
    if (firstBarrier < barriers.size() - firstBarrier) return;  // moving the others down would cost more than it gains
    barriers.erase(barriers.begin(), barriers.begin() + static_cast<ptrdiff_t>(firstBarrier));
    barriers.shrink_to_fit();
    firstBarrier = 0;
}

void XPCOutbox::Drop(std::vector<dispatch_block_t>& due) {
    chunks.clear();
    bytesHeld = 0;
    bytesGone = bytesAdded;
    MoveDue(due);
}

}  // namespace platform
