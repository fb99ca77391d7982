// NSUserDefaults: the application's persistent keys and values, in memory and in one property list file,
// $XDG_CONFIG_HOME/<bundle identifier>.plist. Any thread. Changes are in memory until synchronize; a reader sees each
// change whole. Dates, fractions and other types that NSObject
// does not know are left out when the file is read.
//
// The file belongs to one process at a time (the application's single-instance lock); others may read it at any moment
// with NSDictionary::dictionaryWithContentsOfFile.
#pragma once

#include <Foundation/NSObject.h>
#include <Foundation/NSString.h>

#include <memory>

namespace platform {
class UserDefaultsStore;
}

class NSUserDefaults {
public:
    // The main bundle's defaults; immortal.
    static NSUserDefaults& standardUserDefaults();

    explicit NSUserDefaults(std::unique_ptr<platform::UserDefaultsStore> ownStore);
    ~NSUserDefaults();
    NSUserDefaults(const NSUserDefaults&) = delete;
    NSUserDefaults& operator=(const NSUserDefaults&) = delete;

    NSObject objectForKey(const NSString& key) const;  // null: none
    // A null value removes the entry. Values nested deeper than the file's reader accepts are not taken.
    void setObjectForKey(NSObject value, const NSString& key);
    void removeObjectForKey(const NSString& key);
    // Makes the file equal to memory, durably: when this gives true, a power failure loses nothing of it. Writes
    // nothing when nothing changed. False: the file is one whole state, the old or the new one, and the changes are
    // tried again by the next call. Reading a file that could not be read before is tried again, too: what it holds is
    // then merged below the changes made meanwhile.
    bool synchronize();

private:
    std::unique_ptr<platform::UserDefaultsStore> store;
};
