// LFile's copying of files and folder trees.
#include "files/LFile.h"
#include "files/LFileIdentity.h"
#include "files/LFilePath.h"
#include "files/LFileTransfer.h"
#include "files/LFolderIterator.h"

#include <bsd/LDescriptor.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t kCopySize = size_t{128} * 1024;

bool CopyBytes(int from, int to) {
    const std::unique_ptr<char[]> buffer(new char[kCopySize]);
    for (;;) {
        const ssize_t count = LReadOnce(from, buffer.get(), kCopySize);
        if (count <= 0) return count == 0;
        if (LWriteAll(to, buffer.get(), static_cast<size_t>(count)) != static_cast<size_t>(count)) return false;
    }
}

// Makes something new beside `dst` with make(path, isOurs) and then gives it that name: what stands there is replaced
// as a whole, or stays as it was. make() takes isOurs back, and leaves errno, where it made nothing at all.
template <class Make>
bool Replace(const char* dst, Make make) {
    for (int number = 0; number < 1'000; number++) {
        const char* const slash = std::strrchr(dst, '/');
        const std::string folder(dst, slash ? slash + 1 : dst);
        const std::string fresh = folder + ".copy-" + std::to_string(::getpid()) + "-" + std::to_string(number);
        bool isOurs = true;
        if (make(fresh.c_str(), isOurs) && ::rename(fresh.c_str(), dst) == 0) return true;
        if (isOurs)
            ::unlink(fresh.c_str());
        else if (errno == EEXIST)  // another thread's, or left by a crash
            continue;
        return false;
    }
    return false;
}

bool CopyRegularFile(const char* src, const char* dst) {
    const LDescriptor from(::open(src, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!from || ::fstat(from.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
    return Replace(dst, [&](const char* fresh, bool& isOurs) {
        LDescriptor to(::open(fresh, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (!to) return isOurs = false;
        const bool isCopied = CopyBytes(from.Get(), to.Get()) && ::fchmod(to.Get(), status.st_mode & 07777) == 0;
        return to.Close() && isCopied;
    });
}

// As `cp -R` does it: into an existing folder, or in the place of an existing file; but a link there is replaced,
// wherever it leads.
bool CopyLink(const char* src, const char* dst) {
    char target[4096];
    const ssize_t length = ::readlink(src, target, sizeof target);
    if (length < 0 || length == static_cast<ssize_t>(sizeof target)) return false;
    const std::string text(target, static_cast<size_t>(length));
    char place[LTextBufferSize];
    struct stat status {};
    LCopyBounded(place, dst, sizeof place);
    if (::lstat(dst, &status) == 0 && S_ISDIR(status.st_mode)) {
        const char* const slash = std::strrchr(src, '/');
        if (!LFile::FolderIterator::_JoinEntry(place, dst, slash ? slash + 1 : src)) return false;
    }
    if (LIsSameEntry(src, place)) return false;
    return Replace(place,
                   [&](const char* fresh, bool& isOurs) { return isOurs = ::symlink(text.c_str(), fresh) == 0; });
}

bool IsTooLong(const char* path) {
    return !path || !*path || std::strlen(path) >= LTextBufferSize;
}

// `root` is the folder whose copying began it all: a folder of the copy that was there before may lead back into it.
void CopyEntries(const struct stat& root, const char* src, const char* dst) {
    LFile::FolderIteratorAllFiles entries;
    char from[LTextBufferSize], to[LTextBufferSize];
    for (bool more = entries.Open(src, "*"); more; more = entries.Next()) {
        const std::string_view name = entries.CurrentName();
        if (name == "." || name == ".." || !entries.GetCurrentPath(from) ||
            !LFile::FolderIterator::_JoinEntry(to, dst, entries.CurrentName()))
            continue;
        struct stat status {};
        if (::lstat(from, &status) != 0) continue;
        if (!S_ISDIR(status.st_mode)) {
            LFile::CopyFile(from, to);
            continue;
        }
        if (::mkdir(to, 0777) == 0 || !LLiesInFolder(root, to)) CopyEntries(root, from, to);
    }
}

}  // namespace

bool LFile::CopyFile(const char* src, const char* dst) {
    struct stat status {};
    if (IsTooLong(src) || IsTooLong(dst) || ::lstat(src, &status) != 0) return false;
    if (S_ISLNK(status.st_mode)) return CopyLink(src, dst);
    return !LIsSameEntry(src, dst) && CopyRegularFile(src, dst);
}

void LFile::CopyFolderFiles(const char* src, const char* dst) {
    struct stat source {
    }, target{};
    if (IsTooLong(src) || IsTooLong(dst) || ::stat(src, &source) != 0 || !S_ISDIR(source.st_mode)) return;
    if (LLiesInFolder(source, dst)) return;  // it would never end
    const bool isThere = ::stat(dst, &target) == 0 && S_ISDIR(target.st_mode);
    if (isThere || CreateFolderTree(dst)) CopyEntries(source, src, dst);
}
