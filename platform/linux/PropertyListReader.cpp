#include "PropertyListReader.h"

#include "PropertyListTextReader.h"
#include "SharedTexts.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <plist/plist.h>
#include <unistd.h>
#include <vector>

namespace platform {

namespace {

constexpr size_t kMovableBytes = size_t{64} << 20;  // a few milliseconds' work
constexpr size_t kMovablePerByte = 512;

struct FreeNode {
    void operator()(void* node) const { plist_free(node); }
};
struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};

// The end of the tag that begins at `start`: the position behind its ">", with the parser's own idea of quotes, so that
// both see the same tags. npos when it has none.
size_t EndOfTag(std::string_view xml, size_t start) {
    const auto behind = [&](std::string_view end, size_t from) {
        const size_t at = xml.find(end, from);
        return at == xml.npos ? at : at + end.size();
    };
    const char kind = start + 1 < xml.size() ? xml[start + 1] : '\0';
    if (kind == '!' || kind == '?') {
        const std::string_view rest = xml.substr(start);
        if (rest.starts_with("<!--")) return behind("-->", start + 4);
        if (rest.starts_with("<![CDATA[")) return behind("]]>", start + 9);
        if (rest.starts_with("<?")) return behind("?>", start + 2);
    }
    for (size_t at = start + 1; at < xml.size(); at++) {
        if (xml[at] == '>') return at + 1;
        if (xml[at] != '"') continue;
        at = xml.find('"', at + 1);
        if (at == xml.npos) break;
    }
    return xml.npos;
}

// What libplist has to move for a text's references ("&amp;"): for each of them all that follows it in the text.
size_t BytesToMove(std::string_view text) {
    size_t bytes = 0;
    for (size_t at = text.find('&'); at != text.npos; at = text.find('&', at + 1)) bytes += text.size() - at;
    return bytes;
}

// One walk over the tags. A container tag in any unusual spelling counts as one more level: too deep is refused, never
// the other way round.
bool IsHarmless(std::string_view xml) {
    int depth = 0;
    // A megabyte of references in one text would take seconds. Texts as long as a schedule's key may well be full of
    // them, however many there are.
    size_t movable = kMovableBytes + kMovablePerByte * xml.size();
    for (size_t at = 0;;) {
        const size_t begin = xml.find('<', at);
        const size_t toMove = BytesToMove(xml.substr(at, begin - at));
        if (toMove > movable) return false;
        movable -= toMove;
        if (begin == xml.npos) return true;
        at = EndOfTag(xml, begin);
        if (at == xml.npos) return false;
        const std::string_view tag = xml.substr(begin, at - begin);
        if (tag[1] == 'k' || tag[1] == 's') continue;  // keys and texts, the most of all
        if (tag.starts_with("<dict") || tag.starts_with("<array")) {
            if (tag != "<dict/>" && tag != "<array/>" && ++depth > kMaxPropertyListDepth) return false;
        } else if (tag == "</dict>" || tag == "</array>") {
            depth--;
        } else if (tag.starts_with("<!ENTITY") || (tag.starts_with("<!DOCTYPE") && tag.find('[') != tag.npos)) {
            return false;  // declarations of its own
        }
    }
}

// Turns libplist's nodes into values.
class Converter {
public:
    explicit Converter(size_t fileSize) : texts(fileSize) {}

    NSObject Value(plist_t node) {
        switch (plist_get_node_type(node)) {
        case PLIST_STRING:
            return Text(node);
        case PLIST_BOOLEAN: {
            uint8_t value = 0;
            plist_get_bool_val(node, &value);
            return NSNumber::numberWithBool(value != 0);
        }
        case PLIST_UINT: {
            uint64_t value = 0;
            plist_get_uint_val(node, &value);  // negative ones as two's complement
            return NSNumber::numberWithLong(static_cast<long>(value));
        }
        case PLIST_DATA: {
            uint64_t length = 0;
            const char* bytes = plist_get_data_ptr(node, &length);
            return NSData::dataWithBytes(bytes, length);
        }
        case PLIST_ARRAY:
            return Array(node);
        case PLIST_DICT:
            return Dictionary(node);
        default:
            return {};
        }
    }

    NSDictionary Dictionary(plist_t node) {
        std::vector<NSDictionary::Entry> entries;
        entries.reserve(plist_dict_get_size(node));
        plist_dict_iter raw = nullptr;
        plist_dict_new_iter(node, &raw);
        const std::unique_ptr<void, FreeMemory> iterator(raw);
        for (;;) {
            char* rawKey = nullptr;
            plist_t value = nullptr;
            plist_dict_next_item(node, iterator.get(), &rawKey, &value);
            const std::unique_ptr<char, FreeMemory> key(rawKey);
            if (!value) break;
            if (key) entries.emplace_back(texts.Get(key.get()), Value(value));
        }
        return NSDictionary(std::move(entries));
    }

private:
    NSString Text(plist_t node) {
        uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        return text ? texts.Get({text, length}) : NSString(std::string_view());
    }

    NSArray Array(plist_t node) {
        std::vector<NSObject> objects;
        objects.reserve(plist_array_get_size(node));
        plist_array_iter raw = nullptr;
        plist_array_new_iter(node, &raw);
        const std::unique_ptr<void, FreeMemory> iterator(raw);
        for (;;) {
            plist_t item = nullptr;
            plist_array_next_item(node, iterator.get(), &item);
            if (!item) break;
            if (NSObject value = Value(item)) objects.push_back(std::move(value));
        }
        return NSArray(std::move(objects));
    }

    SharedTexts texts;
};

}  // namespace

std::optional<NSDictionary> ParsePropertyList(std::string_view xml) {
    if (auto written = ReadPropertyListText(xml)) return written;
    return ParseAnyPropertyList(xml);
}

std::optional<NSDictionary> ParseAnyPropertyList(std::string_view xml) {
    if (xml.size() > kMaxPropertyListFile || !IsHarmless(xml)) return std::nullopt;
    plist_t raw = nullptr;
    plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &raw);
    const std::unique_ptr<void, FreeNode> root(raw);
    if (!root || plist_get_node_type(root.get()) != PLIST_DICT) return std::nullopt;
    return Converter(xml.size()).Dictionary(root.get());
}

int ReadRegularFile(FileCalls& calls, int descriptor, const struct stat& info, size_t maxBytes, std::string& bytes) {
    if (!S_ISREG(info.st_mode)) return EINVAL;
    if (info.st_size > static_cast<off_t>(maxBytes)) return EFBIG;
    bytes.resize(static_cast<size_t>(info.st_size));
    size_t length = 0;
    while (length < bytes.size()) {
        const ssize_t count =
            Uninterrupted([&] { return calls.Read(descriptor, bytes.data() + length, bytes.size() - length); });
        if (count < 0) return errno;
        if (count == 0) break;
        length += static_cast<size_t>(count);
    }
    bytes.resize(length);
    return 0;
}

int ReadOwnFile(FileCalls& calls, const std::string& path, std::string& bytes) {
    // Without waiting: the name may stand for a pipe.
    const int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    const FileCallsDescriptor file(calls, Uninterrupted([&] { return calls.Open(path.c_str(), flags, 0); }));
    struct stat info {};
    if (!file || calls.Stat(file.Get(), info) != 0) return errno;
    if (S_ISREG(info.st_mode) && info.st_uid != ::geteuid()) return EPERM;
    return ReadRegularFile(calls, file.Get(), info, kMaxPropertyListFile, bytes);
}

}  // namespace platform
