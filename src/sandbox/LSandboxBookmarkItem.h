// LSandboxBookmarkItem: one granted path of the bookmark manager, with its URL, the keys under which its bookmark is
// kept, and a count of those who need it (one for each key, one for each Retain). Stops its access when destroyed. The
// manager's thread.
#pragma once

#include "text/LCopyBounded.h"
#include "text/LStringList.h"

#include <Foundation/Foundation.h>

class LSandboxBookmarkItem {
public:
    LSandboxBookmarkItem(const char* grantedPath, NSURL grantedUrl, bool flag);
    ~LSandboxBookmarkItem() { StopAccessingSecurityScopedResource(); }
    LSandboxBookmarkItem(const LSandboxBookmarkItem&) = delete;
    LSandboxBookmarkItem& operator=(const LSandboxBookmarkItem&) = delete;

    // True when access is started, or stopped, afterwards; false for a URL that doesn't know how.
    bool StartAccessingSecurityScopedResource();
    bool StopAccessingSecurityScopedResource();

    // A key counts once. False when it was there already, or wasn't there to remove.
    bool AddKey(const char* key);
    bool RemoveKey(const char* key);

    void Retain() { retainCount++; }
    // True when nobody needs it any more; so it is at once where nobody ever did.
    bool Release() { return retainCount == 0 || --retainCount == 0; }

    const char* Path() const { return path; }
    const NSURL& Url() const { return url; }
    const LStringListTemplate<char>& Keys() const { return keys; }
    unsigned RetainCount() const { return retainCount; }
    bool IsAccessStarted() const { return isAccessStarted; }
    bool IsCallerFlagSet() const { return callerFlag; }
    bool IsSaved() const { return isSaved; }
    void SetSaved() { isSaved = true; }

    LSandboxBookmarkItem* pNext = nullptr;

private:
    long IndexOfKey(const char* key) const;  // -1: none

    char path[LTextBufferSize];
    const NSURL url;
    bool isAccessStarted = false;
    const bool callerFlag;
    bool isSaved = false;  // the bookmark has been in the defaults
    LStringListTemplate<char> keys;
    unsigned retainCount = 0;
};
