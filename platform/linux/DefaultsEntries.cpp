#include "DefaultsEntries.h"

#include "PropertyListText.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace platform {

namespace {

template <class Entries>
auto PlaceOf(Entries& entries, std::string_view key) {
    return std::lower_bound(
        entries.begin(), entries.end(), key,
        [](const NSDictionary::Entry& entry, std::string_view k) { return entry.first.View() < k; });
}

}  // namespace

// The last block that begins at or before the key, else the first; there is one.
size_t DefaultsEntries::BlockOf(std::string_view key) const {
    const auto behind = std::upper_bound(blocks.begin(), blocks.end(), key, [](std::string_view k, const Block& block) {
        return k < block.entries.front().first.View();
    });
    return behind == blocks.begin() ? 0 : static_cast<size_t>(behind - blocks.begin()) - 1;
}

const NSObject* DefaultsEntries::Find(std::string_view key) const {
    if (blocks.empty()) return nullptr;
    const auto& entries = blocks[BlockOf(key)].entries;
    const auto place = PlaceOf(entries, key);
    return place != entries.end() && place->first.View() == key ? &place->second : nullptr;
}

void DefaultsEntries::Set(const NSString& key, NSObject value) {
    if (blocks.empty()) blocks.emplace_back();
    const size_t at = blocks.front().entries.empty() ? 0 : BlockOf(key.View());
    auto& [entries, text] = blocks[at];
    const auto place = PlaceOf(entries, key.View());
    text = {};
    if (place != entries.end() && place->first == key)
        place->second = std::move(value);
    else
        entries.emplace(place, key, std::move(value));
    if (entries.size() > kMaxEntries) Split(at);
}

// A block that grew at its end keeps all but the newest entry: keys that come in order, as when a file is read, then
// leave full blocks behind. Others are halved.
void DefaultsEntries::Split(size_t block) {
    const bool isLast = block + 1 == blocks.size();
    Block second;
    auto& entries = blocks[block].entries;
    const auto middle = isLast ? entries.end() - 1 : entries.begin() + static_cast<long>(entries.size() / 2);
    second.entries.assign(std::make_move_iterator(middle), std::make_move_iterator(entries.end()));
    entries.erase(middle, entries.end());
    blocks.insert(blocks.begin() + static_cast<long>(block) + 1, std::move(second));
}

void DefaultsEntries::Remove(std::string_view key) {
    if (!Find(key)) return;
    const size_t at = BlockOf(key);
    auto& [entries, text] = blocks[at];
    text = {};
    entries.erase(PlaceOf(entries, key));
    if (entries.empty()) blocks.erase(blocks.begin() + static_cast<long>(at));
}

std::vector<NSPayload<std::string>> DefaultsEntries::Texts() {
    std::vector<NSPayload<std::string>> texts;
    texts.reserve(blocks.size() + 2);
    texts.emplace_back(std::string(kPropertyListHead));
    for (auto& [entries, text] : blocks) {
        if (!text) {
            std::string made;
            for (const auto& [key, value] : entries) AppendPropertyListEntry(made, key, value);
            text = NSPayload<std::string>(std::move(made));
        }
        texts.push_back(text);
    }
    texts.emplace_back(std::string(kPropertyListTail));
    return texts;
}

}  // namespace platform
