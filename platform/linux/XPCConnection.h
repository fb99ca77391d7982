// XPCConnection: one stream socket with its frames, events and replies; the peer of a listener or a client.
//
// Delivery. Everything that a connection tells its owner (messages, errors, barrier blocks) is an event, and one thread
// at a time delivers them, in order: the one that holds `delivering`. The socket is armed one-shot on an EventSet while
// nobody delivers. The thread that the readable socket wakes takes the right, reads, cuts frames and calls the handler
// itself; when nothing is left it arms the socket again. Whoever queues an event while nobody delivers hands the
// delivery to the pool. A socket that becomes readable during a delivery is only noted: the deliverer goes on with it.
//
// Replies to the main queue. While the main thread serves its queue, client connections are armed on the main thread's
// own set, which reads a reply and runs its handler with no hand-off (but without the right to deliver: that is the
// connection's, the handler is the main queue's). What belongs to the pool (messages from the peer, errors) it hands
// over, together with the right.
//
// Sending writes to the socket at once and queues only what the socket refuses, bounded; the rest goes out when the
// socket is writable, from a second one-shot registration on the pool's write set.
//
// References. An armed registration, a delivery handed to the pool, and each message hold one. The socket is closed by
// whoever finds the connection finished with no registration armed. Cancel shuts the socket down, which makes an armed
// registration fire. No lock is held while a handler runs, and no send calls one.
//
// States: a peer is Open until its socket ends or it is cancelled, then Finished. A client whose server goes away is
// Interrupted: its next send connects again, or finishes it. Finished for good means one INVALID event, once.
#pragma once

#include "Descriptor.h"
#include "EventSet.h"
#include "XPCDictionary.h"
#include "XPCObject.h"
#include "XPCWire.h"

#include <bsd/LMutex.h>

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <sys/types.h>
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
    enum class State { Open, Interrupted, Finished };

    struct Event {
        dispatch_block_t block;        // a barrier's, or
        xpc_object_t error = nullptr;  // an error
    };
    // What the socket refused: bytes from `sent` on, descriptors that travel with the first of them; or a barrier.
    struct Outgoing {
        std::string bytes;
        size_t sent = 0;
        std::vector<Descriptor> descriptors;
        dispatch_block_t barrier;
    };
    enum class Cut { Delivered, Incomplete, GivenUp, Broken };

    class WriteWatcher final : public Watcher {
    public:
        explicit WriteWatcher(XPCConnection& owner) : connection(owner) {}
        void OnReady(uint32_t) override { connection.OnWritable(); }

    private:
        XPCConnection& connection;
    };
    class ReadWatcher final : public Watcher {
    public:
        explicit ReadWatcher(XPCConnection& owner) : connection(owner) {}
        void OnReady(uint32_t) override { connection.OnReadable(); }

    private:
        XPCConnection& connection;
    };

    XPCConnection(bool client, std::string serviceName, Descriptor connected, pid_t peerPid);

    // Delivering: the caller holds `delivering`. Each gives false when it gave the right up or away.
    void OnReadable();
    void Deliver();
    bool DeliverNext();
    Cut DeliverFrame();
    Cut DeliverMessage(const wire::FrameHeader& header, std::string_view bytes);
    Cut DeliverReply(XPCDictionary& reply, uint64_t number);
    void CallHandler(const xpc_handler_t& toCall, xpc_object_t event);
    bool Receive();
    bool HasSurplusDescriptors(const wire::FrameHeader* next) const;
    void MakeRoom();
    void EndOfSocket();
    bool StopDelivering() L_REQUIRES(lock);

    void StartDelivering() L_REQUIRES(lock);
    void HandOver() L_REQUIRES(lock);
    void ArmRead() L_REQUIRES(lock);
    void MoveToPool();
    void CloseSocket() L_REQUIRES(lock);
    void LeaveSocket() L_REQUIRES(lock);
    void Finish() L_REQUIRES(lock);
    void QueueInvalid() L_REQUIRES(lock);
    void FailReplies(xpc_object_t error) L_REQUIRES(lock);
    void AnswerOnMain(xpc_handler_t replyHandler, xpc_object_t answer);

    // Sending.
    bool SendFrame(const XPCDictionary& message, uint64_t number, uint16_t flags) L_REQUIRES(lock);
    bool Reconnect() L_REQUIRES(lock);
    void Enqueue(Outgoing out) L_REQUIRES(lock);
    void Flush() L_REQUIRES(lock);
    void EndSending() L_REQUIRES(lock);
    void DropOutgoing() L_REQUIRES(lock);
    void ArmWrite() L_REQUIRES(lock);
    void OnWritable();

    // All client connections; those armed on the main set move to the pool when the main thread stops serving.
    class Clients;

    // Constant after construction.
    const bool isClient;
    const std::string service;
    const pid_t pid;
    ReadWatcher readWatcher{*this};
    WriteWatcher writeWatcher{*this};

    // Set before the first Resume, then the deliverer's, which empties it after the INVALID event.
    xpc_handler_t handler;

    // The deliverer's: bytes received but not yet cut into frames. Allocated while there are some.
    std::unique_ptr<char[]> in;
    size_t inCapacity = 0, inBegin = 0, inEnd = 0;
    std::vector<Descriptor> inDescriptors;

    LMutex lock;
    Descriptor socket L_GUARDED_BY(lock);
    State state L_GUARDED_BY(lock) = State::Open;
    int suspendCount L_GUARDED_BY(lock) = 1;
    bool cancelled L_GUARDED_BY(lock) = false;
    bool invalidGiven L_GUARDED_BY(lock) = false;
    bool delivering L_GUARDED_BY(lock) = false;
    bool readable L_GUARDED_BY(lock) = false;
    bool readArmed L_GUARDED_BY(lock) = false;
    bool armedOnMain L_GUARDED_BY(lock) = false;
    bool writeArmed L_GUARDED_BY(lock) = false;
    bool inPoolSet L_GUARDED_BY(lock) = false;
    bool inMainSet L_GUARDED_BY(lock) = false;
    bool inWriteSet L_GUARDED_BY(lock) = false;
    std::vector<Event> events L_GUARDED_BY(lock);
    std::list<Outgoing> outgoing L_GUARDED_BY(lock);
    size_t outgoingBytes L_GUARDED_BY(lock) = 0;
    uint64_t lastNumber L_GUARDED_BY(lock) = 0;
    std::map<uint64_t, xpc_handler_t> replies L_GUARDED_BY(lock);
};

}  // namespace platform
