#include <Foundation/NSString.h>

#include "Utf8.h"

#include <cstring>

NSString::NSString(std::string_view text) {
    if (platform::IsUtf8(text) && text.find('\0') == text.npos) payload = NSPayload<std::string>(std::string(text));
}

NSString NSString::initWithCString(const char* text, NSStringEncoding encoding) {
    if (!text || encoding != NSUTF8StringEncoding) return {};
    return NSString(std::string_view(text));
}

NSString NSString::stringByAppendingString(const NSString& tail) const {
    if (!payload || !tail.payload) return {};
    std::string joined;
    joined.reserve(payload.Get()->size() + tail.payload.Get()->size());
    joined.append(*payload.Get()).append(*tail.payload.Get());
    NSString result;
    result.payload = NSPayload<std::string>(std::move(joined));
    return result;
}

NSRange NSString::rangeOfString(const NSString& part) const {
    if (part.View().empty()) return {NSNotFound, 0};
    const size_t position = View().find(part.View());
    if (position == std::string_view::npos) return {NSNotFound, 0};
    return {position, part.View().size()};
}

bool NSString::isEqualToString(const NSString& other) const {
    return payload && other.payload && *payload.Get() == *other.payload.Get();
}

bool NSString::getCString(char* buffer, size_t maxLength, NSStringEncoding encoding) const {
    if (!payload || !buffer || encoding != NSUTF8StringEncoding) return false;
    const std::string& text = *payload.Get();
    if (text.size() >= maxLength) return false;
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return true;
}

const char* NSString::UTF8String() const {
    return payload ? payload.Get()->c_str() : "";
}

std::string_view NSString::View() const {
    return payload ? std::string_view(*payload.Get()) : std::string_view();
}
