// LFile's copying of files and folder trees.
#include "files/LFile.h"
#include "files/LFilePath.h"
#include "files/LFolderIterator.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>
#include <utility>

namespace {

constexpr size_t kCopySize = size_t{128} * 1024;

class File {
public:
    explicit File(int descriptor) : fd(descriptor) {}
    ~File() {
        if (fd >= 0) ::close(fd);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    int Get() const { return fd; }
    // False when closing fails: what was written may be lost then.
    bool Close() { return ::close(std::exchange(fd, -1)) == 0; }

private:
    int fd;
};

bool IsSame(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Whether two paths are one entry of one folder. A second hard link to the same file is another entry.
bool IsSameEntry(const char* a, const char* b) {
    struct stat first {
    }, second{};
    if (::lstat(a, &first) != 0 || ::lstat(b, &second) != 0 || !IsSame(first, second)) return false;
    if (first.st_nlink == 1) return true;
    char folderOfA[LTextBufferSize], folderOfB[LTextBufferSize];
    char nameOfA[LTextBufferSize], nameOfB[LTextBufferSize];
    for (const auto& [path, folder, name] : {std::tuple(a, folderOfA, nameOfA), std::tuple(b, folderOfB, nameOfB)}) {
        const char* const slash = std::strrchr(path, '/');
        LCopyBounded(name, slash ? slash + 1 : path, LTextBufferSize);
        const std::string parent = !slash ? "." : slash == path ? "/" : std::string(path, slash);
        LCopyBounded(folder, parent.c_str(), LTextBufferSize);
    }
    return std::strcmp(nameOfA, nameOfB) == 0 && ::stat(folderOfA, &first) == 0 && ::stat(folderOfB, &second) == 0 &&
           IsSame(first, second);
}

bool CopyBytes(int from, int to) {
    const std::unique_ptr<char[]> buffer(new char[kCopySize]);
    for (;;) {
        const ssize_t count = ::read(from, buffer.get(), kCopySize);
        if (count == 0) return true;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        for (ssize_t done = 0; done < count;) {
            const ssize_t written = ::write(to, buffer.get() + done, static_cast<size_t>(count - done));
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) return false;
            done += written;
        }
    }
}

// Makes something new beside `dst` with make(path) and then gives it that name: what stands there is replaced as a
// whole, or stays as it was.
template <class Make>
bool Replace(const char* dst, Make make) {
    for (int number = 0; number < 1'000; number++) {
        const char* const slash = std::strrchr(dst, '/');
        const std::string folder(dst, slash ? slash + 1 : dst);
        const std::string fresh = folder + ".copy-" + std::to_string(::getpid()) + "-" + std::to_string(number);
        const bool isMade = make(fresh.c_str());
        if (!isMade && errno == EEXIST) continue;  // another thread's, or left by a crash
        if (isMade && ::rename(fresh.c_str(), dst) == 0) return true;
        ::unlink(fresh.c_str());
        return false;
    }
    return false;
}

bool CopyRegularFile(const char* src, const char* dst) {
    const File from(::open(src, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (from.Get() < 0 || ::fstat(from.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
    return Replace(dst, [&](const char* fresh) {
        File to(::open(fresh, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (to.Get() < 0) return false;
        const bool isCopied = CopyBytes(from.Get(), to.Get()) && ::fchmod(to.Get(), status.st_mode & 07777) == 0;
        const bool isClosed = to.Close();
        errno = 0;  // the file is ours, whatever went wrong
        return isCopied && isClosed;
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
    if (IsSameEntry(src, place)) return false;
    return Replace(place, [&](const char* fresh) { return ::symlink(text.c_str(), fresh) == 0; });
}

// Whether `path`, which may not exist yet, is the folder or lies below it, through links too.
bool LiesIn(const struct stat& folder, const char* path) {
    std::string text = path;
    struct stat status {};
    while (::stat(text.c_str(), &status) != 0) {
        const size_t slash = text.rfind('/');
        text = slash == std::string::npos ? "." : slash == 0 ? "/" : text.substr(0, slash);
    }
    for (;;) {
        if (IsSame(status, folder)) return true;
        const struct stat below = status;
        text += "/..";
        if (::stat(text.c_str(), &status) != 0 || IsSame(status, below)) return false;  // the root is its own parent
    }
}

bool IsTooLong(const char* path) {
    return !path || !*path || std::strlen(path) >= LTextBufferSize;
}

void CopyEntries(const char* src, const char* dst) {
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
        ::mkdir(to, 0777);
        CopyEntries(from, to);
    }
}

}  // namespace

bool LFile::CopyFile(const char* src, const char* dst) {
    struct stat status {};
    if (IsTooLong(src) || IsTooLong(dst) || ::lstat(src, &status) != 0) return false;
    if (S_ISLNK(status.st_mode)) return CopyLink(src, dst);
    return !IsSameEntry(src, dst) && CopyRegularFile(src, dst);
}

void LFile::CopyFolderFiles(const char* src, const char* dst) {
    struct stat source {
    }, target{};
    if (IsTooLong(src) || IsTooLong(dst) || ::stat(src, &source) != 0 || !S_ISDIR(source.st_mode)) return;
    if (LiesIn(source, dst)) return;  // it would never end
    const bool isThere = ::stat(dst, &target) == 0 && S_ISDIR(target.st_mode);
    if (isThere || CreateFolderTree(dst)) CopyEntries(src, dst);
}
