#include "XPCConnection.h"

#include "EventPool.h"
#include "ExitGate.h"
#include "MainQueue.h"
#include "ServiceFolder.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <new>
#include <sched.h>
#include <sys/socket.h>
#include <unordered_set>

namespace platform {
namespace {

// A peer that doesn't read may hold this much of a server's memory. A client's own messages may pile up higher while a
// server is busy: they are the person's schedules.
constexpr size_t kMaxPeerQueue = 4 << 20;
constexpr size_t kMaxClientQueue = 64 << 20;

constexpr size_t kUsualBarriers = 64;  // room for more is given back

constexpr uint32_t kReading = EPOLLIN | EPOLLRDHUP;
constexpr uint32_t kEnd = EPOLLRDHUP | EPOLLHUP | EPOLLERR;

thread_local XPCConnection* current = nullptr;

std::atomic<pid_t> reportedPid{-1};

EventSet& PoolEvents() {
    return EventPool::Shared().Events();
}

bool Duplicate(const std::vector<Descriptor>& descriptors, std::vector<Descriptor>& copies) {
    for (const Descriptor& descriptor : descriptors)
        if (!copies.emplace_back(fcntl(descriptor.Get(), F_DUPFD_CLOEXEC, 0))) return false;
    return true;
}

}  // namespace

XPCConnection* CurrentConnection() {
    return current;
}

void SetReportedPeerPid(pid_t pid) {
    reportedPid = pid;
}

// --- all connections -------------------------------------------------------------------------------------------------

class XPCConnection::Hints final : public NumberedWatcher {
public:
    static void Install() {
        [[maybe_unused]] static const bool isInstalled = (EventSet::SetNumberedWatcher(*new Hints), true);
    }

