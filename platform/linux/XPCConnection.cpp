#include "XPCConnection.h"

#include "EventPool.h"
#include "ExitGate.h"
#include "MainQueue.h"
#include "ServiceFolder.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unordered_set>

namespace platform {
namespace {

// A peer that doesn't read may hold this much of a server's memory. A client's own messages may pile up higher while a
// server is busy: they are the person's schedules.
constexpr size_t kMaxPeerQueue = 4 << 20;
constexpr size_t kMaxClientQueue = 64 << 20;
constexpr size_t kQueuedOverhead = 128;

constexpr size_t kFirstRead = 4096;
constexpr size_t kBulkRead = size_t{64} * 1024;
constexpr size_t kFrameHeader = sizeof(wire::FrameHeader);

thread_local XPCConnection* current = nullptr;

std::atomic<pid_t> reportedPid{-1};

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

// Bytes sent; 0 when the socket is full; -1 when it is dead.
ssize_t SendNow(int fd, iovec* parts, size_t count, const std::vector<Descriptor>& descriptors) {
    msghdr message{};
    ControlBuffer control;
    message.msg_iov = parts;
    message.msg_iovlen = count;
    AttachDescriptors(message, control, descriptors);
    for (;;) {
        const ssize_t sent = sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) return sent;
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS) return 0;
        if (errno != EINTR) return -1;
    }
}

bool Duplicate(const std::vector<Descriptor>& descriptors, std::vector<Descriptor>& copies) {
    for (const Descriptor& descriptor : descriptors)
        if (!copies.emplace_back(fcntl(descriptor.Get(), F_DUPFD_CLOEXEC, 0))) return false;
    return true;
}

