// NSArray, NSMutableArray: values in order, or null. A mutable array given away as an NSArray is a snapshot: it shares
// the payload until one of the two is changed.
#pragma once

#include <Foundation/NSPayload.h>

#include <cstddef>
#include <vector>

class NSObject;

class NSArray {
public:
    NSArray() = default;  // null
    explicit NSArray(std::vector<NSObject> objects);
    NSArray initWithArray(const NSArray& other) const { return other; }

    explicit operator bool() const { return static_cast<bool>(payload); }
    size_t count() const;
    bool containsObject(const NSObject& object) const;  // by equality
    // For range-based for. A null array has no elements.
    const NSObject* begin() const;
    const NSObject* end() const;
    const NSObject& operator[](size_t index) const;  // index < count()

    // Of values: null equals null.
    friend bool operator==(const NSArray& a, const NSArray& b);

protected:
    NSPayload<std::vector<NSObject>> payload;
};

// Never null.
class NSMutableArray : public NSArray {
public:
    NSMutableArray();
    explicit NSMutableArray(const NSArray& other);

    void addObject(NSObject object);            // null is left out: the platform throws
    void removeObject(const NSObject& object);  // all that are equal
    void removeAllObjects();
    void addObjectsFromArray(const NSArray& other);
};
