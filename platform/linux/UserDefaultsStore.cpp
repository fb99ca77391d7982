#include "UserDefaultsStore.h"

#include "PropertyListReader.h"
#include "PropertyListText.h"

#include <utility>

namespace platform {

namespace {

// Two versions of one entry: the file's, and one made while the file could not be read. Of lists the file's comes first
// and what is new follows: whoever kept a list without knowing the stored one must not cut it off.
NSObject Merged(const NSObject& stored, const NSObject& changed) {
    if (!stored.Array() || !changed.Array()) return changed;
    NSMutableArray both(stored.Array());
    for (const NSObject& object : changed.Array())
        if (!both.containsObject(object)) both.addObject(object);
    return both;
}

}  // namespace

UserDefaultsStore::UserDefaultsStore(std::string path, FileCalls& calls) : file(std::move(path), calls) {
    LMutexLock fileLock(fileMutex);
    ReadFile();
}

NSObject UserDefaultsStore::Find(const NSString& key) const {
    if (!key) return {};
    LMutexLock lock(entriesMutex);
    const NSObject* found = entries.Find(key.View());
    return found ? *found : NSObject();
}

void UserDefaultsStore::Set(const NSString& key, NSObject value) {
    if (!value) return Remove(key);
    if (!key || PropertyListDepth(value) >= kMaxPropertyListDepth) return;  // the file itself is one level
    LMutexLock lock(entriesMutex);
    MarkChanged(key.View());
    entries.Set(key, std::move(value));
}

void UserDefaultsStore::Remove(const NSString& key) {
    if (!key) return;
    LMutexLock lock(entriesMutex);
    if (hasRead && !entries.Find(key.View())) return;
    MarkChanged(key.View());
    entries.Remove(key.View());
}

void UserDefaultsStore::MarkChanged(std::string_view key) {
    state++;
    if (!hasRead) changedUnread.emplace(key);
}

bool UserDefaultsStore::Synchronize() {
    LMutexLock fileLock(fileMutex);
    if (!ReadFile()) return false;
    uint64_t snapshotState;
    bool isWritten;
    std::vector<NSPayload<std::string>> texts;
    {
        LMutexLock lock(entriesMutex);
        snapshotState = state;
        isWritten = state == writtenState;
        if (!isWritten) texts = entries.Texts();
    }
    if (isWritten) return file.MakeSafe();
    if (!file.Replace(texts)) return false;
    LMutexLock lock(entriesMutex);
    writtenState = snapshotState;
    return true;
}

// Reads the file unless that has been done. Only Synchronize and the constructor come here, so nobody else reads or
// sets hasRead to true meanwhile.
bool UserDefaultsStore::ReadFile() {
    {
        LMutexLock lock(entriesMutex);
        if (hasRead) return true;
    }
    NSDictionary content;
    if (file.Read(content) == UserDefaultsFile::Reading::Failed) return false;
    LMutexLock lock(entriesMutex);
    Merge(content);
    hasRead = true;
    return true;
}

void UserDefaultsStore::Merge(const NSDictionary& content) {
    for (const auto& [key, stored] : content) {
        if (!changedUnread.contains(key.View())) {
            entries.Set(key, stored);
        } else if (const NSObject* changed = entries.Find(key.View())) {
            entries.Set(key, Merged(stored, *changed));
        }
    }
    changedUnread.clear();
}

}  // namespace platform
