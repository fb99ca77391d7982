#include "sandbox/LSandboxBookmarkManager.h"

#include "files/LFile.h"
#include "files/LFilePath.h"
#include "text/LAscii.h"

#include <cstring>
#include <memory>
#include <sys/stat.h>

namespace {

const NSString& KeysKey() {
    static const NSString& key = *new NSString("SECURITY_BOOKMARK_KEYS");
    return key;
}

NSUserDefaults& Defaults() {
    return NSUserDefaults::standardUserDefaults();
}

bool Fits(const char* text) {
    return text && std::strlen(text) < LTextBufferSize;
}

bool IsRegularFile(const char* path) {
    struct stat status {};
    return path && ::stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

bool IsPrefix(const char* prefix, const char* path) {
    return LAsciiCompareNoCase(prefix, path, std::strlen(prefix)) == 0;
}

bool IsSame(const char* a, const char* b) {
    return LAsciiCompareNoCase(a, b, LTextBufferSize) == 0;
}

NSData BookmarkOf(const LSandboxBookmarkItem& item) {
    return item.Url().bookmarkDataWithOptions(NSURLBookmarkCreationWithSecurityScope);
}

}  // namespace

LSandboxBookmarkManager* LSandboxBookmarkManager::pInstance = nullptr;

void LSandboxBookmarkManager::Create() {
    if (!pInstance) pInstance = new LSandboxBookmarkManager;
}

void LSandboxBookmarkManager::Destroy() {
    delete pInstance;
    pInstance = nullptr;
}

LSandboxBookmarkManager::LSandboxBookmarkManager() {
    InstanceLoadBookmarksFromFile();
}

LSandboxBookmarkManager::~LSandboxBookmarkManager() {
    Defaults().setObjectForKey(keys, KeysKey());
    Defaults().synchronize();
}

// --- in memory -------------------------------------------------------------------------------------------------------

LSandboxBookmarkManager::Items& LSandboxBookmarkManager::ListOf(const char* path) {
    return IsRegularFile(path) ? files : folders;
}

const LSandboxBookmarkManager::Items& LSandboxBookmarkManager::ListOf(const char* path) const {
    return IsRegularFile(path) ? files : folders;
}

LListIterator<LSandboxBookmarkItem> LSandboxBookmarkManager::Find(const Items& items, const char* path) {
    LListIterator<LSandboxBookmarkItem> it(items);
    while (it && !IsSame(it->Path(), path)) it.Next();
    return it;
}

bool LSandboxBookmarkManager::AddFilePath(const char* path, const NSURL& url, bool callerFlag, bool save,
                                          const char* key) {
    return pInstance && pInstance->InstanceAddFilePath(path, url, save, callerFlag, key);
}

bool LSandboxBookmarkManager::InstanceAddFilePath(const char* path, const NSURL& url, bool save, bool callerFlag,
                                                  const char* key) {
    if (!Fits(path) || (save && !Fits(key))) return false;
    if (IsAccessAllowedByEntitlement(path, false)) return true;
    Items& items = IsRegularFile(path) || !LFileExists(path) ? files : folders;
    if (Find(items, path)) return true;
    auto item = std::make_unique<LSandboxBookmarkItem>(path, url, callerFlag);
    if (!item->StartAccessingSecurityScopedResource()) return false;
    LSandboxBookmarkItem& added = *item;
    items.Add(item.release());
    if (save && InstanceSaveBookmarkToFile(added, key)) {
        InstanceAddKey(key);
        added.AddKey(key);
    }
    return true;
}

bool LSandboxBookmarkManager::AddFilePathToSettings(const char* path, bool flag, const char* key) {
    return pInstance && pInstance->InstanceAddFilePathToSettings(path, flag, key);
}

bool LSandboxBookmarkManager::InstanceAddFilePathToSettings(const char* path, bool, const char* key) {
    if (!Fits(path) || !Fits(key) || IsAccessAllowedByEntitlement(path, false)) return false;
    const auto item = Find(ListOf(path), path);
    if (!item || !InstanceSaveBookmarkToFile(*item, key)) return false;
    item->AddKey(key);
    InstanceAddKey(key);
    return true;
}

bool LSandboxBookmarkManager::StartAccessingSecurityScopedResource(const char* path) {
    if (!pInstance || !Fits(path)) return false;
    for (LListIterator<LSandboxBookmarkItem> it(pInstance->ListOf(path)); it; it.Next())
        if (IsSame(it->Path(), path) && !it->IsAccessStarted()) return it->StartAccessingSecurityScopedResource();
    return false;
}

bool LSandboxBookmarkManager::StopAccessingSecurityScopedResource(const char* path) {
    if (!pInstance || !Fits(path)) return false;
    for (LListIterator<LSandboxBookmarkItem> it(pInstance->ListOf(path)); it; it.Next())
        if (IsSame(it->Path(), path) && it->IsAccessStarted()) return it->StopAccessingSecurityScopedResource();
    return false;
}

bool LSandboxBookmarkManager::IsAccessStarted(const char* path) {
    if (!pInstance || !Fits(path)) return false;
    if (IsRegularFile(path))
        for (LListIterator<LSandboxBookmarkItem> it(pInstance->files); it; it.Next())
            if (it->IsAccessStarted() && IsSame(it->Path(), path)) return true;
    for (LListIterator<LSandboxBookmarkItem> it(pInstance->folders); it; it.Next())
        if (it->IsAccessStarted() && IsPrefix(it->Path(), path)) return true;
    return false;
}

void LSandboxBookmarkManager::Retain(const char* path) {
    if (!pInstance || !Fits(path)) return;
    if (const auto item = Find(pInstance->ListOf(path), path)) item->Retain();
}

void LSandboxBookmarkManager::Release(const char* path) {
    if (!pInstance || !Fits(path)) return;
    Items& items = pInstance->ListOf(path);
    auto item = Find(items, path);
    if (item && item->Release()) items.Delete(item);
}

bool LSandboxBookmarkManager::IsAccessAllowedByEntitlement(const char* path, bool) {
    char outside[LTextBufferSize];
    return Fits(path) && LFile::IsPathInSandbox(path) && !LFile::MakeNonSandboxedFilePath(outside, path);
}

const LSandboxBookmarkItem* LSandboxBookmarkManager::InstanceGetBookmark(const char* path) const {
    return Find(ListOf(path), path).Get();
}

const LSandboxBookmarkItem* LSandboxBookmarkManager::InstanceGetParentBookmark(const char* path) const {
    for (LListIterator<LSandboxBookmarkItem> it(folders); it; it.Next())
        if (IsPrefix(it->Path(), path)) return it.Get();
    return nullptr;
}

// --- in the defaults -------------------------------------------------------------------------------------------------

void LSandboxBookmarkManager::InstanceLoadBookmarksFromFile() {
    keys.addObjectsFromArray(Defaults().objectForKey(KeysKey()).Array());
    const NSArray saved = keys;
    bool anyChanged = false;
    for (const NSObject& key : saved) {
        bool changed = false;
        InstanceLoadBookmark(key.String(), changed);
        anyChanged |= changed;
    }
    if (!anyChanged) return;
    InstanceSaveBookmarksToFile(true);
    InstanceSaveBookmarksToFile(false);
}

void LSandboxBookmarkManager::ForgetKey(const NSString& key) {
    keys.removeObject(key);
    Defaults().removeObjectForKey(key);
    Defaults().setObjectForKey(keys, KeysKey());
    Defaults().synchronize();
}

bool LSandboxBookmarkManager::InstanceLoadBookmark(const NSString& key, bool& changed) {
    char keyText[LTextBufferSize];
    changed = false;
    if (!key || !key.getCString(keyText, sizeof keyText, NSUTF8StringEncoding)) return false;
    const NSData data = Defaults().objectForKey(key).Data();
    if (data.length() == 0) {
        ForgetKey(key);
        return false;
    }
    bool isStale = false;
    char path[LTextBufferSize];
    const NSURL url = NSURL::URLByResolvingBookmarkData(data, NSURLBookmarkResolutionWithSecurityScope, isStale);
    std::unique_ptr<LSandboxBookmarkItem> item;
    if (url && url.path().getCString(path, sizeof path, NSUTF8StringEncoding) && LFileExists(path)) {
        item = std::make_unique<LSandboxBookmarkItem>(path, url, true);
        item->AddKey(keyText);
        if (isStale && !InstanceSaveBookmarkToFile(*item, keyText)) item.reset();
    }
    if (!item) {
        changed = true;
        ForgetKey(key);
        return false;
    }
    if (!item->StartAccessingSecurityScopedResource()) return false;
    item->SetSaved();
    ListOf(path).Add(item.release());
    return true;
}

bool LSandboxBookmarkManager::InstanceSaveBookmarkToFile(LSandboxBookmarkItem& item, const char* key) {
    const NSData data = BookmarkOf(item);
    const NSString name = NSString::initWithCString(key, NSUTF8StringEncoding);
    if (!data || !name || name == KeysKey()) return false;
    Defaults().setObjectForKey(data, name);
    if (!Defaults().synchronize()) return false;
    item.SetSaved();
    return true;
}

void LSandboxBookmarkManager::InstanceSaveBookmarksToFile(bool ofFiles) {
    for (LListIterator<LSandboxBookmarkItem> it(ofFiles ? files : folders); it; it.Next()) {
        const NSData data = it->IsSaved() ? BookmarkOf(*it) : NSData();
        for (unsigned long i = 0; data && i < it->Keys().Count(); i++)
            Defaults().setObjectForKey(data, NSString::initWithCString(it->Keys()[i], NSUTF8StringEncoding));
    }
    Defaults().synchronize();
}

void LSandboxBookmarkManager::InstanceAddKey(const char* key) {
    const NSString name = NSString::initWithCString(key, NSUTF8StringEncoding);
    if (!name || keys.containsObject(name)) return;
    keys.addObject(name);
    Defaults().setObjectForKey(keys, KeysKey());
    Defaults().synchronize();
}
