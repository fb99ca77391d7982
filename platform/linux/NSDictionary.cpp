#include <Foundation/NSDictionary.h>

#include <Foundation/NSObject.h>

#include "PropertyListReader.h"

#include <algorithm>

namespace {

using Entry = NSDictionary::Entry;

bool KeyLess(const Entry& entry, std::string_view key) {
    return entry.first.View() < key;
}

}  // namespace

NSDictionary::NSDictionary(std::vector<Entry> entries) {
    std::erase_if(entries, [](const Entry& e) { return !e.first || !e.second; });
    const auto less = [](const Entry& a, const Entry& b) { return a.first.View() < b.first.View(); };
    if (!std::is_sorted(entries.begin(), entries.end(), less)) std::stable_sort(entries.begin(), entries.end(), less);
    // Of equal keys keep the last: walk from the back, where it comes first.
    const auto kept = std::unique(entries.rbegin(), entries.rend(),
                                  [](const Entry& a, const Entry& b) { return a.first == b.first; });
    entries.erase(entries.begin(), kept.base());
    payload = NSPayload<std::vector<Entry>>(std::move(entries));
}

NSDictionary NSDictionary::dictionaryWithContentsOfFile(const NSString& path) {
    std::string bytes;
    if (!path || platform::ReadOwnFile(platform::FileCalls::System(), path.UTF8String(), bytes) != 0) return {};
    return platform::ParsePropertyList(bytes).value_or(NSDictionary());
}

size_t NSDictionary::count() const {
    return payload ? payload.Get()->size() : 0;
}

NSObject NSDictionary::valueForKey(const NSString& key) const {
    const Entry* found = std::lower_bound(begin(), end(), key.View(), KeyLess);
    return found != end() && found->first.isEqualToString(key) ? found->second : NSObject();
}

const Entry* NSDictionary::begin() const {
    return payload ? payload.Get()->data() : nullptr;
}

const Entry* NSDictionary::end() const {
    return payload ? payload.Get()->data() + payload.Get()->size() : nullptr;
}

bool operator==(const NSDictionary& a, const NSDictionary& b) {
    if (a.payload.IsSame(b.payload)) return true;
    return a.payload && b.payload && std::equal(a.begin(), a.end(), b.begin(), b.end());
}

NSMutableDictionary::NSMutableDictionary() {
    payload.Own();
}

NSMutableDictionary::NSMutableDictionary(const NSDictionary& other) : NSDictionary(other) {
    if (!payload) payload.Own();
}

NSMutableDictionary NSMutableDictionary::initWithCapacity(size_t capacity) {
    NSMutableDictionary result;
    result.payload.Own().reserve(capacity);
    return result;
}

void NSMutableDictionary::setValueForKey(NSObject value, const NSString& key) {
    if (!key) return;
    auto& entries = payload.Own();
    const auto place = std::lower_bound(entries.begin(), entries.end(), key.View(), KeyLess);
    const bool found = place != entries.end() && place->first == key;
    if (!value) {
        if (found) entries.erase(place);
    } else if (found) {
        place->second = std::move(value);
    } else {
        entries.insert(place, Entry(key, std::move(value)));
    }
}
