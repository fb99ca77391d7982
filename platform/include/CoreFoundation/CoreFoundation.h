// Core Foundation, the subset that this system calls: strings, file URLs and bundles.
//
// Every object is immutable and counted by references; a null reference is accepted wherever one is released or
// retained. "Create" and "Copy" functions give a reference that the caller releases, "Get" functions one that lives as
// long as the object it was asked of. Any thread may use any object. Allocators exist in name only.
#pragma once

#include <cstdint>

using CFTypeRef = const void*;
using CFStringRef = const struct CFString*;
using CFURLRef = const struct CFURL*;
using CFBundleRef = const struct CFBundle*;
using CFAllocatorRef = const struct CFAllocator*;
using CFIndex = long;
using CFStringEncoding = uint32_t;
using UInt8 = unsigned char;
using UniChar = unsigned short;  // one UTF-16 unit
struct FSRef;                    // <Carbon/Carbon.h>

struct CFRange {
    CFIndex location;
    CFIndex length;
};
constexpr CFRange CFRangeMake(CFIndex location, CFIndex length) {
    return {location, length};
}

inline constexpr CFAllocatorRef kCFAllocatorDefault = nullptr;
CFAllocatorRef CFAllocatorGetDefault();

CFTypeRef CFRetain(CFTypeRef object);  // gives the object
void CFRelease(CFTypeRef object);

// Strings: UTF-16 units.

inline constexpr CFStringEncoding kCFStringEncodingUnicode = 0x0100;  // UTF-16 in the machine's byte order
inline constexpr CFStringEncoding kCFStringEncodingISOLatin1 = 0x0201;
inline constexpr CFStringEncoding kCFStringEncodingWindowsLatin1 = 0x0500;
inline constexpr CFStringEncoding kCFStringEncodingUTF8 = 0x08000100;

// Null for bytes that the encoding doesn't have (UTF-8 is read strictly, UTF-16 takes any even number of bytes), for
// other encodings and a negative count. With `isExternalRepresentation` a leading byte order mark is left out (and, for
// UTF-16, obeyed).
CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex count,
                                    CFStringEncoding encoding, bool isExternalRepresentation);
// The same for terminated text; null for null and for UTF-16, whose texts hold zero bytes.
CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text, CFStringEncoding encoding);
// Takes any units, lone surrogates too.
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* units, CFIndex count);

CFIndex CFStringGetLength(CFStringRef string);  // UTF-16 units
// All or nothing: false (and an empty buffer) when a character is missing in the encoding or the text doesn't fit with
// its terminator. A lone surrogate is written to UTF-8 as the three bytes of its value.
bool CFStringGetCString(CFStringRef string, char* buffer, CFIndex size, CFStringEncoding encoding);
// The same with a length byte in front and no terminator: at most 255 bytes.
bool CFStringGetPascalString(CFStringRef string, unsigned char* buffer, CFIndex size, CFStringEncoding encoding);
// Copies the units of the range, which must lie inside the string.
void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* buffer);
CFStringEncoding CFStringGetSystemEncoding();  // UTF-8

// File URLs: a path and whether it names a folder. A relative path means the working folder of the moment it is used
// in.

enum CFURLPathStyle { kCFURLPOSIXPathStyle = 0 };

// Null for an empty path.
CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef path, CFURLPathStyle style,
                                       bool isDirectory);
CFURLRef CFURLCreateCopyDeletingLastPathComponent(CFAllocatorRef allocator, CFURLRef url);
CFURLRef CFURLCopyAbsoluteURL(CFURLRef url);                              // null when the working folder can't be told
CFStringRef CFURLCopyLastPathComponent(CFURLRef url);                     // "/" for the root
CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle style);  // no trailing slash but the root's
// Whether the object exists; `ref` is set only then.
bool CFURLGetFSRef(CFURLRef url, FSRef* ref);

// Bundles: a folder, and the texts of its Contents/Info.plist as they were when the bundle was made.

extern const CFStringRef kCFBundleVersionKey;  // "CFBundleVersion"

CFBundleRef CFBundleCreate(CFAllocatorRef allocator, CFURLRef url);  // null when the URL names no existing folder
CFBundleRef CFBundleGetMainBundle();                                 // a bare executable's is its folder
// A CFStringRef, null when the key is missing or its value is no text.
CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key);
CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle);
CFURLRef CFBundleCopyResourcesDirectoryURL(CFBundleRef bundle);  // its Contents/Resources, whether there is one or not
