// What every Core Foundation object begins with. References are untyped pointers, so the header is the first member of
// a standard-layout object: a pointer to the one is a pointer to the other.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

namespace platform {

struct CFHeader {
    mutable std::atomic<uint32_t> references{1};
    void (*destroy)(const void* object) = nullptr;
};

// Makes an object with one reference, which is the caller's.
template <class T, class... Arguments>
const T* MakeCF(Arguments&&... arguments) {
    static_assert(std::is_standard_layout_v<T>);
    auto* object = new T{{}, std::forward<Arguments>(arguments)...};
    object->header.destroy = [](const void* dead) { delete static_cast<const T*>(dead); };
    return object;
}

struct CFReleaser {
    void operator()(CFTypeRef object) const { CFRelease(object); }
};
// Owns one reference.
template <class T>
using CFHolder = std::unique_ptr<const T, CFReleaser>;

// The way between the layer's own texts and its string objects: null for invalid UTF-8; null reads as "".
CFStringRef CFStringFromUtf8(std::string_view text);
std::string Utf8FromCFString(CFStringRef string);

CFURLRef CFURLFromPath(std::string path, bool isDirectory);
const std::string& PathOfCFURL(CFURLRef url);

}  // namespace platform
