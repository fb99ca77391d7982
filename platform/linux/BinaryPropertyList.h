// BinaryPropertyList: reads single entries out of a binary property list ("bplist00") where it lies, without building
// its objects. libplist builds an object once for every reference to it and recurses per level: a kilobyte of arrays
// that name each other twice takes it all memory, a deep one its stack. Here nothing recurses and only what is asked
// for is decoded. A view: the bytes belong to the caller and outlive it. Any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

class BinaryPropertyList {
public:
    using Index = uint64_t;  // an object's number

    struct Entry {
        std::string key;
        Index value;
    };

    // Nothing when the header or the trailer is no such list's.
    static std::optional<BinaryPropertyList> Open(std::string_view bytes);

    Index Top() const { return top; }
    // The entries of a dictionary in the file's order, without those whose key is not a text of at most maxText bytes
    // of UTF-8; nothing when the object is no dictionary, has more than maxEntries entries or lies outside the file.
    std::optional<std::vector<Entry>> Dictionary(Index object, size_t maxEntries, size_t maxText) const;
    // A text of at most maxText bytes of UTF-8; nothing for any other object.
    std::optional<std::string> Text(Index object, size_t maxText) const;

private:
    struct Object {
        unsigned type;      // the marker's high half
        uint64_t count;     // units, bytes or entries, by type
        uint64_t position;  // of the first one
    };

    explicit BinaryPropertyList(std::string_view file) : bytes(file) {}
    std::optional<uint64_t> BigEndian(uint64_t position, uint64_t size) const;
    std::optional<Object> Find(Index object) const;

    std::string_view bytes;
    uint64_t top = 0;
    uint64_t count = 0;
    uint64_t tablePosition = 0;
    uint64_t offsetSize = 0;
    uint64_t referenceSize = 0;
};

}  // namespace platform
