// LToFSSpec: a file record of the platform's old kind, made from a path and turned back into one. Owns its record. One
// thread at a time.
#pragma once

#include <Carbon/Carbon.h>

class LToFSSpec {
public:
    LToFSSpec() = default;  // not valid
    explicit LToFSSpec(const FSSpec& of) : record(of), bValid(true) {}
    explicit LToFSSpec(const char* path) : bValid(CStringToFSSpec(path, &record) == noErr) {}

    bool IsValid() const { return bValid; }

    // Fills the record for a path that exists, or whose folder does. 0; -108 when the platform takes the text for no
    // path (null and "" too); -43 when the folder is missing or the name has more than 63 bytes.
    static long CStringToFSSpec(const char* path, FSSpec* record);

    // The record's path from the root, links resolved, cut to size - 1 bytes; empty when the record isn't valid. A ":"
    // in a name comes out as "/": records part their folders with it.
    void GetString(char* out, unsigned long size) const;

private:
    FSSpec record;
    bool bValid = false;
};
