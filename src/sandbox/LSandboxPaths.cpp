// LFile's paths into and out of a sandbox's container.
#include "files/LFile.h"
#include "files/LFilePath.h"
#include "files/LFolderIterator.h"
#include "text/LAscii.h"
#include "text/LCopyBounded.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace {

std::string Home() {
    char home[LTextBufferSize];
    LFile::GetUserFolder(home);
    return home;
}

void JoinToRealHome(char* dst, const char* name) {
    char home[LTextBufferSize];
    LFile::GetUserFolderNonSandboxed(home);
    LFile::_MakeFilePath(dst, home, name, "");
}

// The path with all its links followed, if that is outside the container; else nothing.
std::string ResolveOutside(const char* path) {
    const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path, nullptr), &std::free);
    return real && std::strlen(real.get()) < LTextBufferSize && !LFile::IsPathInSandbox(real.get()) ? real.get() : "";
}

bool IsLink(const char* path) {
    struct stat status {};
    return ::lstat(path, &status) == 0 && S_ISLNK(status.st_mode);
}

// Of a path whose end doesn't exist: the first folder on the way that is a link right below home, resolved, with what
// follows it.
bool ResolveMissing(char* dst, const char* path) {
    const std::string home = Home();
    std::string_view rest = std::string_view(path).substr(home.size());
    if (rest.starts_with('/')) rest.remove_prefix(1);
    for (size_t begin = 0, end; (end = rest.find('/', begin)) != std::string_view::npos; begin = end + 1) {
        char candidate[LTextBufferSize];
        const std::string component(rest.substr(begin, end - begin));
        if (!LFile::FolderIterator::_JoinEntry(candidate, home.c_str(), component.c_str()) || !IsLink(candidate))
            continue;
        const std::string target = ResolveOutside(candidate);
        return !target.empty() &&
               LFile::FolderIterator::_JoinEntry(dst, target.c_str(), std::string(rest.substr(end + 1)).c_str());
    }
    return false;
}

}  // namespace

bool LFile::IsPathInSandbox(const char* path) {
    const std::string home = Home();
    return path && LAsciiCompareNoCase(path, home.c_str(), home.size()) == 0;
}

bool LFile::MakeNonSandboxedFilePath(char* dst, const char* path) {
    std::string target;
    if (LFileExists(path)) {
        target = ResolveOutside(path);
    } else if (IsPathInSandbox(path)) {
        char resolved[LTextBufferSize];
        if (ResolveMissing(resolved, path)) target = resolved;
    }
    LCopyBounded(dst, target.c_str(), LTextBufferSize);
    return !target.empty();
}

void LFile::GetUserDownloadFolderNonSandboxed(char* dst) {
    JoinToRealHome(dst, "Downloads");
}

void LFile::GetUserVideoFolderNonSandboxed(char* dst) {
    JoinToRealHome(dst, "Movies");
}

void LFile::GetUserMusicFolderNonSandboxed(char* dst) {
    JoinToRealHome(dst, "Music");
}

void LFile::GetUserPicturesFolderNonSandboxed(char* dst) {
    JoinToRealHome(dst, "Pictures");
}
