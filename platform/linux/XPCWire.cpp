#include "XPCWire.h"

namespace platform::wire {
namespace {

bool IsWellFormed(Type type, std::string_view value) {
    switch (type) {
    case Type::Bool:
        return value.size() == 1 && (value[0] == 0 || value[0] == 1);
    case Type::Int64:
    case Type::UInt64:
    case Type::Double:
    case Type::Date:
        return value.size() == 8;
    case Type::Data:
        return true;
    case Type::UUID:
        return value.size() == 16;
    case Type::String:
        return !value.empty() && value.find('\0') == value.size() - 1;
    case Type::Descriptor:
        return value.empty();
    }
    return false;
}

}  // namespace

std::optional<FrameHeader> ReadHeader(const char* bytes) {
    FrameHeader header;
    std::memcpy(&header, bytes, sizeof header);
    if (header.magic != kMagic || header.version != kVersion || (header.flags & ~kFlagReply)) return std::nullopt;
    if ((header.flags & kFlagReply) && header.number == 0) return std::nullopt;
    if (header.payloadLength > kMaxPayload || header.items > kMaxItems || header.descriptors > kMaxDescriptors)
        return std::nullopt;
    if (header.items * sizeof(ItemHeader) > header.payloadLength) return std::nullopt;
    return header;
}

bool ReadItems(std::string_view payload, uint16_t count, uint16_t descriptors, Item* items) {
    size_t at = 0, descriptorItems = 0;
    for (uint16_t i = 0; i < count; i++) {
        ItemHeader header;
        if (payload.size() - at < sizeof header) return false;
        std::memcpy(&header, payload.data() + at, sizeof header);
        at += sizeof header;
        if (header.zero != 0 || header.keyLength > kMaxKey) return false;
        if (payload.size() - at < size_t{header.keyLength} + header.valueLength) return false;
        const Item item{static_cast<Type>(header.type), header.keyLength, static_cast<uint32_t>(at),
                        header.valueLength};
        at += size_t{header.keyLength} + header.valueLength;
        if (!IsWellFormed(item.type, payload.substr(item.valueAt(), item.valueLength))) return false;
        descriptorItems += item.type == Type::Descriptor;
        items[i] = item;
    }
    return at == payload.size() && descriptorItems == descriptors;
}

}  // namespace platform::wire
