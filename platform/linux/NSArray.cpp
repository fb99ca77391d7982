#include <Foundation/NSArray.h>

#include <Foundation/NSObject.h>

#include <algorithm>

NSArray::NSArray(std::vector<NSObject> objects) : payload(std::move(objects)) {}

size_t NSArray::count() const {
    return payload ? payload.Get()->size() : 0;
}

bool NSArray::containsObject(const NSObject& object) const {
    return std::find(begin(), end(), object) != end();
}

const NSObject* NSArray::begin() const {
    return payload ? payload.Get()->data() : nullptr;
}

const NSObject* NSArray::end() const {
    return payload ? payload.Get()->data() + payload.Get()->size() : nullptr;
}

const NSObject& NSArray::operator[](size_t index) const {
    return (*payload.Get())[index];
}

bool operator==(const NSArray& a, const NSArray& b) {
    if (a.payload.IsSame(b.payload)) return true;
    return a.payload && b.payload && std::equal(a.begin(), a.end(), b.begin(), b.end());
}

NSMutableArray::NSMutableArray() {
    payload.Own();
}

NSMutableArray::NSMutableArray(const NSArray& other) : NSArray(other) {
    if (!payload) payload.Own();
}

void NSMutableArray::addObject(NSObject object) {
    if (object) payload.Own().push_back(std::move(object));
}

void NSMutableArray::removeObject(const NSObject& object) {
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const NSObject wanted = object;  // it may be an element of this array
    if (containsObject(wanted)) std::erase(payload.Own(), wanted);
}

void NSMutableArray::removeAllObjects() {
    payload = NSPayload<std::vector<NSObject>>(std::vector<NSObject>());
}

void NSMutableArray::addObjectsFromArray(const NSArray& other) {
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const NSArray added = other;  // it may be this array
    auto& objects = payload.Own();
    objects.insert(objects.end(), added.begin(), added.end());
}
