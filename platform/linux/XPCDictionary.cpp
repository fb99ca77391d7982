#include "XPCDictionary.h"

#include "XPCConnection.h"

#include <algorithm>
#include <fcntl.h>

namespace platform {

XPCDictionary::XPCDictionary() : xpc_object_s(XPC_TYPE_DICTIONARY) {
    items.reserve(kUsualItems);
    payload.reserve(kUsualBytes);
}

XPCDictionary::XPCDictionary(const wire::FrameHeader& header, std::string_view bytes, std::vector<Descriptor> received,
                             XPCRef<XPCConnection> over)
    : xpc_object_s(XPC_TYPE_DICTIONARY), items(header.items, &arena), payload(bytes, &arena),
      descriptors(std::move(received)), connection(std::move(over)),
      expectsReply(header.flags & wire::kFlagReply ? 0 : header.number) {
    if (!(header.flags & wire::kFlagReply)) BecomeKnown();
}

XPCDictionary::~XPCDictionary() = default;

XPCRef<XPCDictionary> XPCDictionary::Received(const wire::FrameHeader& header, std::string_view bytes,
                                              std::vector<Descriptor> received, XPCRef<XPCConnection> over) {
    auto message = XPCRef<XPCDictionary>::Adopt(new XPCDictionary(header, bytes, std::move(received), std::move(over)));
    if (wire::ReadItems(bytes, header.items, header.descriptors, message->items.data())) return message;
    return {};
}

void XPCDictionary::Set(wire::Type valueType, const char* key, const void* value, size_t length) {
    const std::string_view name = std::string_view(key).substr(0, wire::kMaxKey);
    if (length > wire::kMaxPayload) length = wire::kMaxPayload + size_t{1};  // kept, but not sendable
    wire::Item item = wire::AppendItem(payload, valueType, name, value, length);
    if (const wire::Item* old = Find(key)) {
        const size_t before = payload.size();
        Remove(*old);  // after the value was copied, which may lie in it
        item.keyAt -= static_cast<uint32_t>(before - payload.size());
    }
    items.push_back(item);
    found = nullptr;
}

void XPCDictionary::SetDescriptor(const char* key, int descriptor) {
    Descriptor copy(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    if (!copy) return;
    Set(wire::Type::Descriptor, key, "", 0);
    descriptors.push_back(std::move(copy));
}

// Takes an item out of the payload; the items behind it move down.
void XPCDictionary::Remove(const wire::Item& item) {
    const auto index = &item - items.data();
    if (item.type == wire::Type::Descriptor) {
        const auto before = std::count_if(items.begin(), items.begin() + index,
                                          [](const wire::Item& i) { return i.type == wire::Type::Descriptor; });
        descriptors.erase(descriptors.begin() + before);
    }
    const auto begin = static_cast<uint32_t>(item.keyAt - sizeof(wire::ItemHeader));
    const uint32_t length = item.valueAt() + item.valueLength - begin;
    payload.erase(begin, length);
    items.erase(items.begin() + index);
    for (auto i = items.begin() + index; i != items.end(); ++i) i->keyAt -= length;
}

// From the end, so that of two items with one key in a received message the later one counts.
const wire::Item* XPCDictionary::Find(const char* key) const {
    const std::string_view name = std::string_view(key).substr(0, wire::kMaxKey);
    const auto isNamed = [&](const wire::Item& item) {
        return item.keyLength == name.size() && std::memcmp(payload.data() + item.keyAt, name.data(), name.size()) == 0;
    };
    if (found && isNamed(*found)) return found;
    const auto last = std::find_if(items.rbegin(), items.rend(), isNamed);
    return found = last == items.rend() ? nullptr : &*last;
}

const char* XPCDictionary::Value(const char* key, wire::Type valueType, uint32_t* length) const {
    const wire::Item* item = Find(key);
    if (!item || item->type != valueType) return nullptr;
    if (length) *length = item->valueLength;
    return payload.data() + item->valueAt();
}

int XPCDictionary::DupDescriptor(const char* key) const {
    const wire::Item* item = Find(key);
    if (!item || item->type != wire::Type::Descriptor) return -1;
    size_t index = 0;
    for (const wire::Item* i = items.data(); i != item; i++) index += i->type == wire::Type::Descriptor;
    return fcntl(descriptors[index].Get(), F_DUPFD_CLOEXEC, 0);
}

bool XPCDictionary::IsSendable() const {
    return payload.size() <= wire::kMaxPayload && items.size() <= wire::kMaxItems &&
           descriptors.size() <= wire::kMaxDescriptors;
}

}  // namespace platform
