// NSFileManager: questions about files. Any thread.
#pragma once

#include <Foundation/NSString.h>

class NSFileManager {
public:
    static NSFileManager& defaultManager();

    // True when something stands at the path; links are followed.
    bool fileExistsAtPath(const NSString& path) const;
};