    void OnReady(uintptr_t number, uint32_t ready) override {
        xpc_object_t object = xpc_handle_retain(static_cast<long>(number), XPC_TYPE_CONNECTION);
        if (!object) return;
        const auto connection = XPCRef<XPCConnection>::Adopt(static_cast<XPCConnection*>(object));
        try {
            connection->OnReady(ready);
        } catch (const std::bad_alloc&) {
            connection->LoseOutgoing();
        }
    }
};

// The clients, of which those on the main thread's set move to the pool when it stops looking at it.
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
        MainQueue::Shared().SetEvictionHook([this] { MoveAllToPool(); });
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
    : xpc_object_s(XPC_TYPE_CONNECTION), isClient(client), service(std::move(serviceName)), pid(peerPid),
      socket(std::move(connected)) {
    Hints::Install();
    BecomeKnown();
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
    Scope guard(*this);
    if (suspendCount == 0 || --suspendCount > 0) return;
    isHalted = false;
    if (delivering) return;
    if (isWanted || readable || hasMore || !inbox.IsEmpty() || nextDue < due.size()) return StartDelivering();
    isQuiet = false;
    Register();
}

void XPCConnection::Suspend() {
    Scope guard(*this);
    suspendCount++;
    isHalted = IsHalted();
}

// The socket of a running delivery is shut down only: the deliverer may be about to read from it.
void XPCConnection::Cancel() {
    Scope guard(*this);
    if (cancelled) return;
    cancelled = true;
    isHalted = false;
    if (state == State::Open && !outbox.IsEmpty()) Flush();
    if (delivering && socket)
        shutdown(socket.Get(), SHUT_RDWR);
    else
        CloseSocket();
    Finish();
}

// --- delivering ------------------------------------------------------------------------------------------------------

void XPCConnection::OnReady(uint32_t ready) {
    {
        Scope guard(*this);
        if (set == Set::None) return;  // about an earlier one at this address; must not register what nobody resumed
        if ((ready & EPOLLOUT) && !outbox.IsEmpty()) Flush();
        if (!(ready & ~EPOLLOUT)) return;
        if (ready & kEnd) isHungUp = true;
        readable = true;
        if (delivering || IsHalted()) {
            isQuiet = true;
            return Register();
        }
        delivering = true;
        FollowHint();
    }
    Deliver();
}

// A hint is taken before reading: one that comes meanwhile is another one.
void XPCConnection::FollowHint() {
    readable = false;
    hasMore = true;
    isAtEnd = isHungUp;
    readFrom = socket.Get();
}

void XPCConnection::Deliver() {
    if (MainQueue::IsServedByThisThread()) return DeliverTurn();
    EventPool& pool = EventPool::Shared();
    if (!pool.TakePlace()) {
        xpc_retain(this);
        return pool.Postpone(delivery);
    }
    DeliverTurn();
    pool.GivePlace();
}

void XPCConnection::DeliverTurn() {
    Turn turn;
    for (bool goesOn = true; goesOn;) {
        try {
            goesOn = turn.IsOver() ? PassOn() : DeliverNext(turn);
        } catch (const std::bad_alloc&) {
            RunOutOfMemory();
        }
    }
    if (turn.replyHandler) CallHandler(turn.replyHandler, turn.reply.get());
}

// One event: barriers that are due, then errors, then frames.
bool XPCConnection::DeliverNext(Turn& turn) {
    turn.events--;
    if (isHalted) {
        Scope guard(*this);
        if (IsHalted()) return StopDelivering();
    }
    if (nextDue < due.size()) return RunBarrier();
    xpc_object_t error = nullptr;
    if (isWanted && !TakeEvents(error)) return false;
    if (error) return DeliverError(error);
    if (nextDue < due.size()) return RunBarrier();
    XPCInbox::Frame frame;
    switch (inbox.Next(frame)) {
    case XPCInbox::Cut::Whole:
        return DeliverFrame(frame, turn);
    case XPCInbox::Cut::Broken:
        EndOfSocket();
        return true;
    case XPCInbox::Cut::Incomplete:
        break;
    }
    return Read();
}

// What isWanted stands for. Both the main thread's passing on and the end of a delivery leave it set.
bool XPCConnection::TakeEvents(xpc_object_t& error) {
    Scope guard(*this);
    if (!barriers.empty() || interruptedDue || invalidDue) {
        if (MainQueue::IsServedByThisThread()) {
            HandOver();
            return false;
        }
        if (!barriers.empty()) {
            due.clear();
            nextDue = 0;
            due.swap(barriers);
        } else if (interruptedDue) {
            interruptedDue = false;
            error = XPC_ERROR_CONNECTION_INTERRUPTED;
        } else {
            invalidDue = false;
            error = XPC_ERROR_CONNECTION_INVALID;
        }
        isWanted = interruptedDue || invalidDue || state != State::Open;
        return true;
    }
    if (state != State::Open) return StopDelivering();
    isWanted = false;
    return true;
}

// A client that sent one message often sends the next: given the processor first, it finds this delivery under way and
// wakes nobody, and the barriers of many messages run in one.
bool XPCConnection::RunBarrier() {
    if (MainQueue::IsServedByThisThread()) return PassOn();
    const dispatch_block_t block = std::move(due[nextDue++]);
    {
        ExitGatePassage passage;
        block();
    }
    if (isClient && nextDue == due.size()) sched_yield();
    return true;
}

bool XPCConnection::DeliverError(xpc_object_t error) {
    CallHandler(handler, error);
    if (error == XPC_ERROR_CONNECTION_INVALID) handler = nullptr;  // nothing follows: let go what it holds
    return true;
}

bool XPCConnection::DeliverFrame(const XPCInbox::Frame& frame, Turn& turn) {
    const bool isReply = frame.header.flags & wire::kFlagReply;
    if (!isReply && MainQueue::IsServedByThisThread()) return PassOn();
    std::vector<Descriptor> descriptors;
    XPCRef<XPCDictionary> message;
    if (inbox.TakeDescriptors(frame.header.descriptors, descriptors))
        message = XPCDictionary::Received(frame.header, frame.payload, std::move(descriptors),
                                          XPCRef<XPCConnection>::Retain(this));
    if (!message) {
        EndOfSocket();
        return true;
    }
    inbox.Skip(frame);
    turn.bytes -= static_cast<ptrdiff_t>(frame.payload.size());
    if (isReply) return DeliverReply(std::move(message), frame.header.number, turn);
    CallHandler(handler, message.get());
    return true;
}

// A reply that the main thread read is handled at once, unless earlier ones wait in the main queue or something waits
// behind it. The right to deliver is given up first: the handler is the main queue's, and may itself serve that queue
// until this connection has another reply or event.
bool XPCConnection::DeliverReply(XPCRef<XPCDictionary> reply, uint64_t number, Turn& turn) {
    xpc_handler_t replyHandler;
    {
        Scope guard(*this);
        const auto found = replies.find(number);
        if (found == replies.end()) return true;
        replyHandler = std::move(found->second);
        replies.erase(found);
        if (MainQueue::IsServedByThisThread() && MainQueue::Shared().IsEmpty() && !isWanted && !readable && !hasMore &&
            inbox.IsEmpty()) {
            turn.replyHandler = std::move(replyHandler);
            turn.reply = std::move(reply);
            return StopDelivering();
        }
    }
    AnswerOnMain(std::move(replyHandler), reply.get());
    return true;
}

void XPCConnection::AnswerOnMain(xpc_handler_t replyHandler, xpc_object_t answer) {
    auto object = answer->type == XPC_TYPE_ERROR ? XPCRef<xpc_object_s>() : XPCRef<xpc_object_s>::Retain(answer);
    MainQueue::Shared().Async([self = XPCRef<XPCConnection>::Retain(this), replyHandler = std::move(replyHandler),
                               object, answer] { self->CallHandler(replyHandler, answer); });
}

void XPCConnection::CallHandler(const xpc_handler_t& toCall, xpc_object_t event) {
    struct Restore {
        XPCConnection* const outer;
        ~Restore() { current = outer; }
    };
    ExitGatePassage passage;
    const Restore restore{std::exchange(current, this)};
    if (toCall) toCall(event);
}

bool XPCConnection::Read() {
    if (!hasMore) {
        Scope guard(*this);
        if (isWanted) return true;
        if (!readable) return StopDelivering();
        FollowHint();
    }
    const XPCInbox::Read read = inbox.Receive(readFrom);
    if (read == XPCInbox::Read::Drained) hasMore = isAtEnd;
    if (read == XPCInbox::Read::Empty) hasMore = false;  // what told of an end told of an earlier socket's
    if (read == XPCInbox::Read::Ended) EndOfSocket();
    return true;
}

// The peer is gone, or sent what is no frame.
void XPCConnection::EndOfSocket() {
    inbox.Clear();
    hasMore = false;
    Scope guard(*this);
    CloseSocket();
    if (!isClient || state != State::Open) return Finish();
    state = State::Interrupted;
    DropOutgoing();
    FailReplies(XPC_ERROR_CONNECTION_INTERRUPTED);
    interruptedDue = true;
    Note();
}

void XPCConnection::RunOutOfMemory() {
    std::fputs("xpc: out of memory; a connection is dropped\n", stderr);
    std::map<uint64_t, xpc_handler_t> lostReplies;  // destroyed without the lock
    XPCOutbox lostOutbox;
    inbox.Clear();
    hasMore = false;
    Scope guard(*this);
    CloseSocket();
    lostReplies.swap(replies);
    std::swap(lostOutbox, outbox);
    state = State::Finished;
    if (!invalidGiven) invalidGiven = invalidDue = true;
    isWanted = true;
}

// Only where nothing is due, or where Resume looks again.
bool XPCConnection::StopDelivering() {
    delivering = false;
    if (state != State::Open) {
        CloseSocket();
        inbox.Clear();
        hasMore = false;
    } else {
        inbox.Rest();
        if (nextDue == due.size() && due.capacity() > kUsualBarriers)
            std::vector<dispatch_block_t>().swap(due), nextDue = 0;
        if (!isHalted) isQuiet = false;
        Register();
    }
    return false;
}

// Gives the delivery to the pool, where it waits behind what is ready already.
bool XPCConnection::PassOn() {
    Scope guard(*this);
    HandOver();
    return false;
}

void XPCConnection::StartDelivering() {
    if (delivering) return;
    delivering = true;
    HandOver();
}

void XPCConnection::HandOver() {
    xpc_retain(this);
    isDeliveryDue = true;
}

// Barriers or errors are due, or the state has changed.
void XPCConnection::Note() {
    isWanted = true;
    StartDelivering();
}

void XPCConnection::Finish() {
    state = State::Finished;
    DropOutgoing();
    FailReplies(XPC_ERROR_CONNECTION_INVALID);
    if (!invalidGiven) invalidGiven = invalidDue = true;
    Note();
}

void XPCConnection::FailReplies(xpc_object_t error) {
    auto failed = std::move(replies);
    replies.clear();
    for (auto& [number, replyHandler] : failed) AnswerOnMain(std::move(replyHandler), error);
}

// --- the socket and its registration ---------------------------------------------------------------------------------

// Makes the registration what the state wants; no system call when it is so already.
void XPCConnection::Register() {
    if (!socket || cancelled) return;
    const uint32_t interest = (isQuiet ? 0 : kReading) | (outbox.IsEmpty() ? 0 : uint32_t{EPOLLOUT});
    const Set wanted = isClient && outbox.IsEmpty() && MainQueue::Shared().IsResponsive() ? Set::Main : Set::Pool;
    if (wanted == set && interest == registered) return;
    if (RegisterOn(wanted, interest)) return;
    // No room in the kernel: the connection is lost rather than silently deaf.
    std::perror("epoll_ctl");
    Finish();
}

bool XPCConnection::RegisterOn(Set wanted, uint32_t interest) {
    const EventSet& events = wanted == Set::Main ? MainQueue::Shared().Events() : PoolEvents();
    const auto number = reinterpret_cast<uintptr_t>(this);
    const Set old = std::exchange(set, wanted);
    registered = interest;
    if (old == Set::None) xpc_retain(this);
    if (wanted == old) return events.ChangeNumbered(socket.Get(), interest, number);
    if (wanted == Set::Main) MainQueue::Shared().AddGuest();
    Leave(old);
    return events.AddNumbered(socket.Get(), interest, number);
}

void XPCConnection::Leave(Set old) {
    if (old == Set::Pool) PoolEvents().Remove(socket.Get());
    if (old != Set::Main) return;
    MainQueue::Shared().Events().Remove(socket.Get());
    MainQueue::Shared().RemoveGuest();
}

void XPCConnection::MoveToPool() {
    Scope guard(*this);
    if (set == Set::Main) Register();
}

// The caller holds another reference than the registration's.
void XPCConnection::CloseSocket() {
    const Set old = std::exchange(set, Set::None);
    if (old != Set::None) references.fetch_sub(1, std::memory_order_relaxed);
    if (old == Set::Main) MainQueue::Shared().RemoveGuest();
    registered = 0;
    readable = isHungUp = isQuiet = false;
    socket.Reset();
}

// --- sending ---------------------------------------------------------------------------------------------------------

void XPCConnection::Send(const XPCDictionary& message) {
    Scope guard(*this);
    SendFrame(message, message.ReplyTo(), message.ReplyTo() ? wire::kFlagReply : 0);
}

void XPCConnection::SendWithReply(const XPCDictionary& message, xpc_handler_t replyHandler) {
    Scope guard(*this);
    const uint64_t number = ++lastNumber;
    replies.emplace_hint(replies.end(), number, std::move(replyHandler));
    if (SendFrame(message, number, 0)) return;
    const auto unsent = replies.find(number);
    if (unsent == replies.end()) return;
    AnswerOnMain(std::move(unsent->second), XPC_ERROR_CONNECTION_INVALID);
    replies.erase(unsent);
}

void XPCConnection::SendBarrier(dispatch_block_t block) {
    Scope guard(*this);
    if (!outbox.IsEmpty()) return outbox.AddBarrier(std::move(block));
    barriers.push_back(std::move(block));
    Note();
}

// False when the message can't be sent at all: it passes the bounds, or the connection is finished.
bool XPCConnection::SendFrame(const XPCDictionary& message, uint64_t number, uint16_t flags) {
    if (!message.IsSendable()) {
        std::fprintf(stderr, "xpc: a message of %zu bytes and %u items is too large to send\n",
                     message.Payload().size(), static_cast<unsigned>(message.ItemCount()));
        return false;
    }
    if (state == State::Finished) return false;
    const std::string_view payload = message.Payload();
    wire::FrameHeader header;
    header.flags = flags;
    header.number = number;
    header.payloadLength = static_cast<uint32_t>(payload.size());
    header.items = message.ItemCount();
    header.descriptors = static_cast<uint16_t>(message.Descriptors().size());

    size_t sent = 0;
    if (outbox.IsEmpty() && state == State::Open) {
        iovec parts[] = {{&header, sizeof header}, {const_cast<char*>(payload.data()), payload.size()}};
        const ssize_t result = SendNow(socket.Get(), parts, 2, message.Descriptors());
        if (result < 0) {
            EndSending();
            return true;
        }
        sent = static_cast<size_t>(result);
        if (sent == sizeof header + payload.size()) return true;
    }
    return Enqueue(header, message, sent);
}

// What the socket doesn't take, or what waits for a server.
bool XPCConnection::Enqueue(const wire::FrameHeader& header, const XPCDictionary& message, size_t sent) {
    std::vector<Descriptor> descriptors;
    if (sent == 0 && !Duplicate(message.Descriptors(), descriptors)) {
        std::perror("xpc: a message's descriptors can't be queued");
        return false;
    }
    try {
        outbox.Add(header, message.Payload(), sent, std::move(descriptors));
    } catch (const std::bad_alloc&) {
        if (sent > 0) shutdown(socket.Get(), SHUT_RDWR);  // what went next would be taken for the rest of the frame
        throw;
    }
    if (outbox.Held() > (isClient ? kMaxClientQueue : kMaxPeerQueue)) {
        EndSending();
    } else if (state == State::Open) {
        Register();
    } else if (state == State::Interrupted) {
        EventPool::Shared().Submit([self = XPCRef<XPCConnection>::Retain(this)] { self->Reconnect(); });
        state = State::Connecting;
    }
    return true;
}

void XPCConnection::Flush() {
    const bool isAlive = outbox.Flush(socket.Get(), barriers);
    if (!barriers.empty()) Note();
    if (!isAlive) EndSending();
    Register();  // a dead socket, too: one that has just connected isn't registered yet, and its end must be heard of
}

// The socket takes no more, whatever the reason: a frame that is lost, or cut in the middle, must end the stream. The
// reading side finds the end and tells the owner.
void XPCConnection::EndSending() {
    DropOutgoing();
    if (socket)
        shutdown(socket.Get(), SHUT_RDWR);
    else
        FailReplies(XPC_ERROR_CONNECTION_INTERRUPTED);
}

void XPCConnection::LoseOutgoing() {
    XPCOutbox lost;  // destroyed without the lock
    Scope guard(*this);
    std::swap(lost, outbox);
    if (socket) shutdown(socket.Get(), SHUT_RDWR);
}

// What can't be sent any more is dropped; barriers still tell that it is over.
void XPCConnection::DropOutgoing() {
    outbox.Drop(barriers);
    if (!barriers.empty()) Note();
}

// The server went away earlier; what was sent since is for its successor.
void XPCConnection::Reconnect() {
    pid_t serverPid = 0;
    Descriptor fresh = ConnectToService(service, serverPid);
    Scope guard(*this);
    if (state != State::Connecting) return;
    if (!fresh) return Finish();
    socket = std::move(fresh);
    state = State::Open;
    Flush();
}

}  // namespace platform
