#include "XPCInbox.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <new>
#include <sys/socket.h>
#include <sys/uio.h>

namespace platform {

namespace {

constexpr size_t kRoom = size_t{16} * 1024;
constexpr size_t kHeader = sizeof(wire::FrameHeader);

// Room of kRoom bytes that the thread used last. Only what is touched of it becomes resident.
thread_local std::unique_ptr<char[]> spare;

// Moves received descriptors into `into`; false when the kernel had to cut the control data.
bool Collect(msghdr& message, std::vector<Descriptor>& into) {
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header; header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
        const size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; i++) {
            int fd;
            std::memcpy(&fd, CMSG_DATA(header) + i * sizeof fd, sizeof fd);
            into.emplace_back(fd);
        }
    }
    return !(message.msg_flags & MSG_CTRUNC);
}

}  // namespace

// The header of a whole one was looked at by Next: it announces no more than the wire's bounds.
size_t XPCInbox::WantedRoom() const {
    if (end - begin < kHeader) return kHeader;
    wire::FrameHeader header;
    std::memcpy(&header, bytes.get() + begin, sizeof header);
    return kHeader + header.payloadLength;
}

void XPCInbox::MoveTo(std::unique_ptr<char[]> room, size_t size) {
    const size_t pending = end - begin;
    if (pending) std::memcpy(room.get(), bytes.get() + begin, pending);
    bytes = std::move(room);
    capacity = size;
    begin = 0;
    end = pending;
}

void XPCInbox::MakeRoom() {
    const size_t wanted = WantedRoom();
    if (capacity >= std::max(wanted, kRoom)) {
        if (begin == end) {
            begin = end = 0;
        } else if (begin > 0) {
            std::memmove(bytes.get(), bytes.get() + begin, end - begin);
            end -= begin;
            begin = 0;
        }
        return;
    }
    if (wanted > kRoom)
        MoveTo(std::unique_ptr<char[]>(new char[wanted]), wanted);
    else
        MoveTo(spare ? std::move(spare) : std::unique_ptr<char[]>(new char[kRoom]), kRoom);
}

// A read that gives less than was asked for has drained the socket, unless it ended at descriptors: the kernel never
// hands over two frames' at once.
XPCInbox::Read XPCInbox::Receive(int socket) {
    MakeRoom();
    iovec part{bytes.get() + end, capacity - end};
    union {
        cmsghdr alignment;
        char bytes[CMSG_SPACE(wire::kMaxDescriptors * sizeof(int))];
    } control;
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.bytes;
    message.msg_controllen = sizeof control.bytes;
    const ssize_t got = recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (got < 0 && errno == EINTR) return Read::More;
    if (got < 0) return errno == EAGAIN || errno == EWOULDBLOCK ? Read::Empty : Read::Ended;
    if (got == 0) return Read::Ended;
    end += static_cast<size_t>(got);
    const bool hasControl = message.msg_controllen > 0;
    if (hasControl && !Collect(message, descriptors)) return Read::Ended;
    return hasControl || static_cast<size_t>(got) == part.iov_len ? Read::More : Read::Drained;
}

XPCInbox::Cut XPCInbox::Next(Frame& frame) const {
    const size_t available = end - begin;
    if (available < kHeader) return HasSurplusDescriptors(nullptr) ? Cut::Broken : Cut::Incomplete;
    const auto header = wire::ReadHeader(bytes.get() + begin);
    if (!header) return Cut::Broken;
    if (available - kHeader < header->payloadLength)
        return HasSurplusDescriptors(&*header) ? Cut::Broken : Cut::Incomplete;
    frame.header = *header;
    frame.payload = {bytes.get() + begin + kHeader, header->payloadLength};
    return Cut::Whole;
}

// Descriptors travel with the first byte of their frame: none may be waiting beyond what the next frame announces.
bool XPCInbox::HasSurplusDescriptors(const wire::FrameHeader* next) const {
    if (descriptors.empty()) return false;
    if (next) return descriptors.size() > next->descriptors;
    return begin == end || descriptors.size() > wire::kMaxDescriptors;
}

bool XPCInbox::TakeDescriptors(size_t count, std::vector<Descriptor>& into) {
    if (count == 0) return true;
    if (descriptors.size() < count) return false;
    const auto last = descriptors.begin() + static_cast<ptrdiff_t>(count);
    into.assign(std::make_move_iterator(descriptors.begin()), std::make_move_iterator(last));
    descriptors.erase(descriptors.begin(), last);
    return true;
}

void XPCInbox::Rest() {
    if (capacity < kRoom) return;
    if (begin == end) {
        if (capacity == kRoom && !spare) spare = std::move(bytes);
        bytes.reset();
        capacity = begin = end = 0;
        return;
    }
    const size_t wanted = std::max(WantedRoom(), end - begin);
    if (wanted >= kRoom) return;
    auto own = std::unique_ptr<char[]>(new (std::nothrow) char[wanted]);
    if (!own) return;  // no reason to lose the connection
    auto room = std::move(bytes);
    std::memcpy(own.get(), room.get() + begin, end - begin);
    if (capacity == kRoom && !spare) spare = std::move(room);
    bytes = std::move(own);
    capacity = wanted;
    end -= begin;
    begin = 0;
}

void XPCInbox::Clear() {
    begin = end = 0;
    descriptors.clear();
    Rest();
}

}  // namespace platform
