// LCFURL: owns one of the platform's file URLs, or none. One thread at a time.
#pragma once

#include "text/LCFReference.h"

class LCFURL : public LCFReference<CFURLRef> {
public:
    using LCFReference::LCFReference;

    // Holds a URL made from the path's text with every byte but letters, digits and - . ! _ ~ written as "%XX", cut to
    // 259 bytes; marked as a folder when there is one at the path. The platform takes that text for a path as it
    // stands, so the URL names a file of that name ("%2Fa%20b") in the working folder, not the path's. None for an
    // empty path.
    void CreateFromFullPath(const char* path);
};
