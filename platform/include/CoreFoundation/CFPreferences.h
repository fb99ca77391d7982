// Core Foundation's locale and preferences, the subset that this system calls. Any thread, while no thread changes the
// environment.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

using CFLocaleRef = const struct CFLocale*;

// Of messages, by LC_ALL, LC_MESSAGES or LANG, without encoding and variant: "en_GB"; "" when none of them says
// anything.
CFLocaleRef CFLocaleCopyCurrent();
CFStringRef CFLocaleGetIdentifier(CFLocaleRef locale);

// Stands for what holds for all applications (.GlobalPreferences.plist beside theirs).
inline constexpr CFStringRef kCFPreferencesAnyApplication = nullptr;
// What the defaults file of the application holds now under the key, if that is a text; else null.
CFStringRef CFPreferencesCopyAppValue(CFStringRef key, CFStringRef application);
