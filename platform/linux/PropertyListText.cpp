#include "PropertyListText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>

namespace platform {

const std::string_view kPropertyListHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n"
    "<dict>\n";
const std::string_view kPropertyListTail = "</dict>\n</plist>\n";
const std::string_view kPropertyListEnd = "</plist>\n";

namespace {

// Control characters have no place in XML 1.0, but a name that holds one must come back as it was: as a reference it is
// read back by libplist. A bare carriage return would come back as a line feed.
bool NeedsReference(char c) {
    return (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n') || c == 0x7F;
}

bool IsSpecial(char c) {
    return c == '&' || c == '<' || c == '>' || NeedsReference(c);
}

// Whether one of eight bytes may be special, all at once: a byte becomes zero by an exclusive or with what is looked
// for, and only a zero byte borrows into its highest bit while that was clear. Below 0x20 by the same borrow. Tabs and
// line feeds count, too, which costs time only.
bool MayHaveSpecial(uint64_t bytes) {
    constexpr uint64_t ones = 0x0101010101010101, highs = 0x80 * ones;
    const auto below = [](uint64_t x, uint64_t limit) { return (x - limit * ones) & ~x & highs; };
    const uint64_t angles = (bytes | 0x02 * ones) ^ '>' * ones;  // '<' and '>' differ in this one bit
    return (below(bytes, 0x20) | below(bytes ^ '&' * ones, 1) | below(angles, 1) | below(bytes ^ 0x7F * ones, 1)) != 0;
}

}  // namespace

size_t PlainPropertyListText(std::string_view text) {
    size_t length = 0;
    for (uint64_t eight; length + sizeof eight <= text.size(); length += sizeof eight) {
        std::memcpy(&eight, text.data() + length, sizeof eight);
        if (MayHaveSpecial(eight)) break;
    }
    while (length < text.size() && !IsSpecial(text[length])) length++;
    return length;
}

namespace {

void AppendEscaped(std::string& out, std::string_view text) {
    while (!text.empty()) {
        const size_t plain = PlainPropertyListText(text);
        out.append(text.substr(0, plain));
        if (plain == text.size()) return;
        switch (const char special = text[plain]) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        default:
            out += "&#" + std::to_string(static_cast<unsigned char>(special)) + ";";
        }
        text.remove_prefix(plain + 1);
    }
}

void AppendBase64(std::string& out, std::string_view bytes) {
    static constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (size_t at = 0; at < bytes.size(); at += 3) {
        const std::string_view three = bytes.substr(at, 3);
        unsigned bits = 0;
        for (size_t i = 0; i < 3; i++)
            bits = bits << 8 | (i < three.size() ? static_cast<unsigned char>(three[i]) : 0u);
        for (size_t i = 0; i < 4; i++) out += i <= three.size() ? digits[bits >> (18 - 6 * i) & 63] : '=';
    }
}

void AppendTagged(std::string& out, std::string_view tag, std::string_view text, std::string_view closingTag) {
    out.append(tag);
    AppendEscaped(out, text);
    out.append(closingTag);
}

void AppendInteger(std::string& out, long value) {
    std::array<char, 24> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    out.append("<integer>").append(digits.data(), end).append("</integer>\n");
}

void AppendValue(std::string& out, const NSObject& value, size_t indent);

void AppendEntry(std::string& out, const NSString& key, const NSObject& value, size_t indent) {
    out.append(indent, '\t');
    AppendTagged(out, "<key>", key.View(), "</key>\n");
    AppendValue(out, value, indent);
}

void AppendValue(std::string& out, const NSObject& value, size_t indent) {
    out.append(indent, '\t');
    if (const NSString& text = value.String()) {
        AppendTagged(out, "<string>", text.View(), "</string>\n");
    } else if (const NSNumber& number = value.Number()) {
        if (number.IsBool())
            out += number.boolValue() ? "<true/>\n" : "<false/>\n";
        else
            AppendInteger(out, number.longValue());
    } else if (const NSData& data = value.Data()) {
        out += "<data>";
        AppendBase64(out, data.View());
        out += "</data>\n";
    } else if (const NSArray& array = value.Array()) {
        out += "<array>\n";
        for (const NSObject& object : array) AppendValue(out, object, indent + 1);
        out.append(indent, '\t').append("</array>\n");
    } else {
        out += "<dict>\n";
        for (const auto& [key, object] : value.Dictionary()) AppendEntry(out, key, object, indent + 1);
        out.append(indent, '\t').append("</dict>\n");
    }
}

}  // namespace

void AppendPropertyListEntry(std::string& out, const NSString& key, const NSObject& value) {
    AppendEntry(out, key, value, 1);
}

int PropertyListDepth(const NSObject& value) {
    int inside = 0;
    if (const NSArray& array = value.Array()) {
        for (const NSObject& object : array) inside = std::max(inside, PropertyListDepth(object));
        return inside + 1;
    }
    if (const NSDictionary& dictionary = value.Dictionary()) {
        for (const auto& [key, object] : dictionary) inside = std::max(inside, PropertyListDepth(object));
        return inside + 1;
    }
    return 0;
}

}  // namespace platform
