// UserDefaultsFile: one property list file that survives crashes and power failures as a whole. It is replaced, never
// written in place:
//
//     fsync the folders above, once     whoever made them may have crashed before they were safe
//     write <path>.new, fsync it        its bytes are safe before its name is
//     rename it to <path>               readers see the old file or the new one
//     fsync the folder                  the new name is safe
//
// A failure before the rename leaves the old file, one after it the new one, and no <path>.new. What a crash leaves
// under that name is removed by the next replacement: one process writes a store, so it cannot be somebody's work in
// progress. A crash behind the rename leaves a file that readers see and a power failure would take back: what has been
// read is safe only after MakeSafe.
//
// A file that cannot be parsed is kept as <path>.damaged-<n>; one that cannot be read, or not be set aside, is left
// alone by the caller until reading works. Not for several threads at a time.
#pragma once

#include "FileCalls.h"

#include <Foundation/NSDictionary.h>

#include <string>
#include <vector>

namespace platform {

// Where the defaults of an application lie: $XDG_CONFIG_HOME/<bundle identifier>.plist, ~/.config by default.
std::string UserDefaultsPath(const std::string& bundleIdentifier);
// The same for the running program; without an Info.plist or an identifier in it, it goes by the program's name. The
// application's single-instance lock is this path with ".lock" at its end. "" (errno) when what the bundle says can't
// be read: under another name there would be another store, without the schedules.
std::string MainBundleUserDefaultsPath();

class UserDefaultsFile {
public:
    UserDefaultsFile(std::string filePath, FileCalls& fileCalls) : path(std::move(filePath)), calls(fileCalls) {}

    enum class Reading { Done, Failed };
    // Gives the content; empty when there is no file, or when it was damaged and set aside.
    Reading Read(NSDictionary& content);

    // Makes `parts`, one after the other, the file's bytes, and makes the folders on its way.
    bool Replace(const std::vector<NSPayload<std::string>>& parts);

    // Makes what was read survive a power failure, unless it is known to.
    bool MakeSafe();

private:
    bool SetAside();
    bool MakeFoldersSafe();
    bool WriteNew(const std::string& newPath, const std::vector<NSPayload<std::string>>& parts);
    int OpenNew(const std::string& newPath);
    bool WriteParts(int descriptor, std::vector<iovec> parts);
    void Report(const char* what, int error);

    const std::string path;
    FileCalls& calls;
    bool nameIsSafe = true;       // what `path` stands for is on disk, or it stands for nothing
    bool foldersAreSafe = false;  // so are the names of the folders on its way
    int reported = 0;  // the errno of the last line: a store that stays unreadable is not announced with every change
};

}  // namespace platform
