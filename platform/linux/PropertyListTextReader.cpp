#include "PropertyListTextReader.h"

#include "PropertyListReader.h"
#include "PropertyListText.h"
#include "SharedTexts.h"

#include <Foundation/NSObject.h>

#include <charconv>
#include <string>
#include <utility>
#include <vector>

namespace platform {

namespace {

// One walk over the text. Each function takes its part off the front; a null result (or false) says that the part isn't
// there in the writer's form, and then the whole text isn't of it.
class TextReader {
public:
    explicit TextReader(std::string_view xml) : rest(xml), texts(xml.size()) {}

    NSDictionary File() {
        const NSDictionary content = Take(kPropertyListHead) ? Dictionary(0) : NSDictionary();
        return rest == kPropertyListEnd ? content : NSDictionary();
    }

private:
    bool Take(std::string_view expected) {
        if (!rest.starts_with(expected)) return false;
        rest.remove_prefix(expected.size());
        return true;
    }

    // A tag behind as many tabs as arrays and dictionaries lie around it.
    bool Take(size_t depth, std::string_view tag) {
        if (rest.size() < depth || !rest.substr(depth).starts_with(tag)) return false;
        for (size_t i = 0; i < depth; i++)
            if (rest[i] != '\t') return false;
        rest.remove_prefix(depth + tag.size());
        return true;
    }

    NSString Text(std::string_view closing) {
        const std::string_view plain = TakePlain();
        if (Take(closing)) return texts.Get(plain);
        std::string text(plain);
        while (TakeReference(text)) text.append(TakePlain());
        return Take(closing) ? NSString(text) : NSString();
    }
    std::string_view TakePlain() {
        const std::string_view plain = rest.substr(0, PlainPropertyListText(rest));
        rest.remove_prefix(plain.size());
        return plain;
    }
    // Control characters, which have references by number, are the parser's.
    bool TakeReference(std::string& text) {
        for (const auto& [reference, character] : {std::pair("&amp;", '&'), {"&lt;", '<'}, {"&gt;", '>'}}) {
            if (!Take(reference)) continue;
            text += character;
            return true;
        }
        return false;
    }

    // As the writer spells it, that is, without zeros in front: to other readers those mean an octal number.
    NSNumber Integer() {
        long value = 0;
        const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), value);
        const std::string_view digits = rest.substr(0, static_cast<size_t>(end - rest.data()));
        if (error != std::errc() || digits != std::to_string(value)) return {};
        rest.remove_prefix(digits.size());
        return Take("</integer>\n") ? NSNumber::numberWithLong(value) : NSNumber();
    }

    // `depth`: how many arrays and dictionaries lie around it.
    NSObject Value(size_t depth) {
        if (Take(depth, "<string>")) return Text("</string>\n");
        if (Take(depth, "<integer>")) return Integer();
        if (Take(depth, "<true/>\n")) return NSNumber::numberWithBool(true);
        if (Take(depth, "<false/>\n")) return NSNumber::numberWithBool(false);
        if (depth >= static_cast<size_t>(kMaxPropertyListDepth)) return {};
        if (Take(depth, "<array>\n")) return Array(depth);
        if (Take(depth, "<dict>\n")) return Dictionary(depth);
        return {};
    }

    NSArray Array(size_t depth) {
        std::vector<NSObject> objects;
        while (!Take(depth, "</array>\n"))
            if (!objects.emplace_back(Value(depth + 1))) return {};
        return NSArray(std::move(objects));
    }

    NSDictionary Dictionary(size_t depth) {
        std::vector<NSDictionary::Entry> entries;
        entries.reserve(kUsualEntries);
        while (!Take(depth, "</dict>\n")) {
            if (!Take(depth + 1, "<key>")) return {};
            NSString key = Text("</key>\n");
            if (!key || (!entries.empty() && key.View() <= entries.back().first.View())) return {};
            NSObject value = Value(depth + 1);
            if (!value) return {};
            entries.emplace_back(std::move(key), std::move(value));
        }
        return NSDictionary(std::move(entries));
    }

    static constexpr size_t kUsualEntries = 8;  // of a schedule, and one

    std::string_view rest;
    SharedTexts texts;
};

}  // namespace

std::optional<NSDictionary> ReadPropertyListText(std::string_view xml) {
    NSDictionary content = TextReader(xml).File();
    return content ? std::optional(std::move(content)) : std::nullopt;
}

}  // namespace platform
