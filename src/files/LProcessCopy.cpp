#include "files/LProcessCopy.h"

#include "files/LFile.h"
#include "files/LFileIdentity.h"
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

// A regular file, locked; `status` is its state then. Nothing for all else.
LDescriptor Open(const char* path, int flags, int lock, struct stat& status) {
    LDescriptor file(::open(path, flags | O_NONBLOCK | O_CLOEXEC, 0666));
    if (file) flocktimed(file.Get(), lock | LOCK_NB, kLockMs);
    if (file && (::fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode))) file.Reset();
    return file;
}

// False when the source itself is there. A link is taken away, so that nothing is written behind it.
bool ClearWay(const char* destination, const struct stat& source) {
    struct stat there {};
    if (::lstat(destination, &there) != 0) return true;
    const bool isLink = S_ISLNK(there.st_mode);
    if (isLink && ::stat(destination, &there) != 0) return ::unlink(destination) == 0;
    if (LIsSameFile(there, source)) return false;
    return !isLink || ::unlink(destination) == 0;
}

// Most copies are new files, whose way needs no clearing. One that is empty anyway isn't cut: ext4 would write it out
// as soon as it is closed, as one whose content is being replaced, and a copy of many files would take three times as
// long.
LDescriptor OpenDestination(const char* path, const struct stat& source) {
    constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW;
    struct stat status {};
    LDescriptor file = Open(path, kFlags | O_EXCL, LOCK_EX, status);
    if (!file && ClearWay(path, source)) file = Open(path, kFlags, LOCK_EX, status);
    if (file && status.st_size > 0 && ::ftruncate(file.Get(), 0) != 0) file.Reset();
    return file;
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

// The modification time of the source, in whole seconds.
void CarryTimeOver(const struct stat& source, int to) {
    const timespec times[] = {{0, UTIME_OMIT}, {source.st_mtim.tv_sec, 0}};
    ::futimens(to, times);
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

// Calls visit(name, isRegularFile) for each entry until one gives another result than processDone.
template <class Visit>
int ForEachEntry(const char* folder, Visit visit) {
    LFile::FolderIteratorAllFiles entries;
    for (bool more = entries.Open(folder, "*"); more; more = entries.Next()) {
        const std::string_view name = entries.CurrentName();
        if (name == "." || name == "..") continue;
        if (const int result = visit(entries.CurrentName(), entries.IsCurrentRegular())) return result;
    }
    return processDone;
}

// Not entered: what it leads to is nobody's copy.
int CopyLinkToFolder(const char* source, const char* destination) {
    return LFile::CopyFile(source, destination) ? processDone : processFailed;
}

// `root` is the folder whose copying began it all.
int CopyTree(LProcessInterface& process, const struct stat& root, const char* source, const char* destination);

int CopyEntry(LProcessInterface& process, const struct stat& root, const char* sourceFolder,
              const char* destinationFolder, const char* name, bool isFile) {
    char source[LTextBufferSize], destination[LTextBufferSize];
    if (!LFile::FolderIterator::_JoinEntry(source, sourceFolder, name) ||
        !LFile::FolderIterator::_JoinEntry(destination, destinationFolder, name))
        return processFailed;
    struct stat status {};
    if (isFile || ::stat(source, &status) != 0 || !S_ISDIR(status.st_mode))
        return Process(process, LProcessCopyFile{source, destination});
    if (!IsFolderItself(source)) return CopyLinkToFolder(source, destination);
    // A folder that was there before may lead back into the source.
    if (!LFile::CreateFolderTree(destination) && LLiesInFolder(root, destination)) return processFailed;
    return CopyTree(process, root, source, destination);
}

int CopyTree(LProcessInterface& process, const struct stat& root, const char* source, const char* destination) {
    int count = 0, index = 0;
    ForEachEntry(source, [&](const char*, bool) { return ++count, processDone; });
    return ForEachEntry(source, [&](const char* name, bool isFile) {
        const auto entries = static_cast<float>(count);
        LProcessInterfaceSubProcess step(process, static_cast<float>(index++) / entries, 1 / entries);
        return CopyEntry(step, root, source, destination, name, isFile);
    });
}

}  // namespace

int Process(LProcessInterface& process, const LProcessCopyFile& job) {
    const Place place(job.destination);
    process.SetStatus("Copy File", 0);
    process.SetStatus(place.name.c_str(), 1);
    process.SetProgress(0.0);
    if (!IsPath(job.source) || !IsPath(job.destination) || place.folder.empty()) return processFailed;
    struct stat status {};
    const LDescriptor from = Open(job.source, O_RDONLY, LOCK_SH, status);
    if (!from) return processFailed;
    LDescriptor to = OpenDestination(job.destination, status);
    if (!to) return processFailed;
    int result = CopyChunks(process, from.Get(), to.Get(), static_cast<uint64_t>(status.st_size));
    if (result == processDone) CarryTimeOver(status, to.Get());
    if (!to.Close() && result == processDone) result = processFailed;
    if (result != processDone) ::unlink(job.destination);
    return result;
}

int Process(LProcessInterface& process, const LProcessCopyFolder& job) {
    struct stat source {};
    if (!IsPath(job.source) || !IsPath(job.destination) || ::stat(job.source, &source) != 0) return processFailed;
    if (S_ISDIR(source.st_mode) && LLiesInFolder(source, job.destination)) return processFailed;
    return CopyTree(process, source, job.source, job.destination);
}
