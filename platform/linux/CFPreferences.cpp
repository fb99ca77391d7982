#include "CFObject.h"
#include "PropertyListReader.h"
#include "UserDefaultsFile.h"

#include <CoreFoundation/CFPreferences.h>

#include <cstdlib>

struct CFLocale {
    platform::CFHeader header;
    CFStringRef identifier;

    ~CFLocale() { CFRelease(identifier); }
};

CFLocaleRef CFLocaleCopyCurrent() {
    std::string_view name;
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"})
        if (const char* value = std::getenv(variable); value && *value && name.empty()) name = value;
    return platform::MakeCF<CFLocale>(platform::CFStringFromUtf8(name.substr(0, name.find_first_of(".@"))));
}

CFStringRef CFLocaleGetIdentifier(CFLocaleRef locale) {
    return locale->identifier;
}

CFStringRef CFPreferencesCopyAppValue(CFStringRef key, CFStringRef application) {
    using namespace platform;
    const std::string name = application ? Utf8FromCFString(application) : ".GlobalPreferences";
    std::string bytes;
    if (ReadOwnFile(FileCalls::System(), UserDefaultsPath(name), bytes) != 0) return nullptr;
    const std::optional<NSDictionary> content = ParsePropertyList(bytes);
    if (!content) return nullptr;
    const NSString text = content->valueForKey(NSString(Utf8FromCFString(key))).String();
    return text ? CFStringFromUtf8(text.UTF8String()) : nullptr;
}
