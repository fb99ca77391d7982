// LCFBundle: owns one of the platform's bundles, or none. One thread at a time.
#pragma once

#include "text/LCFReference.h"

class LCFBundle : public LCFReference<CFBundleRef> {
public:
    using LCFReference::LCFReference;

    // The bundle's "CFBundleVersion" as two numbers; false, and the numbers as they were, when it is missing or empty.
    bool GetVersionNumber(int& major, int& minor) const;

    // The two numbers of a version's text: in front of the first "." and behind it, each up to its first character that
    // belongs to no number, 0 when there is none, clamped to the range of int. What begins with "V" counts from behind
    // its first blank. "2.14", "2.14.1", "2.014", "V 2.14" and "Version 2.14" are 2 and 14; "V2.14" is 0 and 0.
    static void ParseVersion(const char* text, int& major, int& minor);
};
