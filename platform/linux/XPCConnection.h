// XPCConnection: one stream socket with its frames, events and replies; the peer of a listener or a client.
//
// Delivery. Everything that a connection tells its owner (messages, errors, barrier blocks) is an event, and one thread
// at a time delivers them, in order: the one that holds `delivering`. It reads, cuts frames (XPCInbox) and calls the
// handler itself; what it uses beside the lock is its own. Who queues an event while nobody delivers hands the delivery
// to the pool. A delivery ends after a turn of bounded length and queues for another one behind whatever else is ready,
// so that no peer keeps a thread; and each takes one of the pool's places, so that no number of them keeps all.
//
// Registration. The socket is registered once, edge-triggered, by number: the connection's address, which the registry
// of live objects tells from a stale one. An event is only a hint ("look whether there is something to read"), so it
// may come late, twice, from any set and to any thread, and a request costs no system call but the reading and the
// sending. Who gets a hint and finds the right to deliver free takes it. Else it is noted for the deliverer, and the
// interest in further hints is dropped until the delivery ends, since one that is noted is enough. Two things change a
// registration besides: while the socket refuses what is to be sent, "writable" is of interest too; and a client's is
// on the main thread's set while that is responsive, so that the main thread reads a reply and runs its handler with no
// hand-off (but without the right to deliver: that is the connection's, the handler is the main queue's). What belongs
// to the pool (messages from the peer, errors) it hands over, together with the right. Moving to another set loses
// nothing: what is ready then counts as a new edge there.
//
// Sending writes to the socket at once and queues only what the socket refuses, bounded (XPCOutbox).
//
// References. A registered socket, a delivery handed to the pool, and each message hold one. The socket is closed under
// the lock, by whoever has the right to deliver or finds it free; its registration ends with it. No lock is held while
// a handler runs, and no send calls one.
//
// States: a peer is Open until its socket ends or it is cancelled, then Finished. A client whose server goes away is
// Interrupted; what it is given to send then is queued, and a thread of the pool connects again without any lock
// (Connecting), which may take seconds, and makes it Open or Finished. Finished for good means one INVALID event, once.
//
// Out of memory while delivering: the connection is finished, and what it still owed (replies, barriers) is dropped;
// the way there allocates nothing. Everybody else goes on. Out of memory while sending: the sender's exception; a
// message is kept for later as a whole or not at all, and one that had gone in part ends the stream.
#pragma once

#include "Descriptor.h"
#include "EventPool.h"
#include "XPCDictionary.h"
#include "XPCInbox.h"
#include "XPCObject.h"
#include "XPCOutbox.h"

#include <bsd/LMutex.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace platform {

// The connection whose handler the calling thread is running; null outside. This is how an error event, which is the
// same object for everybody, still tells where it came from.
XPCConnection* CurrentConnection();

// Test seam: the process number that every connection reports (-1: the real one).
void SetReportedPeerPid(pid_t pid);

class XPCConnection final : public xpc_object_s {
public:
    // The server's end of an accepted socket. `peerPid` as the kernel gives it.
    static XPCRef<XPCConnection> Peer(Descriptor socket, pid_t peerPid);
    // A client of a named service; null when nobody serves it.
    static XPCRef<XPCConnection> Client(const char* serviceName);
    ~XPCConnection() override;

    // Before the first Resume.
    void SetEventHandler(xpc_handler_t eventHandler);
    void Resume();
    void Suspend();
    void Cancel();
    pid_t Pid() const;

    void Send(const XPCDictionary& message);
    // The handler goes to the main queue.
    void SendWithReply(const XPCDictionary& message, xpc_handler_t replyHandler);
    void SendBarrier(dispatch_block_t block);

private:
    enum class State { Open, Interrupted, Connecting, Finished };
    enum class Set { None, Pool, Main };

    // What one delivery may do before others have their turn.
    struct Turn {
        int events = 256;
        ptrdiff_t bytes = ptrdiff_t{256} * 1024;
        // A reply that is to be handled once the right to deliver is given up.
        xpc_handler_t replyHandler;
        XPCRef<XPCDictionary> reply;
        bool IsOver() const { return events <= 0 || bytes <= 0; }
    };

    class Hints;
    class Clients;

    // Holds the lock for a scope. A delivery that has become due goes to the pool after it: who is woken by that must
    // not run into the lock.
    class L_SCOPED_CAPABILITY Scope {
    public:
        explicit Scope(XPCConnection& of) L_ACQUIRE(of.lock) : connection(of) { connection.lock.lock(); }
        ~Scope() L_RELEASE() {
            const bool isDue = std::exchange(connection.isDeliveryDue, false);
            connection.lock.unlock();
            if (isDue) EventPool::Shared().Submit(connection.delivery);
        }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        XPCConnection& connection;
    };

