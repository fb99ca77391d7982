// Walks the entries of one folder, in the folder's own order. One thread; closes itself at the end of the entries.
#pragma once

#include "files/LFile.h"
#include "text/LCopyBounded.h"

#include <dirent.h>

class LFile::FolderIterator {
public:
    FolderIterator() = default;
    virtual ~FolderIterator() { _Close(); }
    FolderIterator(const FolderIterator&) = delete;
    FolderIterator& operator=(const FolderIterator&) = delete;

    // Whether an entry belongs to the walk. Here: its name doesn't begin with a point or "__MACOSX", and matches the
    // pattern (LWildcard.h; case is ignored, byte by byte in the current locale).
    virtual bool _Matches(const char* name) const;

    // Starts at the first entry that matches. False if there is none, or no such folder. Folder and pattern are cut to
    // 259 bytes.
    bool Open(const char* folder, const char* pattern);
    // The same with "*"; for an existing regular file, its folder with its name as the pattern.
    bool Open(const char* path);
    // The same with "*", but only a folder itself, never one behind a link.
    bool _OpenFolder(const char* folder);

    // The next entry that matches; false at the end.
    bool Next();
    // The next entry of any name: 1, or 0 at the end.
    int _GetNextFile();

    bool IsOpen() const { return pFolder != nullptr; }
    const char* CurrentName() const { return currentEntry.d_name; }
    // Surely a regular file; some file systems don't tell.
    bool IsCurrentRegular() const { return currentEntry.d_type == DT_REG; }
    const char* Folder() const { return folderPath; }

    // The current entry's path in `dst`. False if it has more than 259 bytes: it would name something else then.
    bool GetCurrentPath(char* dst) const { return _JoinEntry(dst, folderPath, CurrentName()); }

    // folder/name, with a slash unless the folder ends with one (a back slash may be part of a name). False if it was
    // cut.
    static bool _JoinEntry(char* dst, const char* folder, const char* name);

private:
    bool _Start(DIR* opened, const char* folder, const char* pattern);
    void _Close();

    DIR* pFolder = nullptr;
    dirent currentEntry{};
    char folderPath[LTextBufferSize] = {};
    char patternText[LTextBufferSize] = {};  // in lower case
};

// Every entry, also ".", "..", hidden ones and "__MACOSX".
class LFile::FolderIteratorAllFiles : public LFile::FolderIterator {
public:
    bool _Matches(const char*) const override { return true; }
};
