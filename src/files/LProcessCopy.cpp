#include "files/LProcessCopy.h"

#include "files/LFile.h"
#include "files/LFileIdentity.h"
#include "files/LFilePath.h"
#include "files/LFileTransfer.h"
#include "files/LFolderIterator.h"
#include "files/LLockFile.h"

#include <bsd/LDescriptor.h>

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>

namespace {

constexpr size_t kChunk = 32'768;
constexpr unsigned int kLockMs = 1'000;

bool IsPath(const char* path) {
    return path && *path && std::strlen(path) < LTextBufferSize;
}

bool IsFolderItself(const char* path) {
    struct stat status {};
    return ::lstat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

LDescriptor Open(const char* path, int flags, int lock) {
    LDescriptor file(::open(path, flags | O_NONBLOCK | O_CLOEXEC, 0666));
    struct stat status {};
    if (file && (::fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode))) file.Reset();
    if (file) flocktimed(file.Get(), lock | LOCK_NB, kLockMs);
    return file;
}

// A link there is replaced, so that nothing is written behind it.
LDescriptor OpenDestination(const char* path) {
    struct stat status {};
    if (::lstat(path, &status) == 0 && S_ISLNK(status.st_mode)) ::unlink(path);
    return Open(path, O_RDWR | O_CREAT | O_NOFOLLOW, LOCK_EX);
}

int CopyChunks(LProcessInterface& process, int from, int to, uint64_t size) {
    const std::unique_ptr<char[]> buffer(new char[kChunk]);
    const double step = static_cast<double>(kChunk) / static_cast<double>(std::max<uint64_t>(size, 1));
    double progress = 0;
    for (uint64_t left = size; left > 0;) {
        if (process.IsToStop()) return processStopped;
        const size_t count = std::min<uint64_t>(left, kChunk);
        if (LReadAll(from, buffer.get(), count) != count || LWriteAll(to, buffer.get(), count) != count)
            return processFailed;
        process.SetProgress(progress);
        progress += step;
        left -= count;
    }
    return processDone;
}

// A file that is empty anyway isn't cut: ext4 would write it out as soon as it is closed, as one whose content is being
// replaced, and a copy of many files would take three times as long.
bool MakeEmpty(int fd) {
    struct stat status {};
    return ::fstat(fd, &status) == 0 && (status.st_size == 0 || ::ftruncate(fd, 0) == 0);
}

// The modification time of the source, in whole seconds.
void CarryTimeOver(const struct stat& source, int to) {
    const timespec times[] = {{0, UTIME_OMIT}, {source.st_mtim.tv_sec, 0}};
    ::futimens(to, times);
}

bool IsOneFile(const char* a, const char* b) {
    struct stat first {
    }, second{};
    return ::stat(a, &first) == 0 && ::stat(b, &second) == 0 && LIsSameFile(first, second);
}

// The folder and the name in it. Only "/" parts them: a back slash may belong to a name that came from a folder.
struct Place {
    explicit Place(const char* path) {
        const std::string_view text = path ? path : "";
        const size_t slash = text.rfind('/');
        name = text.substr(slash == std::string_view::npos ? 0 : slash + 1);
        if (slash != std::string_view::npos) folder = text.substr(0, std::max<size_t>(slash, 1));
    }

    std::string folder, name;
};

// Calls visit(name) for each entry until one gives another result than processDone.
template <class Visit>
int ForEachEntry(const char* folder, Visit visit) {
    LFile::FolderIteratorAllFiles entries;
    for (bool more = entries.Open(folder, "*"); more; more = entries.Next()) {
        const std::string_view name = entries.CurrentName();
        if (name == "." || name == "..") continue;
        if (const int result = visit(entries.CurrentName())) return result;
    }
    return processDone;
}

// Not entered: what it leads to is nobody's copy.
int CopyLinkToFolder(const char* source, const char* destination) {
    return LFile::CopyFile(source, destination) ? processDone : processFailed;
}

int CopyTree(LProcessInterface& process, const char* source, const char* destination);

int CopyEntry(LProcessInterface& process, const char* sourceFolder, const char* destinationFolder, const char* name) {
    char source[LTextBufferSize], destination[LTextBufferSize];
    if (!LFile::FolderIterator::_JoinEntry(source, sourceFolder, name) ||
        !LFile::FolderIterator::_JoinEntry(destination, destinationFolder, name))
        return processFailed;
    struct stat status {};
    if (::stat(source, &status) != 0 || !S_ISDIR(status.st_mode))
        return Process(process, LProcessCopyFile{source, destination});
    if (!IsFolderItself(source)) return CopyLinkToFolder(source, destination);
    LFile::CreateFolderTree(destination);
    return CopyTree(process, source, destination);
}

int CopyTree(LProcessInterface& process, const char* source, const char* destination) {
    int count = 0, index = 0;
    ForEachEntry(source, [&](const char*) { return ++count, processDone; });
    return ForEachEntry(source, [&](const char* name) {
        const auto entries = static_cast<float>(count);
        LProcessInterfaceSubProcess step(process, static_cast<float>(index++) / entries, 1 / entries);
        return CopyEntry(step, source, destination, name);
    });
}

}  // namespace

int Process(LProcessInterface& process, const LProcessCopyFile& job) {
    const Place place(job.destination);
    process.SetStatus("Copy File", 0);
    process.SetStatus(place.name.c_str(), 1);
    process.SetProgress(0.0);
    if (!IsPath(job.source) || !IsPath(job.destination) || !LFileExists(place.folder.c_str()) ||
        IsOneFile(job.source, job.destination))
        return processFailed;
    const LDescriptor from = Open(job.source, O_RDONLY, LOCK_SH);
    struct stat status {};
    if (!from || ::fstat(from.Get(), &status) != 0) return processFailed;
    LDescriptor to = OpenDestination(job.destination);
    if (!to) return processFailed;
    int result = MakeEmpty(to.Get()) ? CopyChunks(process, from.Get(), to.Get(), static_cast<uint64_t>(status.st_size))
                                     : processFailed;
    if (result == processDone) CarryTimeOver(status, to.Get());
    if (!to.Close() && result == processDone) result = processFailed;
    if (result != processDone) ::unlink(job.destination);
    return result;
}

int Process(LProcessInterface& process, const LProcessCopyFolder& job) {
    struct stat source {};
    if (!IsPath(job.source) || !IsPath(job.destination) || ::stat(job.source, &source) != 0) return processFailed;
    if (S_ISDIR(source.st_mode) && LLiesInFolder(source, job.destination)) return processFailed;
    return CopyTree(process, job.source, job.destination);
}