    // A delivery that was handed to the pool, of which there is one at most.
    class Delivery final : public PoolJob {
    public:
        explicit Delivery(XPCConnection& of) : connection(of) {}
        void Run() override { XPCRef<XPCConnection>::Adopt(&connection)->Deliver(); }

    private:
        XPCConnection& connection;
    };

    XPCConnection(bool client, std::string serviceName, Descriptor connected, pid_t peerPid);

    // Delivering: the caller holds `delivering`. Each step gives false when the right was given up or away.
    void OnReady(uint32_t ready);
    void Deliver();
    void DeliverTurn();
    bool DeliverNext(Turn& turn);
    bool TakeEvents(xpc_object_t& error);
    bool RunBarrier();
    bool DeliverError(xpc_object_t error);
    bool DeliverFrame(const XPCInbox::Frame& frame, Turn& turn);
    bool DeliverReply(XPCRef<XPCDictionary> reply, uint64_t number, Turn& turn);
    bool Read();
    void CallHandler(const xpc_handler_t& toCall, xpc_object_t event);
    bool PassOn();
    void EndOfSocket();
    void RunOutOfMemory();
    bool StopDelivering() L_REQUIRES(lock);

    void StartDelivering() L_REQUIRES(lock);
    void HandOver() L_REQUIRES(lock);
    bool IsHalted() const L_REQUIRES(lock) { return suspendCount > 0 && !cancelled; }
    void Note() L_REQUIRES(lock);
    void FollowHint() L_REQUIRES(lock);
    void Finish() L_REQUIRES(lock);
    void FailReplies(xpc_object_t error) L_REQUIRES(lock);
    void AnswerOnMain(xpc_handler_t replyHandler, xpc_object_t answer);

    // The socket and its registration.
    void Register() L_REQUIRES(lock);
    bool RegisterOn(Set wanted, uint32_t interest) L_REQUIRES(lock);
    void Leave(Set old) L_REQUIRES(lock);
    void MoveToPool();
    void CloseSocket() L_REQUIRES(lock);

    // Sending.
    bool SendFrame(const XPCDictionary& message, uint64_t number, uint16_t flags) L_REQUIRES(lock);
    bool Enqueue(const wire::FrameHeader& header, const XPCDictionary& message, size_t sent) L_REQUIRES(lock);
    void Flush() L_REQUIRES(lock);
    void EndSending() L_REQUIRES(lock);
    void LoseOutgoing();
    void DropOutgoing() L_REQUIRES(lock);
    void Reconnect();

    // Constant after construction.
    const bool isClient;
    const std::string service;
    const pid_t pid;
    Delivery delivery{*this};

    // Set before the first Resume, then the deliverer's, which empties it after the INVALID event.
    xpc_handler_t handler;

    // The deliverer's.
    XPCInbox inbox;
    bool hasMore = false;  // the socket may hold something that no hint will tell of
    bool isAtEnd = false;  // all that is left to read is there, and the end
    int readFrom = -1;     // the socket
    std::vector<dispatch_block_t> due;
    size_t nextDue = 0;

    // Looked at by the deliverer between two events, without the lock; written under it.
    std::atomic<bool> isHalted{true};   // IsHalted
    std::atomic<bool> isWanted{false};  // there is more to know than frames: see Note

    LMutex lock;
    Descriptor socket L_GUARDED_BY(lock);
    State state L_GUARDED_BY(lock) = State::Open;
    int suspendCount L_GUARDED_BY(lock) = 1;
    bool cancelled L_GUARDED_BY(lock) = false;
    bool invalidGiven L_GUARDED_BY(lock) = false;
    bool delivering L_GUARDED_BY(lock) = false;
    bool isDeliveryDue L_GUARDED_BY(lock) = false;  // the right to deliver is to go to the pool
    bool readable L_GUARDED_BY(lock) = false;       // a hint came that nobody has followed
    bool isHungUp L_GUARDED_BY(lock) = false;       // the hint said so
    bool isQuiet L_GUARDED_BY(lock) = false;        // no interest in hints of reading
    Set set L_GUARDED_BY(lock) = Set::None;
    uint32_t registered L_GUARDED_BY(lock) = 0;                 // the interest
    std::vector<dispatch_block_t> barriers L_GUARDED_BY(lock);  // due, in order; then come the errors
    bool interruptedDue L_GUARDED_BY(lock) = false;
    bool invalidDue L_GUARDED_BY(lock) = false;
    XPCOutbox outbox L_GUARDED_BY(lock);
    uint64_t lastNumber L_GUARDED_BY(lock) = 0;
    std::map<uint64_t, xpc_handler_t> replies L_GUARDED_BY(lock);
};

}  // namespace platform
