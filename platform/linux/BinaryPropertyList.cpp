#include "BinaryPropertyList.h"

#include "Utf16.h"

#include <algorithm>

namespace platform {

namespace {

constexpr std::string_view kMagic = "bplist00";
constexpr uint64_t kTrailerSize = 32;

// High halves of object markers.
constexpr unsigned kInteger = 0x1;
constexpr unsigned kAscii = 0x5;
constexpr unsigned kUtf16 = 0x6;
constexpr unsigned kDictionary = 0xD;

}  // namespace

// The trailer, from the end: table position, top object, object count (8 bytes each), then the sizes of a reference and
// of an offset (1 byte each).
std::optional<BinaryPropertyList> BinaryPropertyList::Open(std::string_view bytes) {
    if (bytes.size() < kMagic.size() + kTrailerSize || !bytes.starts_with(kMagic)) return std::nullopt;
    const uint64_t trailer = bytes.size() - kTrailerSize;
    BinaryPropertyList list(bytes);
    list.offsetSize = *list.BigEndian(trailer + 6, 1);
    list.referenceSize = *list.BigEndian(trailer + 7, 1);
    list.count = *list.BigEndian(trailer + 8, 8);
    list.top = *list.BigEndian(trailer + 16, 8);
    list.tablePosition = *list.BigEndian(trailer + 24, 8);
    const auto isSize = [](uint64_t n) { return n >= 1 && n <= 8; };
    if (!isSize(list.offsetSize) || !isSize(list.referenceSize)) return std::nullopt;
    if (list.tablePosition > trailer || list.count > (trailer - list.tablePosition) / list.offsetSize)
        return std::nullopt;
    return list;
}

std::optional<uint64_t> BinaryPropertyList::BigEndian(uint64_t position, uint64_t size) const {
    if (size > 8 || position > bytes.size() || bytes.size() - position < size) return std::nullopt;
    uint64_t value = 0;
    for (const char c : bytes.substr(position, size)) value = (value << 8) | static_cast<unsigned char>(c);
    return value;
}

std::optional<BinaryPropertyList::Object> BinaryPropertyList::Find(Index object) const {
    if (object >= count) return std::nullopt;
    const auto position = BigEndian(tablePosition + object * offsetSize, offsetSize);
    if (!position) return std::nullopt;
    const auto marker = BigEndian(*position, 1);
    if (!marker) return std::nullopt;
    Object found{static_cast<unsigned>(*marker >> 4), *marker & 0xF, *position + 1};
    if (found.count < 0xF) return found;
    // A count of 15 and more follows as an integer object of its own.
    const auto sizeMarker = BigEndian(found.position, 1);
    if (!sizeMarker || *sizeMarker >> 4 != kInteger || (*sizeMarker & 0xF) > 3) return std::nullopt;
    const uint64_t size = uint64_t{1} << (*sizeMarker & 0xF);
    const auto longCount = BigEndian(found.position + 1, size);
    if (!longCount) return std::nullopt;
    found.count = *longCount;
    found.position += 1 + size;
    return found;
}

std::optional<std::vector<BinaryPropertyList::Entry>> BinaryPropertyList::Dictionary(Index object, size_t maxEntries,
                                                                                     size_t maxText) const {
    const auto dictionary = Find(object);
    if (!dictionary || dictionary->type != kDictionary || dictionary->count > maxEntries) return std::nullopt;
    std::vector<Entry> entries;
    for (uint64_t i = 0; i < dictionary->count; ++i) {  // all references of keys, then all of values
        const auto key = BigEndian(dictionary->position + i * referenceSize, referenceSize);
        const auto value = BigEndian(dictionary->position + (dictionary->count + i) * referenceSize, referenceSize);
        if (!key || !value) return std::nullopt;
        if (auto text = Text(*key, maxText)) entries.push_back({std::move(*text), *value});
    }
    return entries;
}

std::optional<std::string> BinaryPropertyList::Text(Index object, size_t maxText) const {
    const auto text = Find(object);
    if (!text || (text->type != kAscii && text->type != kUtf16)) return std::nullopt;
    const uint64_t unitSize = text->type == kAscii ? 1 : 2;
    if (text->count > maxText || bytes.size() - text->position < text->count * unitSize) return std::nullopt;
    const std::string_view units = bytes.substr(text->position, text->count * unitSize);
    if (text->type == kAscii) {
        const bool ascii =
            std::all_of(units.begin(), units.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
        return ascii ? std::optional<std::string>(units) : std::nullopt;
    }
    std::u16string wide;
    for (uint64_t i = 0; i < text->count; ++i) wide += static_cast<char16_t>(*BigEndian(text->position + 2 * i, 2));
    std::string narrow = Utf8FromUtf16(wide);
    return narrow.size() <= maxText ? std::optional<std::string>(std::move(narrow)) : std::nullopt;
}

}  // namespace platform
