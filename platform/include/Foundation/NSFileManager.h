// NSFileManager: questions about files. Any thread.
#pragma once

#include <Foundation/NSString.h>

class NSFileManager {
public:
    static NSFileManager& defaultManager();

    // False when nothing stands at the path; links are followed. Where that can't be told (no memory, a volume that
    // doesn't answer) the answer is true: callers drop what belongs to a missing file.
    bool fileExistsAtPath(const NSString& path) const;
};
