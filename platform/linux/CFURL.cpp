#include "CFObject.h"

#include <Carbon/Carbon.h>

#include <filesystem>
#include <system_error>

struct CFURL {
    platform::CFHeader header;
    std::string path;  // not empty, no trailing slash but the root's
    bool isDirectory;
};

namespace {

// The index behind the last slash; 0 when there is none.
size_t LastComponent(const std::string& path) {
    return path.rfind('/') + 1;  // npos + 1 is 0
}

}  // namespace

namespace platform {

CFURLRef CFURLFromPath(std::string path, bool isDirectory) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path.empty() ? nullptr : MakeCF<CFURL>(std::move(path), isDirectory);
}

const std::string& PathOfCFURL(CFURLRef url) {
    return url->path;
}

}  // namespace platform

CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef, CFStringRef path, CFURLPathStyle, bool isDirectory) {
    return platform::CFURLFromPath(platform::Utf8FromCFString(path), isDirectory);
}

CFURLRef CFURLCreateCopyDeletingLastPathComponent(CFAllocatorRef, CFURLRef url) {
    if (!url) return nullptr;
    const size_t last = LastComponent(url->path);
    return platform::CFURLFromPath(last == 0 ? "." : url->path.substr(0, last), true);
}

CFURLRef CFURLCopyAbsoluteURL(CFURLRef url) {
    if (!url) return nullptr;
    if (url->path.front() == '/') return static_cast<CFURLRef>(CFRetain(url));
    std::error_code error;
    const std::string folder = std::filesystem::current_path(error).string();
    if (error) return nullptr;
    return platform::CFURLFromPath(folder + (folder.ends_with('/') ? "" : "/") + url->path, url->isDirectory);
}

CFStringRef CFURLCopyLastPathComponent(CFURLRef url) {
    if (!url) return nullptr;
    const size_t last = LastComponent(url->path);
    return platform::CFStringFromUtf8(last == url->path.size() ? "/" : url->path.substr(last));
}

CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle) {
    return url ? platform::CFStringFromUtf8(url->path) : nullptr;
}

bool CFURLGetFSRef(CFURLRef url, FSRef* ref) {
    if (!url || !ref) return false;
    return FSPathMakeRef(reinterpret_cast<const UInt8*>(url->path.c_str()), ref, nullptr) == noErr;
}
