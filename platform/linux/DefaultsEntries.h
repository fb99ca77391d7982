// DefaultsEntries: the keys and values of a defaults store in byte order of the keys, and their text as it stands in
// the file. They lie in blocks of a few entries, each with its text, made when it is first asked for: a change costs
// the text of its own block, and all of them together are gathered from few large pieces. (A text per entry was tried:
// ten thousand small ones cost more in cache misses than in copying.) Not for several threads at a time.
#pragma once

#include <Foundation/NSObject.h>

#include <string>
#include <string_view>
#include <vector>

namespace platform {

class DefaultsEntries {
public:
    const NSObject* Find(std::string_view key) const;  // null: none; valid until the next change
    void Set(const NSString& key, NSObject value);
    void Remove(std::string_view key);

    // The whole file in parts.
    std::vector<NSPayload<std::string>> Texts();

private:
    static constexpr size_t kMaxEntries = 32;

    struct Block {
        std::vector<NSDictionary::Entry> entries;  // sorted, never none
        NSPayload<std::string> text;               // none: to be made
    };

    size_t BlockOf(std::string_view key) const;
    void Split(size_t block);

    std::vector<Block> blocks;  // sorted
};

}  // namespace platform
