#include "system/LLocale.h"

#include "text/LCFReference.h"

#include <CoreFoundation/CFPreferences.h>

#include <clocale>
#include <string>

namespace {

constexpr const char* kApplication = "com.tarnwick.schedulehelper";

using Identifier = char[6];  // five characters

bool Read(CFStringRef text, Identifier& identifier) {
    identifier[0] = '\0';
    if (!text) return false;
    const CFIndex length = CFStringGetLength(text);
    for (CFIndex kept = length < 5 ? length : 5; kept > 0; kept--) {
        UniChar units[5];
        CFStringGetCharacters(text, CFRangeMake(0, kept), units);
        const LCFReference<CFStringRef> begin(CFStringCreateWithCharacters(kCFAllocatorDefault, units, kept));
        if (CFStringGetCString(begin.Get(), identifier, sizeof identifier, kCFStringEncodingUTF8)) return true;
    }
    return false;
}

void FindIdentifier(Identifier& identifier) {
    const LCFReference<CFLocaleRef> current(CFLocaleCopyCurrent());
    if (Read(CFLocaleGetIdentifier(current.Get()), identifier)) return;
    const LCFReference<CFStringRef> key(CFStringCreateWithCString(nullptr, "AppleLocale", kCFStringEncodingUTF8));
    const LCFReference<CFStringRef> application(
        CFStringCreateWithCString(nullptr, kApplication, kCFStringEncodingUTF8));
    const LCFReference<CFStringRef> own(CFPreferencesCopyAppValue(key.Get(), application.Get()));
    if (Read(own.Get(), identifier)) return;
    const LCFReference<CFStringRef> everybodys(CFPreferencesCopyAppValue(key.Get(), kCFPreferencesAnyApplication));
    Read(everybodys.Get(), identifier);
}

std::string FirstLocale(int category) {
    Identifier identifier;
    FindIdentifier(identifier);
    if (!std::setlocale(LC_ALL, (std::string(identifier) + ".UTF-8").c_str())) std::setlocale(LC_ALL, identifier);
    const char* const name = std::setlocale(category, nullptr);
    return name ? name : "";
}

}  // namespace

const char* LGetLocale(int category) {
    static const std::string& szLocale = *new std::string(FirstLocale(category));
    return szLocale.c_str();
}
