#include "sandbox/LSandboxBookmarkItem.h"

#include <cstring>
#include <utility>

LSandboxBookmarkItem::LSandboxBookmarkItem(const char* grantedPath, NSURL grantedUrl, bool flag)
    : url(std::move(grantedUrl)), callerFlag(flag) {
    LCopyBounded(path, grantedPath, sizeof path);
}

bool LSandboxBookmarkItem::StartAccessingSecurityScopedResource() {
    if (isAccessStarted) return true;
    if (!url.respondsToSelector("startAccessingSecurityScopedResource")) return false;
    url.startAccessingSecurityScopedResource();
    return isAccessStarted = true;
}

bool LSandboxBookmarkItem::StopAccessingSecurityScopedResource() {
    if (!isAccessStarted) return true;
    if (!url.respondsToSelector("stopAccessingSecurityScopedResource")) return false;
    url.stopAccessingSecurityScopedResource();
    isAccessStarted = false;
    return true;
}

long LSandboxBookmarkItem::IndexOfKey(const char* key) const {
    for (unsigned long i = 0; i < keys.Count(); i++)
        if (std::strcmp(keys[i], key ? key : "") == 0) return static_cast<long>(i);
    return -1;
}

bool LSandboxBookmarkItem::AddKey(const char* key) {
    if (IndexOfKey(key) >= 0) return false;
    keys.AddText(key);
    retainCount++;
    return true;
}

bool LSandboxBookmarkItem::RemoveKey(const char* key) {
    const long index = IndexOfKey(key);
    if (index < 0) return false;
    keys.Delete(static_cast<unsigned long>(index));
    if (retainCount > 0) retainCount--;
    return true;
}
