// XPCDictionary: a message, kept in its wire form with an index of its items, so that neither sending nor receiving
// converts anything. Made by one thread, then read by one thread at a time. Bytes and index of most messages have room
// within the object: such a message is one allocation.
#pragma once

#include "Descriptor.h"
#include "XPCObject.h"
#include "XPCWire.h"

#include <cstddef>
#include <memory_resource>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

class XPCConnection;

class XPCDictionary final : public xpc_object_s {
public:
    XPCDictionary();
    // A received message, of which a reply expects none in turn; null when the payload isn't what the header says.
    static XPCRef<XPCDictionary> Received(const wire::FrameHeader& header, std::string_view bytes,
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
    std::string_view Payload() const { return payload; }
    uint16_t ItemCount() const { return static_cast<uint16_t>(items.size()); }
    const std::vector<Descriptor>& Descriptors() const { return descriptors; }

    XPCConnection* Connection() const { return connection.get(); }
    // A received message that expects a reply gives its number once, to the one reply that is made for it; then 0.
    uint64_t TakeReplyNumber() { return expectsReply.exchange(0); }
    // The number of the request that this message answers; 0 when it answers none.
    uint64_t ReplyTo() const { return replyTo; }
    void MakeReplyTo(uint64_t number) { replyTo = number; }

private:
    XPCDictionary(const wire::FrameHeader& header, std::string_view bytes, std::vector<Descriptor> received,
                  XPCRef<XPCConnection> over);
    void Remove(const wire::Item& item);

    static constexpr size_t kUsualBytes = 512, kUsualItems = 12;
    alignas(wire::Item) std::byte room[kUsualBytes + 1 + kUsualItems * sizeof(wire::Item)];
    std::pmr::monotonic_buffer_resource arena{room, sizeof room};
    std::pmr::vector<wire::Item> items{&arena};
    std::pmr::string payload{&arena};
    mutable const wire::Item* found =
        nullptr;                          // by the last Find: asking for an item comes before asking for its value
    std::vector<Descriptor> descriptors;  // of the descriptor items, in their order
    XPCRef<XPCConnection> connection;
    std::atomic<uint64_t> expectsReply{0};
    uint64_t replyTo = 0;
};

}  // namespace platform
