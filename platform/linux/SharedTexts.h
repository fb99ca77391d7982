// SharedTexts: texts that files repeat (each schedule has the same seven keys, most the same application, each
// schedule's key also stands in the list of all), made once: the last text of each hash is kept at hand, and equal ones
// share its payload. Lives while one file is read; one thread.
#pragma once

#include <Foundation/NSString.h>

#include <algorithm>
#include <functional>
#include <string_view>
#include <vector>

namespace platform {

class SharedTexts {
public:
    explicit SharedTexts(size_t fileSize) : recent(std::clamp<size_t>(fileSize / 128, 64, 32768)) {}

    // Null when the text is none for an NSString.
    NSString Get(std::string_view text) {
        NSString& kept = recent[std::hash<std::string_view>()(text) % recent.size()];
        if (!kept || kept.View() != text) kept = NSString(text);
        return kept;
    }

private:
    std::vector<NSString> recent;
};

}  // namespace platform
