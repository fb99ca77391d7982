// LFile's operations on whole folders. None of them follows a link below the folder that it was given, and none acts on
// a path that was cut: it would name something else.
#include "files/LFile.h"
#include "files/LFilePath.h"
#include "files/LFolderIterator.h"

#include <bsd/fileflags.h>
#include <bsd/wallclock.h>

#include <cstring>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr long kSecondsPerDay = 86'400;

// Copies a path that the caller named into 260 bytes, without the slashes at its end (with them, the system would
// follow a link). False if it is empty or too long.
bool TakePath(char* dst, const char* path) {
    const unsigned long length = LCopyBounded(dst, path, LTextBufferSize);
    if (length == 0 || length >= LTextBufferSize) return false;
    for (size_t end = length - 1; end > 0 && dst[end] == '/'; end--) dst[end] = '\0';
    return true;
}

bool IsFolderItself(const char* path) {
    struct stat status {};
    return ::lstat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

bool IsStepOnTheWay(std::string_view name) {
    return name == "." || name == "..";
}

// Calls visit(path, isFolder) for what lies in a folder.
template <class Visit>
void ForEachEntry(const char* folder, Visit visit) {
    LFile::FolderIteratorAllFiles entries;
    char path[LTextBufferSize];
    for (bool more = entries._OpenFolder(folder); more; more = entries.Next())
        if (!IsStepOnTheWay(entries.CurrentName()) && entries.GetCurrentPath(path)) visit(path, IsFolderItself(path));
}

// Removes a folder's files and folders by these two, then the folder.
template <class RemoveFile, class RemoveFolder>
bool RemoveWith(const char* given, RemoveFile removeFile, RemoveFolder removeFolder) {
    char path[LTextBufferSize];
    if (!TakePath(path, given)) return false;
    ForEachEntry(path, [&](const char* entry, bool isFolder) {
        if (isFolder)
            removeFolder(entry);
        else
            removeFile(entry);
    });
    return ::rmdir(path) == 0;
}

}  // namespace

bool LFile::CreateFolderTree(const char* given) {
    char path[LTextBufferSize];
    if (!TakePath(path, given)) return false;
    // Only "/" parts folders here: one whose name holds a back slash has no other one above it.
    const char* const slash = std::strrchr(path, '/');
    const std::string parent(path, slash ? static_cast<size_t>(slash - path) : 0);
    const auto isThere = [&] { return parent.empty() || LFileExists(parent.c_str()); };
    if (!isThere() && !CreateFolderTree(parent.c_str()) && !isThere()) return false;
    return ::mkdir(path, 0777) == 0;
}

bool LFile::DeleteFolderTree(const char* path) {
    return RemoveWith(path, ::unlink, DeleteFolderTree);
}

bool LFile::DeleteFolderTreeAlways(const char* path) {
    const auto removeFile = [](const char* file) {
        ::chflags(file, 0);
        ::unlink(file);
    };
    return RemoveWith(path, removeFile, DeleteFolderTreeAlways);
}

bool LFile::DeleteFolderAndFiles(const char* path) {
    return RemoveWith(path, ::unlink, [](const char*) {});
}

void LFile::DeleteOldFiles(const char* folder, const char* pattern, int days) {
    if (days <= 0) return;
    const time_t cutOff = wallclock_time() - days * kSecondsPerDay;
    FolderIterator files;
    char path[LTextBufferSize];
    for (bool more = files.Open(folder, pattern); more; more = files.Next())
        if (files.GetCurrentPath(path) && ::birth_time_of(path) < cutOff) ::unlink(path);
}

void LFile::SetFolderSecurityAllAccess(const char* given) {
    char path[LTextBufferSize];
    struct stat status {};
    if (!TakePath(path, given) || ::lstat(path, &status) != 0 || S_ISLNK(status.st_mode)) return;
    ::chmod(path, 0777);
    if (S_ISDIR(status.st_mode)) ForEachEntry(path, [](const char* entry, bool) { SetFolderSecurityAllAccess(entry); });
}
