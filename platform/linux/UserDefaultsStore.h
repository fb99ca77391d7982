// UserDefaultsStore: what NSUserDefaults does, for a given file and given file calls: the entries in memory, and which
// of their states is on disk. Any thread.
//
// Two mutexes. `fileMutex` is held through reading and writing the file, so that writes follow each other; it is taken
// first. `entriesMutex` guards memory and is never held across a system call: nobody who reads or changes an entry
// waits for the disk. A write takes its snapshot, one counted reference per block of entries, under the second and
// works on it without.
#pragma once

#include "DefaultsEntries.h"
#include "UserDefaultsFile.h"

#include <bsd/LMutex.h>

#include <Foundation/NSObject.h>

#include <cstdint>
#include <functional>
#include <set>
#include <string>

namespace platform {

class UserDefaultsStore {
public:
    explicit UserDefaultsStore(std::string path, FileCalls& calls = FileCalls::System());
    UserDefaultsStore(const UserDefaultsStore&) = delete;
    UserDefaultsStore& operator=(const UserDefaultsStore&) = delete;

    NSObject Find(const NSString& key) const L_EXCLUDES(entriesMutex);
    void Set(const NSString& key, NSObject value) L_EXCLUDES(entriesMutex);
    void Remove(const NSString& key) L_EXCLUDES(entriesMutex);
    bool Synchronize() L_EXCLUDES(fileMutex, entriesMutex);

private:
    bool ReadFile() L_REQUIRES(fileMutex);
    void Merge(const NSDictionary& content) L_REQUIRES(entriesMutex);
    void MarkChanged(std::string_view key) L_REQUIRES(entriesMutex);

    mutable LMutex fileMutex;  // held across system calls on the file
    UserDefaultsFile file L_GUARDED_BY(fileMutex);

    mutable LMutex entriesMutex;
    DefaultsEntries entries L_GUARDED_BY(entriesMutex);
    bool hasRead L_GUARDED_BY(entriesMutex) = false;
    // Until the file has been read: the keys changed meanwhile, whose values in the file no longer count.
    std::set<std::string, std::less<>> changedUnread L_GUARDED_BY(entriesMutex);
    uint64_t state L_GUARDED_BY(entriesMutex) = 0;         // counts changes
    uint64_t writtenState L_GUARDED_BY(entriesMutex) = 0;  // the one on disk
};

// Gives NSUserDefaults::standardUserDefaults() a fresh store of this file: the application's, once it holds the lock
// for it, or a test's. Not while anybody uses the old one.
void SetStandardUserDefaults(const std::string& path, FileCalls& calls = FileCalls::System());

}  // namespace platform
