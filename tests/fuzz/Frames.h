// The frames of docs/protocol.md, read a second time and plainly: what fuzz targets hold the layer's own reader
// against.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace frames {

inline constexpr size_t kHeader = 24;
inline constexpr uint8_t kBool = 1, kUInt64 = 3, kDate = 5, kString = 8, kDescriptor = 9;

struct Item {
    uint8_t type;
    std::string key, value;
    bool operator==(const Item&) const = default;
};

struct Frame {
    bool isReply = false;
    uint64_t number = 0;
    unsigned descriptors = 0;
    std::vector<Item> items;
    size_t end = 0;  // the position behind it

    // The last item of a key; null when there is none.
    const Item* Find(std::string_view key) const;
};

enum class Reading { Whole, Incomplete, Broken };

// The frame that begins at `at`. Broken as soon as that can be told.
Reading Read(std::string_view stream, size_t at, Frame& frame);

// Whether a payload holds exactly so many well-formed items, so many of them descriptors.
bool ReadItems(std::string_view payload, unsigned count, unsigned descriptors, std::vector<Item>& items);

// The bytes of a frame; its `end` and, for the header, the number of its items don't count.
std::string Write(const Frame& frame);

}  // namespace frames
