// NSObject: any value that a property list holds, or null. The typed getters give a null value where it is of another
// type, so that a file with wrong types reads as one that lacks the entry.
#pragma once

#include <Foundation/NSArray.h>
#include <Foundation/NSData.h>
#include <Foundation/NSDictionary.h>
#include <Foundation/NSNumber.h>
#include <Foundation/NSString.h>

#include <utility>
#include <variant>

class NSObject {
public:
    NSObject() = default;  // null
    // Of a null string, number and so on: null.
    NSObject(NSString object) { Set(std::move(object)); }
    NSObject(NSNumber object) { Set(std::move(object)); }
    NSObject(NSData object) { Set(std::move(object)); }
    NSObject(NSArray object) { Set(std::move(object)); }
    NSObject(NSDictionary object) { Set(std::move(object)); }

    explicit operator bool() const { return value.index() != 0; }
    // By reference into this object, by value out of a temporary one.
    const NSString& String() const& { return Get<NSString>(); }
    const NSNumber& Number() const& { return Get<NSNumber>(); }
    const NSData& Data() const& { return Get<NSData>(); }
    const NSArray& Array() const& { return Get<NSArray>(); }
    const NSDictionary& Dictionary() const& { return Get<NSDictionary>(); }
    NSString String() && { return Get<NSString>(); }
    NSNumber Number() && { return Get<NSNumber>(); }
    NSData Data() && { return Get<NSData>(); }
    NSArray Array() && { return Get<NSArray>(); }
    NSDictionary Dictionary() && { return Get<NSDictionary>(); }

    friend bool operator==(const NSObject& a, const NSObject& b) { return a.value == b.value; }

private:
    template <class T>
    void Set(T&& object) {
        if (object) value = std::forward<T>(object);
    }
    template <class T>
    const T& Get() const {
        static const T& null = *new T;
        const T* found = std::get_if<T>(&value);
        return found ? *found : null;
    }

    std::variant<std::monostate, NSString, NSNumber, NSData, NSArray, NSDictionary> value;
};
