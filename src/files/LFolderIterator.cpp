#include "files/LFolderIterator.h"

#include "files/LFilePath.h"
#include "files/LWildcard.h"
#include "text/LTextUtilities.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::string_view kArchiverFolder = "__MACOSX";

bool IsFolder(const char* path) {
    struct stat status {};
    return ::stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

bool IsRegularFile(const char* path) {
    struct stat status {};
    return ::stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

bool LFile::FolderIterator::_Matches(const char* name) const {
    if (*name == '.' || std::strncmp(name, kArchiverFolder.data(), kArchiverFolder.size()) == 0) return false;
    if (patternText[0] == '*' && !patternText[1]) return true;
    char lower[LTextBufferSize];
    LCopyBounded(lower, name, sizeof lower);
    return LFile::IsMatch<char>(patternText, strlwr(lower));
}

bool LFile::FolderIterator::Open(const char* folder, const char* pattern) {
    _Close();
    if (!folder || !LFileExists(folder) || !IsFolder(folder)) return false;
    return _Start(::opendir(folder), folder, pattern);
}

bool LFile::FolderIterator::Open(const char* path) {
    if (!path || !IsRegularFile(path)) return Open(path, "*");
    char folder[LTextBufferSize], name[LTextBufferSize];
    LFile::_GetFolderFromPath(folder, path);
    LFile::_GetFileFromPath(name, path);
    return Open(folder, name);
}

bool LFile::FolderIterator::_OpenFolder(const char* folder) {
    _Close();
    const int descriptor = ::open(folder, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor < 0) return false;
    DIR* const opened = ::fdopendir(descriptor);
    if (!opened) ::close(descriptor);
    return _Start(opened, folder, "*");
}

bool LFile::FolderIterator::_Start(DIR* opened, const char* folder, const char* pattern) {
    pFolder = opened;
    if (!pFolder) return false;
    LCopyBounded(folderPath, folder, sizeof folderPath);
    LCopyBounded(patternText, pattern, sizeof patternText);
    strlwr(patternText);
    return Next();
}

bool LFile::FolderIterator::Next() {
    while (_GetNextFile())
        if (_Matches(currentEntry.d_name)) return true;
    return false;
}

int LFile::FolderIterator::_GetNextFile() {
    currentEntry.d_name[0] = '\0';
    if (!pFolder) return 0;
    const dirent* read;
    do read = ::readdir(pFolder);
    while (read && std::strlen(read->d_name) >= sizeof currentEntry.d_name);  // some file systems have longer names
    if (!read) {
        _Close();
        return 0;
    }
    // The rest of the record isn't there.
    std::memcpy(&currentEntry, read, std::min<size_t>(read->d_reclen, sizeof currentEntry));
    return 1;
}

void LFile::FolderIterator::_Close() {
    if (pFolder) ::closedir(pFolder);
    pFolder = nullptr;
}

bool LFile::FolderIterator::_JoinEntry(char* dst, const char* folder, const char* name) {
    LCopyBounded(dst, folder, LTextBufferSize);
    const size_t length = std::strlen(dst);
    if (length && dst[length - 1] != '/') LAppendBounded(dst, "/", LTextBufferSize);
    return LAppendBounded(dst, name, LTextBufferSize) < LTextBufferSize && std::strlen(folder) < LTextBufferSize;
}

template <class T>
bool LFile::IsMatch(const T* pattern, const T* name) {
    const T none{};
    return LMatchesWildcard<T>(pattern ? pattern : &none, name ? name : &none);
}

template bool LFile::IsMatch(const char* pattern, const char* name);
template bool LFile::IsMatch(const wchar_t* pattern, const wchar_t* name);
