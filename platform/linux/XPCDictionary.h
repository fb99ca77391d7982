// XPCDictionary: a message, kept in its wire form with an index of its items, so that neither sending nor receiving
// converts anything. Made by one thread, then read by one thread at a time.
#pragma once

#include "Descriptor.h"
#include "XPCObject.h"
#include "XPCWire.h"

#include <string>
#include <vector>

namespace platform {

class XPCConnection;

class XPCDictionary final : public xpc_object_s {
public:
    XPCDictionary();
    // A received message, of which a reply expects none in turn.
    XPCDictionary(const wire::FrameHeader& header, std::string bytes, std::vector<wire::Item> index,
                  std::vector<Descriptor> received, XPCRef<XPCConnection> over);
    ~XPCDictionary() override;

    // Later values of a key replace earlier ones. A key over the wire's bound is cut to it.
    void Set(wire::Type valueType, const char* key, const void* value, size_t length);
    void SetDescriptor(const char* key, int descriptor);

    const wire::Item* Find(const char* key) const;
    const char* Value(const char* key, wire::Type valueType, uint32_t* length = nullptr) const;
    template <class T>
    T Number(const char* key, wire::Type valueType) const {
        T value{};
        if (const char* bytes = Value(key, valueType)) std::memcpy(&value, bytes, sizeof value);
        return value;
    }
    int DupDescriptor(const char* key) const;

    // False when the message passes the wire's bounds and can't be sent.
    bool IsSendable() const;
    const std::string& Payload() const { return payload; }
    uint16_t ItemCount() const { return static_cast<uint16_t>(items.size()); }
    const std::vector<Descriptor>& Descriptors() const { return descriptors; }

    XPCConnection* Connection() const { return connection.get(); }
    // A received message that expects a reply gives its number once, to the one reply that is made for it; then 0.
    uint64_t TakeReplyNumber() { return expectsReply.exchange(0); }
    // The number of the request that this message answers; 0 when it answers none.
    uint64_t ReplyTo() const { return replyTo; }
    void MakeReplyTo(uint64_t number) { replyTo = number; }

private:
    void Remove(const wire::Item& item);

    std::string payload;
    std::vector<wire::Item> items;
    std::vector<Descriptor> descriptors;  // of the descriptor items, in their order
    XPCRef<XPCConnection> connection;
    std::atomic<uint64_t> expectsReply{0};
    uint64_t replyTo = 0;
};

}  // namespace platform
