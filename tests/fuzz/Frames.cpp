#include "Frames.h"

namespace frames {

namespace {

constexpr size_t kMaxPayload = 1'048'576, kMaxItems = 1'024, kMaxKey = 1'023, kMaxDescriptors = 16;

uint64_t Little(std::string_view bytes, size_t at, size_t size) {
    uint64_t value = 0;
    for (size_t i = size; i-- > 0;) value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

void AppendLittle(std::string& bytes, uint64_t value, size_t size) {
    for (size_t i = 0; i < size; i++) bytes += static_cast<char>(value >> 8 * i & 0xFF);
}

bool IsValue(uint8_t type, std::string_view value) {
    switch (type) {
    case kBool:
        return value.size() == 1 && static_cast<unsigned char>(value[0]) <= 1;
    case 2:
    case kUInt64:
    case 4:
    case kDate:
        return value.size() == 8;
    case 6:
        return true;
    case 7:
        return value.size() == 16;
    case kString:
        return !value.empty() && value.back() == 0 && value.substr(0, value.size() - 1).find('\0') == value.npos;
    case kDescriptor:
        return value.empty();
    default:
        return false;
    }
}

}  // namespace

const Item* Frame::Find(std::string_view key) const {
    for (size_t i = items.size(); i-- > 0;)
        if (items[i].key == key) return &items[i];
    return nullptr;
}

bool ReadItems(std::string_view payload, unsigned count, unsigned descriptors, std::vector<Item>& items) {
    items.clear();
    for (unsigned i = 0; i < count; i++) {
        if (payload.size() < 8) return false;
        const auto type = static_cast<uint8_t>(payload[0]);
        const uint64_t keyLength = Little(payload, 2, 2), valueLength = Little(payload, 4, 4);
        if (payload[1] != 0 || keyLength > kMaxKey || payload.size() - 8 < keyLength + valueLength) return false;
        const std::string_view value = payload.substr(8 + keyLength, valueLength);
        if (!IsValue(type, value)) return false;
        items.push_back({type, std::string(payload.substr(8, keyLength)), std::string(value)});
        if (type == kDescriptor && descriptors-- == 0) return false;
        payload.remove_prefix(8 + keyLength + valueLength);
    }
    return payload.empty() && descriptors == 0;
}

Reading Read(std::string_view stream, size_t at, Frame& frame) {
    if (stream.size() - at < kHeader) return Reading::Incomplete;
    const std::string_view header = stream.substr(at, kHeader);
    const uint64_t flags = Little(header, 6, 2), length = Little(header, 16, 4), count = Little(header, 20, 2);
    frame.isReply = flags == 1;
    frame.number = Little(header, 8, 8);
    frame.descriptors = static_cast<unsigned>(Little(header, 22, 2));
    if (!header.starts_with("QSKD") || Little(header, 4, 2) != 1 || flags > 1 || length > kMaxPayload ||
        count > kMaxItems || frame.descriptors > kMaxDescriptors || (frame.isReply && frame.number == 0) ||
        8 * count > length)
        return Reading::Broken;
    frame.end = at + kHeader + length;
    if (stream.size() < frame.end) return Reading::Incomplete;
    const bool isWhole =
        ReadItems(stream.substr(at + kHeader, length), static_cast<unsigned>(count), frame.descriptors, frame.items);
    return isWhole ? Reading::Whole : Reading::Broken;
}

std::string Write(const Frame& frame) {
    std::string payload;
    for (const Item& item : frame.items) {
        AppendLittle(payload, item.type, 2);
        AppendLittle(payload, item.key.size(), 2);
        AppendLittle(payload, item.value.size(), 4);
        payload += item.key + item.value;
    }
    std::string bytes = "QSKD";
    AppendLittle(bytes, 1, 2);
    AppendLittle(bytes, frame.isReply, 2);
    AppendLittle(bytes, frame.number, 8);
    AppendLittle(bytes, payload.size(), 4);
    AppendLittle(bytes, frame.items.size(), 2);
    AppendLittle(bytes, frame.descriptors, 2);
    return bytes + payload;
}

}  // namespace frames
