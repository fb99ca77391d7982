// NSDictionary, NSMutableDictionary: values by text key, or null; kept in byte order of the keys. A mutable dictionary
// given away as an NSDictionary is a snapshot: it shares the payload until one of the two is changed.
#pragma once

#include <Foundation/NSPayload.h>
#include <Foundation/NSString.h>

#include <cstddef>
#include <utility>
#include <vector>

class NSObject;

class NSDictionary {
public:
    using Entry = std::pair<NSString, NSObject>;

    NSDictionary() = default;  // null
    // Of equal keys the last one counts; entries with a null key or value are left out.
    explicit NSDictionary(std::vector<Entry> entries);
    // Reads a property list file, whoever writes it meanwhile. Null when it cannot be read, is no property list, or
    // holds no dictionary; links are not followed.
    static NSDictionary dictionaryWithContentsOfFile(const NSString& path);

    explicit operator bool() const { return static_cast<bool>(payload); }
    size_t count() const;
    NSObject valueForKey(const NSString& key) const;  // null: none
    // For range-based for, in the order of the keys. A null dictionary has no entries.
    const Entry* begin() const;
    const Entry* end() const;

    // Of values: null equals null.
    friend bool operator==(const NSDictionary& a, const NSDictionary& b);

protected:
    NSPayload<std::vector<Entry>> payload;
};

// Never null.
class NSMutableDictionary : public NSDictionary {
public:
    NSMutableDictionary();
    explicit NSMutableDictionary(const NSDictionary& other);
    static NSMutableDictionary initWithCapacity(size_t capacity);

    // A null value removes the entry; a null key is ignored.
    void setValueForKey(NSObject value, const NSString& key);
};
