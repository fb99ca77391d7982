// LSandboxBookmarkManager: the process's keeper of granted paths. It holds an item for each, starts and stops access,
// keeps bookmarks in the user defaults under keys of the callers' choosing, and starts again what was saved when it is
// made. Paths are compared without regard to case, keys exactly. Paths and keys have at most 259 bytes; longer ones are
// refused.
//
// One instance, between Create and Destroy. The static operations act on it; without one they do nothing and give
// false. The main thread.
//
// In the defaults: "SECURITY_BOOKMARK_KEYS", an array of keys in the order they came, and for each key the data of one
// bookmark. Several keys may hold bookmarks of one path; each is an item of its own when it is loaded.
#pragma once

#include "sandbox/LSandboxBookmarkItem.h"
#include "text/LList.h"

class LSandboxBookmarkManager {
public:
    static void Create();
    static void Destroy();

    // Registers a granted path, starts access and, with `save`, keeps its bookmark under the key. True also for a path
    // that needs none, one that is registered already, and when saving fails; false when access can't be started.
    static bool AddFilePath(const char* path, const NSURL& url, bool callerFlag, bool save, const char* key);
    // Keeps the bookmark of a registered path under one more key.
    static bool AddFilePathToSettings(const char* path, bool, const char* key);

    // The first item of that path that isn't started, or is: false without one. A path with several keys has an item
    // for each once it was loaded.
    static bool StartAccessingSecurityScopedResource(const char* path);
    static bool StopAccessingSecurityScopedResource(const char* path);
    // Whether the path, or a folder whose path's text it begins with, is started. (A folder's name that begins another
    // one's counts, too.)
    static bool IsAccessStarted(const char* path);

    // Release drops the item when nobody needs it any more; the defaults keep its bookmarks.
    static void Retain(const char* path);
    static void Release(const char* path);

    // Whether a path lies in the container, and really so, links followed: it needs no bookmark.
    static bool IsAccessAllowedByEntitlement(const char* path, bool);

    // Null: none, or no instance.
    static LSandboxBookmarkManager* Instance() { return pInstance; }
    const LSandboxBookmarkItem* InstanceGetBookmark(const char* path) const;
    const LSandboxBookmarkItem* InstanceGetParentBookmark(const char* path) const;  // the first folder item above it

    // AddFilePath, with its two flags the other way round.
    bool InstanceAddFilePath(const char* path, const NSURL& url, bool save, bool callerFlag, const char* key);
    bool InstanceAddFilePathToSettings(const char* path, bool, const char* key);

private:
    LSandboxBookmarkManager();
    ~LSandboxBookmarkManager();

    using Items = LList<LSandboxBookmarkItem>;
    // Where the item of a path is: regular files among the files, all else among the folders.
    Items& ListOf(const char* path);
    const Items& ListOf(const char* path) const;
    static LListIterator<LSandboxBookmarkItem> Find(const Items& items, const char* path);

    void InstanceLoadBookmarksFromFile();
    bool InstanceLoadBookmark(const NSString& key, bool& changed);
    void InstanceSaveBookmarksToFile(bool ofFiles);
    bool InstanceSaveBookmarkToFile(LSandboxBookmarkItem& item, const char* key);
    void InstanceAddKey(const char* key);
    void ForgetKey(const NSString& key);

    static LSandboxBookmarkManager* pInstance;

    Items files;    // also those that didn't exist when they were added
    Items folders;  // all others
    NSMutableArray keys;
};