// Moves received descriptors into `into`; false when the kernel had to cut the control data.
bool TakeDescriptors(msghdr& message, std::vector<Descriptor>& into) {
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

XPCConnection* CurrentConnection() {
    return current;
}

void SetReportedPeerPid(pid_t pid) {
    reportedPid = pid;
}

// --- clients
// -----------------------------------------------------------------------------------------------------------

class XPCConnection::Clients {
public:
    static Clients& Shared() {
        static Clients& all = *new Clients;
        return all;
    }

    void Add(XPCConnection& connection) {
        LMutexLock guard(lock);
        connections.insert(&connection);
    }

    void Remove(XPCConnection& connection) {
        LMutexLock guard(lock);
        connections.erase(&connection);
    }

private:
    Clients() {
        MainQueue::Shared().SetUnservedHook([this] { MoveAllToPool(); });
    }

    void MoveAllToPool() {
        std::vector<XPCRef<XPCConnection>> live;
        {
            LMutexLock guard(lock);
            for (XPCConnection* connection : connections)
                if (xpc_object_t object = xpc_handle_retain(reinterpret_cast<long>(connection), XPC_TYPE_CONNECTION))
                    live.push_back(XPCRef<XPCConnection>::Adopt(static_cast<XPCConnection*>(object)));
        }
        for (auto& connection : live) connection->MoveToPool();
    }

    LMutex lock;
    std::unordered_set<XPCConnection*> connections L_GUARDED_BY(lock);
};

// --- life ------------------------------------------------------------------------------------------------------------

XPCConnection::XPCConnection(bool client, std::string serviceName, Descriptor connected, pid_t peerPid)
    : xpc_object_s(XPC_TYPE_CONNECTION, true), isClient(client), service(std::move(serviceName)), pid(peerPid),
      socket(std::move(connected)) {
    if (isClient) Clients::Shared().Add(*this);
}

XPCRef<XPCConnection> XPCConnection::Peer(Descriptor socket, pid_t peerPid) {
    return XPCRef<XPCConnection>::Adopt(new XPCConnection(false, "", std::move(socket), peerPid));
}

XPCRef<XPCConnection> XPCConnection::Client(const char* serviceName) {
    const std::string name = serviceName ? serviceName : "";
    pid_t serverPid = 0;
    Descriptor socket = ConnectToService(name, serverPid);
    if (!socket) return {};
    return XPCRef<XPCConnection>::Adopt(new XPCConnection(true, name, std::move(socket), serverPid));
}

XPCConnection::~XPCConnection() {
    if (isClient) Clients::Shared().Remove(*this);
}

void XPCConnection::SetEventHandler(xpc_handler_t eventHandler) {
    handler = std::move(eventHandler);
}

// Linux process numbers pass 99,999, the largest that endpoints accept as a real process: the fold keeps that meaning.
pid_t XPCConnection::Pid() const {
    const pid_t reported = reportedPid.load(std::memory_order_relaxed);
    if (reported >= 0) return reported;
    return pid <= 99'999 ? pid : (pid - 1) % 99'999 + 1;
}

void XPCConnection::Resume() {
    LMutexLock guard(lock);
    if (suspendCount == 0 || --suspendCount > 0 || delivering) return;
    if (!events.empty() || readable || inBegin < inEnd)
        StartDelivering();
    else if (state == State::Open && !cancelled)
        ArmRead();
}

void XPCConnection::Suspend() {
    LMutexLock guard(lock);
    suspendCount++;
}

void XPCConnection::Cancel() {
    LMutexLock guard(lock);
    if (cancelled) return;
    cancelled = true;
    if (state == State::Open) Flush();
    DropOutgoing();
    FailReplies(XPC_ERROR_CONNECTION_INVALID);
    QueueInvalid();
    if (socket) shutdown(socket.Get(), SHUT_RDWR);
    StartDelivering();
}

// --- delivering ------------------------------------------------------------------------------------------------------

void XPCConnection::OnReadable() {
    auto registration = XPCRef<XPCConnection>::Adopt(this);
    {
        LMutexLock guard(lock);
        readArmed = false;
        readable = true;
        if (delivering) return;
        delivering = true;
    }
    Deliver();
}

void XPCConnection::Deliver() {
    while (DeliverNext()) {
    }
}

bool XPCConnection::DeliverNext() {
    Event event;
    std::vector<Event> barriers;  // all that are due, for one look at the lock
    {
        LMutexLock guard(lock);
        if (suspendCount > 0 && !cancelled) return StopDelivering();
        if (!events.empty()) {
            if (MainQueue::IsServedByThisThread()) {
                HandOver();
                return false;
            }
            const auto error = std::find_if(events.begin(), events.end(), [](const Event& e) { return e.error; });
            if (error == events.begin()) {
                event = *error;
                events.erase(error);
            } else if (error == events.end()) {
                barriers.swap(events);
            } else {
                barriers.assign(std::make_move_iterator(events.begin()), std::make_move_iterator(error));
                events.erase(events.begin(), error);
            }
        } else if (cancelled || state != State::Open) {
            return StopDelivering();
        }
    }
    if (event.error) {
        CallHandler(handler, event.error);
        if (event.error == XPC_ERROR_CONNECTION_INVALID) handler = nullptr;  // nothing follows: let go what it holds
        return true;
    }
    if (!barriers.empty()) {
        for (const Event& barrier : barriers) {
            ExitGatePassage passage;  // each its own: none may start once the gate is closed
            barrier.block();
        }
        return true;
    }
    switch (DeliverFrame()) {
    case Cut::Delivered:
        return true;
    case Cut::GivenUp:
        return false;
    case Cut::Broken:
        EndOfSocket();
        return true;
    case Cut::Incomplete:
        break;
    }
    {
        LMutexLock guard(lock);
        if (!readable) return StopDelivering();
    }
    if (!Receive()) EndOfSocket();
    return true;
}

XPCConnection::Cut XPCConnection::DeliverFrame() {
    const size_t available = inEnd - inBegin;
    if (available < kFrameHeader) return HasSurplusDescriptors(nullptr) ? Cut::Broken : Cut::Incomplete;
    const auto header = wire::ReadHeader(in.get() + inBegin);
    if (!header) return Cut::Broken;
    if (available - kFrameHeader < header->payloadLength)
        return HasSurplusDescriptors(&*header) ? Cut::Broken : Cut::Incomplete;
    if (!(header->flags & wire::kFlagReply) && MainQueue::IsServedByThisThread()) {
        LMutexLock guard(lock);
        HandOver();
        return Cut::GivenUp;
    }
    return DeliverMessage(*header, {in.get() + inBegin + kFrameHeader, header->payloadLength});
}

// Descriptors travel with the first byte of their frame: none may be waiting beyond what the next frame announces.
bool XPCConnection::HasSurplusDescriptors(const wire::FrameHeader* next) const {
    if (inDescriptors.empty()) return false;
    if (next) return inDescriptors.size() > next->descriptors;
    return inBegin == inEnd || inDescriptors.size() > wire::kMaxDescriptors;
}

XPCConnection::Cut XPCConnection::DeliverMessage(const wire::FrameHeader& header, std::string_view bytes) {
    auto items = wire::ReadItems(bytes, header.items, header.descriptors);
    if (!items || inDescriptors.size() < header.descriptors) return Cut::Broken;
    const auto ownEnd = inDescriptors.begin() + header.descriptors;
    std::vector<Descriptor> descriptors(std::make_move_iterator(inDescriptors.begin()),
                                        std::make_move_iterator(ownEnd));
    inDescriptors.erase(inDescriptors.begin(), ownEnd);
    auto message = XPCRef<XPCDictionary>::Adopt(new XPCDictionary(
        header, std::string(bytes), std::move(*items), std::move(descriptors), XPCRef<XPCConnection>::Retain(this)));
    inBegin += kFrameHeader + header.payloadLength;
    if (header.flags & wire::kFlagReply) return DeliverReply(*message, header.number);
    CallHandler(handler, message.get());
    return Cut::Delivered;
}

// A reply that the main thread read is handled at once, unless earlier ones wait in the main queue or something waits
// behind it. The right to deliver is given up first: the handler is the main queue's, and may itself serve that queue
// until this connection has another reply or event.
XPCConnection::Cut XPCConnection::DeliverReply(XPCDictionary& reply, uint64_t number) {
    xpc_handler_t replyHandler;
    bool atOnce = false;
    {
        LMutexLock guard(lock);
        const auto found = replies.find(number);
        if (found == replies.end()) return Cut::Delivered;
        replyHandler = std::move(found->second);
        replies.erase(found);
        atOnce = MainQueue::IsServedByThisThread() && MainQueue::Shared().IsEmpty() && events.empty() && !readable &&
                 inBegin == inEnd;
        if (atOnce) StopDelivering();
    }
    if (atOnce) {
        CallHandler(replyHandler, &reply);
        return Cut::GivenUp;
    }
    AnswerOnMain(std::move(replyHandler), &reply);
    return Cut::Delivered;
}

void XPCConnection::AnswerOnMain(xpc_handler_t replyHandler, xpc_object_t answer) {
    auto object = answer->type == XPC_TYPE_ERROR ? XPCRef<xpc_object_s>() : XPCRef<xpc_object_s>::Retain(answer);
    MainQueue::Shared().Async([self = XPCRef<XPCConnection>::Retain(this), replyHandler = std::move(replyHandler),
                               object, answer] { self->CallHandler(replyHandler, answer); });
}

void XPCConnection::CallHandler(const xpc_handler_t& toCall, xpc_object_t event) {
    ExitGatePassage passage;
    XPCConnection* const outer = std::exchange(current, this);
    if (toCall) toCall(event);
    current = outer;
}

void XPCConnection::MakeRoom() {
    const size_t pending = inEnd - inBegin;
    size_t wanted = inCapacity ? inCapacity : kFirstRead;
    if (inEnd == inCapacity && inCapacity) wanted = std::max(kBulkRead, inCapacity);
    if (pending >= kFrameHeader) {
        wire::FrameHeader header;
        std::memcpy(&header, in.get() + inBegin, sizeof header);
        wanted = std::max(wanted, kFrameHeader + header.payloadLength);
    }
    if (wanted > inCapacity) {
        std::unique_ptr<char[]> bigger(new char[wanted]);
        std::copy_n(in.get() + inBegin, pending, bigger.get());
        in = std::move(bigger);
        inCapacity = wanted;
    } else {
        std::memmove(in.get(), in.get() + inBegin, pending);
    }
    inBegin = 0;
    inEnd = pending;
}

// Reads what the socket has room for; false at the end of the stream. A short read means that the socket is drained (if
// it isn't, arming it again says so).
bool XPCConnection::Receive() {
    MakeRoom();
    int fd;
    {
        LMutexLock guard(lock);
        fd = socket.Get();  // only the deliverer closes it
    }
    iovec part{in.get() + inEnd, inCapacity - inEnd};
    ControlBuffer control;
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.bytes;
    message.msg_controllen = sizeof control.bytes;
    const ssize_t got = recvmsg(fd, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (got < 0 && errno == EINTR) return true;
    if (got < 0 && errno != EAGAIN && errno != EWOULDBLOCK) return false;
    if (got == 0) return false;
    if (got > 0) {
        inEnd += static_cast<size_t>(got);
        if (!TakeDescriptors(message, inDescriptors)) return false;
        if (static_cast<size_t>(got) == part.iov_len) return true;
    }
    LMutexLock guard(lock);
    readable = false;
    return true;
}

// The peer is gone, or sent what is no frame.
void XPCConnection::EndOfSocket() {
    inBegin = inEnd = 0;
    inDescriptors.clear();
    LMutexLock guard(lock);
    readable = false;
    EndSending();
    if (isClient && !cancelled) {
        state = State::Interrupted;
        FailReplies(XPC_ERROR_CONNECTION_INTERRUPTED);
        events.push_back({nullptr, XPC_ERROR_CONNECTION_INTERRUPTED});
        if (!writeArmed) CloseSocket();
        return;
    }
    Finish();
}

bool XPCConnection::StopDelivering() {
    if (inBegin == inEnd) {
        in.reset();
        inCapacity = inBegin = inEnd = 0;
    }
    delivering = false;  // first: what follows may queue an event, and somebody has to deliver it
    if (cancelled || state != State::Open)
        LeaveSocket();
    else if (suspendCount == 0)
        ArmRead();
    return false;
}

void XPCConnection::StartDelivering() {
    if (delivering) return;
    delivering = true;
    HandOver();
}

void XPCConnection::HandOver() {
    EventPool::Shared().Submit([self = XPCRef<XPCConnection>::Retain(this)] { self->Deliver(); });
}

void XPCConnection::ArmRead() {
    if (readArmed || !socket) return;
    armedOnMain = isClient && MainQueue::Shared().IsServed();
    EventSet& set = armedOnMain ? MainQueue::Shared().Events() : EventPool::Shared().Events();
    bool& known = armedOnMain ? inMainSet : inPoolSet;
    xpc_retain(this);
    readArmed = true;
    constexpr uint32_t kInterest = EPOLLIN | EPOLLRDHUP;
    if (known ? set.Arm(socket.Get(), kInterest, readWatcher) : set.Add(socket.Get(), kInterest, readWatcher)) {
        known = true;
        return;
    }
    // No room in the kernel: the connection is lost rather than silently deaf.
    std::perror("epoll_ctl");
    references.fetch_sub(1, std::memory_order_relaxed);  // the caller holds another
    readArmed = false;
    Finish();
}

// On the main thread, which therefore doesn't wait on its set: no event of it is on its way.
void XPCConnection::MoveToPool() {
    LMutexLock guard(lock);
    if (!readArmed || !armedOnMain) return;
    MainQueue::Shared().Events().Remove(socket.Get());
    inMainSet = false;
    readArmed = false;
    ArmRead();
    references.fetch_sub(1, std::memory_order_relaxed);  // of the old registration; the caller holds another
}

void XPCConnection::CloseSocket() {
    if (!socket) return;
    if (inPoolSet) EventPool::Shared().Events().Remove(socket.Get());
    if (inMainSet) MainQueue::Shared().Events().Remove(socket.Get());
    if (inWriteSet) EventPool::Shared().WriteEvents().Remove(socket.Get());
    inPoolSet = inMainSet = inWriteSet = false;
    socket.Reset();
}

// Done with a socket: closes it once neither a registration nor a deliverer may use it. What an interrupted client was
// given to send meanwhile goes to the server's successor.
void XPCConnection::LeaveSocket() {
    if (delivering || readArmed || writeArmed) return;
    CloseSocket();
    if (state == State::Interrupted && !cancelled && !outgoing.empty() && Reconnect()) Flush();
}

void XPCConnection::Finish() {
    state = State::Finished;
    DropOutgoing();
    FailReplies(XPC_ERROR_CONNECTION_INVALID);
    QueueInvalid();
}

void XPCConnection::QueueInvalid() {
    if (invalidGiven) return;
    invalidGiven = true;
    events.push_back({nullptr, XPC_ERROR_CONNECTION_INVALID});
    StartDelivering();
}

void XPCConnection::FailReplies(xpc_object_t error) {
    auto failed = std::move(replies);
    replies.clear();
    for (auto& [number, replyHandler] : failed) AnswerOnMain(std::move(replyHandler), error);
}

// --- sending ---------------------------------------------------------------------------------------------------------

void XPCConnection::Send(const XPCDictionary& message) {
    LMutexLock guard(lock);
    SendFrame(message, message.ReplyTo(), message.ReplyTo() ? wire::kFlagReply : 0);
}

void XPCConnection::SendWithReply(const XPCDictionary& message, xpc_handler_t replyHandler) {
    LMutexLock guard(lock);
    const uint64_t number = ++lastNumber;
    replies.emplace(number, std::move(replyHandler));
    if (SendFrame(message, number, 0)) return;
    const auto unsent = replies.find(number);
    if (unsent == replies.end()) return;
    AnswerOnMain(std::move(unsent->second), XPC_ERROR_CONNECTION_INVALID);
    replies.erase(unsent);
}

void XPCConnection::SendBarrier(dispatch_block_t block) {
    LMutexLock guard(lock);
    if (!outgoing.empty()) {
        outgoing.push_back({{}, 0, {}, std::move(block)});
        return;
    }
    events.push_back({std::move(block), nullptr});
    StartDelivering();
}

// False when the message can't be sent at all: it passes the bounds, or the connection is finished.
bool XPCConnection::SendFrame(const XPCDictionary& message, uint64_t number, uint16_t flags) {
    if (!message.IsSendable()) {
        std::fprintf(stderr, "xpc: a message of %zu bytes and %u items is too large to send\n",
                     message.Payload().size(), static_cast<unsigned>(message.ItemCount()));
        return false;
    }
    if (cancelled || state == State::Finished) return false;
    if (state == State::Interrupted && !socket && !Reconnect()) return false;

    wire::FrameHeader header;
    header.flags = flags;
    header.number = number;
    header.payloadLength = static_cast<uint32_t>(message.Payload().size());
    header.items = message.ItemCount();
    header.descriptors = static_cast<uint16_t>(message.Descriptors().size());
    const size_t total = kFrameHeader + message.Payload().size();

    size_t sent = 0;
    if (outgoing.empty() && state == State::Open) {
        iovec parts[] = {{&header, kFrameHeader},
                         {const_cast<char*>(message.Payload().data()), message.Payload().size()}};
        const ssize_t result = SendNow(socket.Get(), parts, 2, message.Descriptors());
        if (result < 0) {
            EndSending();
            return true;
        }
        sent = static_cast<size_t>(result);
        if (sent == total) return true;
    }
    Outgoing rest;
    if (sent == 0 && !Duplicate(message.Descriptors(), rest.descriptors)) {
        std::perror("xpc: a message's descriptors can't be queued");
        return false;
    }
    rest.bytes.reserve(total);
    rest.bytes.append(reinterpret_cast<const char*>(&header), kFrameHeader);
    rest.bytes.append(message.Payload());
    rest.sent = sent;
    Enqueue(std::move(rest));
    return true;
}

void XPCConnection::Enqueue(Outgoing out) {
    outgoingBytes += out.bytes.size() + kQueuedOverhead;
    if (outgoingBytes > (isClient ? kMaxClientQueue : kMaxPeerQueue)) {
        EndSending();
        return;
    }
    outgoing.push_back(std::move(out));
    if (state == State::Open) ArmWrite();
}

// The server went away earlier; whoever sends now wants to reach its successor.
bool XPCConnection::Reconnect() {
    pid_t serverPid = 0;
    Descriptor fresh = ConnectToService(service, serverPid);
    if (!fresh) {
        Finish();
        return false;
    }
    socket = std::move(fresh);
    state = State::Open;
    if (!delivering && suspendCount == 0) ArmRead();
    return true;
}

void XPCConnection::Flush() {
    while (!outgoing.empty()) {
        Outgoing& out = outgoing.front();
        if (out.barrier) {
            events.push_back({std::move(out.barrier), nullptr});
            outgoing.pop_front();
            StartDelivering();
            continue;
        }
        iovec part{out.bytes.data() + out.sent, out.bytes.size() - out.sent};
        const ssize_t sent = SendNow(socket.Get(), &part, 1, out.descriptors);
        if (sent < 0) return EndSending();
        if (sent > 0) out.descriptors.clear();
        out.sent += static_cast<size_t>(sent);
        if (out.sent < out.bytes.size()) return ArmWrite();
        outgoingBytes -= out.bytes.size() + kQueuedOverhead;
        outgoing.pop_front();
    }
}

// The socket takes no more, whatever the reason: a frame that is lost, or cut in the middle, must end the stream. The
// reading side finds the end and tells the owner.
void XPCConnection::EndSending() {
    DropOutgoing();
    if (socket) shutdown(socket.Get(), SHUT_RDWR);
}

// What can't be sent any more is dropped; barriers still tell that it is over.
void XPCConnection::DropOutgoing() {
    for (Outgoing& out : outgoing)
        if (out.barrier) events.push_back({std::move(out.barrier), nullptr});
    outgoing.clear();
    outgoingBytes = 0;
    if (!events.empty()) StartDelivering();
}

void XPCConnection::ArmWrite() {
    if (writeArmed || cancelled) return;
    const EventSet& set = EventPool::Shared().WriteEvents();
    xpc_retain(this);
    writeArmed = true;
    if (inWriteSet ? set.Arm(socket.Get(), EPOLLOUT, writeWatcher) : set.Add(socket.Get(), EPOLLOUT, writeWatcher)) {
        inWriteSet = true;
        return;
    }
    std::perror("epoll_ctl");
    references.fetch_sub(1, std::memory_order_relaxed);  // the caller holds another
    writeArmed = false;
    EndSending();
}

void XPCConnection::OnWritable() {
    auto registration = XPCRef<XPCConnection>::Adopt(this);
    LMutexLock guard(lock);
    writeArmed = false;
    if (state == State::Open && !cancelled) return Flush();
    LeaveSocket();
}

}  // namespace platform
