#include "Session.h"

#include "EventPool.h"
#include "Frames.h"
#include "Fuzz.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>

using namespace platform;

namespace {

constexpr size_t kMaxDescriptors = 20;  // a few more than a frame may have

}  // namespace

int LowestFreeDescriptor() {
    return Descriptor(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)).Get();
}

// Where the other end takes nothing for now the piece is not sent at all; an end that is closed takes nothing for good.
void FuzzPeer::Send(size_t count, size_t descriptors) {
    const std::string_view piece = stream.substr(sent, count);
    if (piece.empty() || isBroken) return;
    descriptors = std::min(descriptors, kMaxDescriptors);
    alignas(cmsghdr) char control[CMSG_SPACE(kMaxDescriptors * sizeof(int))] = {};
    iovec part{const_cast<char*>(piece.data()), piece.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (descriptors) {
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(descriptors * sizeof(int));
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(descriptors * sizeof(int));
        for (size_t i = 0; i < descriptors; i++) {
            const int any = STDERR_FILENO;
            std::memcpy(CMSG_DATA(header) + i * sizeof any, &any, sizeof any);
        }
    }
    const ssize_t taken = sendmsg(end.Get(), &message, MSG_NOSIGNAL);
    if (taken < 0) {
        isBroken = errno != EAGAIN;
        return;
    }
    if (descriptors) descriptorsSent[sent] = descriptors;
    sent += static_cast<size_t>(taken);
}

void FuzzPeer::SendFrames(size_t count) {
    size_t at = 0;
    frames::Frame frame;
    while (at < sent && frames::Read(stream, at, frame) == frames::Reading::Whole) at = frame.end;
    if (at > sent) Send(at - sent, 0);
    for (size_t i = 0; i < count && frames::Read(stream, sent, frame) == frames::Reading::Whole; i++)
        Send(frame.end - sent, frame.descriptors);
}

void FuzzPeer::SendRest() {
    while (sent < stream.size() && !isBroken) {
        Send(stream.size() - sent, 0);
        RunAll();
    }
}

void FuzzPeer::EndStream() {
    shutdown(end.Get(), SHUT_WR);
}

const std::string& FuzzPeer::Read() {
    char bytes[4096];
    for (ssize_t count; (count = recv(end.Get(), bytes, sizeof bytes, 0)) > 0;)
        received.append(bytes, static_cast<size_t>(count));
    return received;
}

void FuzzPeer::Run(size_t count) {
    while (count-- > 0 && EventPool::Shared().RunOne()) continue;
}

void FuzzPeer::RunAll() {
    while (EventPool::Shared().RunOne()) continue;
}
