#include "text/LCFBundle.h"

#include "text/LCFString.h"
#include "text/LCopyBounded.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

int NumberOf(std::string_view text) {
    const long number = std::strtol(std::string(text).c_str(), nullptr, 10);
    return static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));  // a mere cut would read 4294967298 as 2
}

}  // namespace

bool LCFBundle::GetVersionNumber(int& major, int& minor) const {
    const auto value = static_cast<CFStringRef>(CFBundleGetValueForInfoDictionaryKey(Get(), kCFBundleVersionKey));
    if (!value) return false;
    const LCFString string(static_cast<CFStringRef>(CFRetain(value)));
    char text[LTextBufferSize];
    string.GetString(text, sizeof text);
    if (!text[0]) return false;
    ParseVersion(text, major, minor);
    return true;
}

void LCFBundle::ParseVersion(const char* text, int& major, int& minor) {
    std::string_view version = text ? text : "";
    if (version.starts_with('V')) {
        const size_t blank = version.find(' ');
        version = blank == std::string_view::npos ? "" : version.substr(blank + 1);
    }
    const size_t point = version.find('.');
    major = NumberOf(version.substr(0, point));
    minor = point == std::string_view::npos ? 0 : NumberOf(version.substr(point + 1));
}
