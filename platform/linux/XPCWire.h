// The wire format of messages: frames and items as bytes, and the bounds that are checked before anything is allocated.
// docs/protocol.md is the same for readers who write a client in another language. Pure functions, any thread.
//
// Frame, little-endian:  magic u32 | version u16 | flags u16 | message number u64 | payload length u32 | items u16 |
// descriptors u16, then the payload. Item:  type u8 | zero u8 | key length u16 | value length u32 | key | value.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

namespace platform::wire {

static_assert(std::endian::native == std::endian::little, "numbers are copied to the wire as they stand in memory");

inline constexpr uint32_t kMagic = 0x444B5351;  // "QSKD" in the order of the bytes
inline constexpr uint16_t kVersion = 1;
inline constexpr uint16_t kFlagReply = 1;  // the number is that of the request

inline constexpr uint32_t kMaxPayload = 1 << 20;
inline constexpr uint16_t kMaxItems = 1024;
inline constexpr uint16_t kMaxKey = 1023;
inline constexpr uint16_t kMaxDescriptors = 16;

struct FrameHeader {
    uint32_t magic = kMagic;
    uint16_t version = kVersion;
    uint16_t flags = 0;
    uint64_t number = 0;  // 0: no reply expected
    uint32_t payloadLength = 0;
    uint16_t items = 0;
    uint16_t descriptors = 0;
};
static_assert(sizeof(FrameHeader) == 24);

struct ItemHeader {
    uint8_t type = 0;
    uint8_t zero = 0;
    uint16_t keyLength = 0;
    uint32_t valueLength = 0;
};
static_assert(sizeof(ItemHeader) == 8);

enum class Type : uint8_t { Bool = 1, Int64, UInt64, Double, Date, Data, UUID, String, Descriptor };

// Where an item lies in a payload. A string's value includes its terminator.
struct Item {
    Type type;
    uint16_t keyLength;
    uint32_t keyAt;
    uint32_t valueLength;
    uint32_t valueAt() const { return keyAt + keyLength; }
};

// The header at the front of `bytes` (at least sizeof(FrameHeader) of them); nothing when a field is out of bounds.
std::optional<FrameHeader> ReadHeader(const char* bytes);

// The items of a payload, into room for `count` of them; false unless it holds exactly so many well-formed items,
// `descriptors` of them descriptors.
bool ReadItems(std::string_view payload, uint16_t count, uint16_t descriptors, Item* items);

// Adds an item to a payload under construction and tells where it lies. The value may lie in the payload itself.
template <class Text>
Item AppendItem(Text& payload, Type type, std::string_view key, const void* value, size_t valueLength) {
    const ItemHeader header{static_cast<uint8_t>(type), 0, static_cast<uint16_t>(key.size()),
                            static_cast<uint32_t>(valueLength)};
    const size_t at = payload.size();
    const auto valueAt = reinterpret_cast<uintptr_t>(value) - reinterpret_cast<uintptr_t>(payload.data());
    const size_t keyAt = at + sizeof header;
    payload.resize(keyAt + key.size() + valueLength);
    if (valueAt < at) value = payload.data() + valueAt;
    std::memcpy(payload.data() + at, &header, sizeof header);
    std::memcpy(payload.data() + keyAt, key.data(), key.size());
    if (valueLength) std::memcpy(payload.data() + keyAt + key.size(), value, valueLength);
    return {type, header.keyLength, static_cast<uint32_t>(keyAt), header.valueLength};
}

}  // namespace platform::wire
