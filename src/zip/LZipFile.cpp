#include "zip/LZipFile.h"

#include "files/LFile.h"
#include "files/LFilePath.h"
#include "files/LWriteFileRef.h"
#include "system/LCommandLineProcess.h"
#include "system/LShell.h"

#include <bsd/LDescriptor.h>
#include <bsd/LMutex.h>
#include <bsd/exlock.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::string_view kZip = "/usr/bin/zip", kUnzip = "/usr/bin/unzip";
constexpr unsigned char kEmptyArchive[24] = {'P', 'K', 5, 6};

// Options of the environment would change what the commands do. unzip shall keep control characters in names, and what
// another system would take for a version behind ";".
constexpr const char* kEnvironment[] = {"ZIP=", "ZIPOPT=", "UNZIP=-^V", "UNZIPOPT=", nullptr};

// The working folder is the process's.
LMutex& TheWorkingFolderMutex() {
    static LMutex& mutex = *new LMutex;
    return mutex;
}

bool Fits(const char* text) {
    return text && std::strlen(text) < LTextBufferSize;
}

std::string Quoted(std::string_view text) {
    return " " + LQuotedForShell(text);
}

// A name that isn't taken for an option.
std::string Plain(std::string_view name) {
    return (name.starts_with('-') ? "./" : "") + std::string(name);
}

// An entry's name that isn't taken for a pattern.
std::string PlainEntry(std::string_view entry) {
    std::string escaped;
    for (const char c : entry) {
        if (c && std::strchr("*?[]\\", c)) escaped += '\\';
        escaped += c;
    }
    return escaped;
}

// An archive's name of which unzip won't make another one's. It is a pattern once there is a wildcard anywhere in the
// path, the folder's part of it never. Letters between brackets make sure of one behind the last "/".
std::string PlainArchive(const std::string& path) {
    if (path.find_first_of("*?[") == path.npos) return path;
    const size_t name = path.rfind('/') + 1;  // npos + 1 is 0
    std::string pattern = path.substr(0, name);
    for (const char c : path.substr(name)) {
        if (LFileIsLetterOrNumber(c) || std::strchr("*?[", c))
            pattern += {'[', c, ']'};
        else
            pattern += std::strchr("\\]", c) ? std::string{'\\', c} : std::string{c};
    }
    return pattern;
}

std::string LastComponent(std::string_view path) {
    return std::string(path.substr(path.rfind('/') + 1));  // npos + 1 is 0
}

std::string TemporaryFolder() {
    char folder[LTextBufferSize];
    LFile::GetTempFolder(folder);
    return folder;
}

// " -x@" and a list of what is left out; nothing when the list can't be made.
std::string Exclusions() {
    std::string path = TemporaryFolder() + "/0XXXXXX";
    LDescriptor made(::mkstemp(path.data()));
    if (!made || ::fchmod(made.Get(), 0666) != 0) return "";
    made.Close();
    const LDescriptor list(::open_exlock(path.c_str(), O_RDWR | O_NONBLOCK | O_CREAT | O_TRUNC, 0666));
    if (!list) return "";
    LWriteFileRef file{list.Get()};
    for (const char* pattern : {"*.DS_Store*", "*.svn*", "*.git*"}) file.WriteLineLF(pattern);
    constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._/-";
    const bool isPlain = path.find_first_not_of(kPlain) == path.npos;
    return " -x@" + (isPlain ? path : LQuotedForShell(path));
}

// The working folder of the process, changed and changed back, also when its path is too long to be told.
class WorkingFolder {
public:
    explicit WorkingFolder(const char* folder) : before(::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        isChanged = before && LFile::SetCurrentDirectory(folder) == 0;
    }
    bool IsEntered() const { return isChanged; }
    ~WorkingFolder() {
        if (isChanged && ::fchdir(before.Get()) != 0) isChanged = false;  // it is gone: nothing to go back to
    }
    WorkingFolder(const WorkingFolder&) = delete;
    WorkingFolder& operator=(const WorkingFolder&) = delete;

private:
    const LDescriptor before;
    bool isChanged;
};

}  // namespace

LZipFile::LZipFile(const char* archive, bool freshenOnly) : freshen(freshenOnly) {
    Set(archivePath, archive);
    LFile::_GetFolderFromPath(baseFolder, archivePath);
}

LZipFile::LZipFile(const char* archive, const char* base, bool freshenOnly) : freshen(freshenOnly) {
    Set(archivePath, archive);
    LCopyBounded(baseFolder, base, sizeof baseFolder);
}

// A path that is cut is another one.
bool LZipFile::Set(char (&field)[LTextBufferSize], const char* path) {
    if (path && !Fits(path)) return false;
    LCopyBounded(field, path, sizeof field);
    return true;
}

void LZipFile::Clear() {
    removePath[0] = folderPath[0] = workingFolder[0] = baseFolder[0] = '\0';
    exclusionsOff = false;
    filesToAdd.Clear();
    foldersToAdd.Clear();
    filesToRemove.Clear();
    foldersToRemove.Clear();
}

bool LZipFile::AddTo(LList<LZipFileNode>& list, const char* path) {
    if (!Fits(path)) return false;
    auto* const node = new LZipFileNode;
    LCopyBounded(node->path, path, sizeof node->path);
    list.Add(node);
    return true;
}

bool LZipFile::AddFile(const char* path) {
    if (!Fits(path)) return false;
    // Only "/" parts the two: the file must be found again, and a back slash may belong to its name.
    const char* const slash = std::strrchr(path, '/');
    const char* const name = slash ? slash + 1 : path;
    LCopyBounded(workingFolder, slash == path ? "/" : std::string(path, slash ? slash : path).c_str(), LTextBufferSize);
    if (std::strstr(name, ".app")) hasApplication = true;
    return AddTo(filesToAdd, name);
}

bool LZipFile::AddFolder(const char* path) {
    return AddTo(foldersToAdd, path);
}

bool LZipFile::RemoveFrom(LList<LZipFileNode>& list, const char* path) {
    char relative[LTextBufferSize];
    if (!Fits(path)) return false;
    LFile::MakeRelativeFilePath(relative, baseFolder, path);
    return AddTo(list, relative);
}

bool LZipFile::RemoveFile(const char* entry) {
    return RemoveFrom(filesToRemove, entry);
}

bool LZipFile::RemoveFolder(const char* folder) {
    return RemoveFrom(foldersToRemove, folder);
}

std::string LZipFile::AddedNames() const {
    std::string names;
    for (LListIterator<LZipFileNode> it(filesToAdd); it; it.Next()) names += Quoted(Plain(it->path));
    return names;
}

std::string LZipFile::AddedFolder() const {
    const bool isTemporary = std::string_view(folderPath).find(TemporaryFolder()) != std::string_view::npos;
    return Quoted(Plain(isTemporary ? LastComponent(folderPath) : folderPath));
}

std::string LZipFile::Command() {
    std::string command(kZip);
    if (!foldersToAdd.IsEmpty() || hasApplication) command += " -r";
    if (freshen) command += " -f";
    if (filesToRemove.IsEmpty() && foldersToRemove.IsEmpty()) command += " -y" + Quoted(archivePath);
    command += AddedNames();
    if (!foldersToAdd.IsEmpty()) command += AddedFolder();
    if (!filesToRemove.IsEmpty()) command += " -d" + Quoted(archivePath) + Quoted(Plain(PlainEntry(removePath)));
    if (!exclusionsOff) command += Exclusions();
    return command;
}

// By the folder as it is, then by its name alone.
bool LZipFile::RemoveFolderContents() {
    for (char* p = folderPath; *p; p++)
        if (*p == '\\') *p = '/';
    const auto remove = [this](const std::string& start) {
        return RunCommand(start + " -d" + Quoted(archivePath) + Quoted(Plain(PlainEntry(folderPath)) + "/*") + " ");
    };
    const std::string first = std::string(kZip) + (foldersToAdd.IsEmpty() && !hasApplication ? "" : " -r") +
                              (freshen ? " -f" : "") + AddedNames();
    if (remove(first)) return true;
    char name[LTextBufferSize];
    LFile::_GetFileNameFromPath(name, folderPath);
    LCopyBounded(folderPath, name, sizeof folderPath);
    return remove(std::string(kZip));
}

bool LZipFile::Save() {
    if (!*archivePath) return false;
    LMutexLock guard(TheWorkingFolderMutex());
    bool isDone = false;
    {
        const WorkingFolder folder(workingFolder);
        // In another folder the names would be other files'.
        if (workingFolder[0] && !folder.IsEntered()) return false;
        isDone = foldersToRemove.IsEmpty() ? RunCommand(Command()) : RemoveFolderContents();
        PauseAfterCommand();
    }
    if (isDone) Clear();
    return isDone;
}

bool LZipFile::Extract(const char* archive, const char* folder, const char* entry) {
    if (!Fits(archive) || !*archive || !Fits(folder)) return false;  // unzip takes "" for ".zip"
    // Behind the archive's name unzip looks for options among the entries; a pattern is none.
    const bool isOption = entry && *entry == '-';
    const std::string one = entry && *entry ? Quoted(isOption ? "[-]" + PlainEntry(entry + 1) : PlainEntry(entry)) : "";
    return RunCommand(std::string(kUnzip) + " -o" + Quoted(PlainArchive(Plain(archive))) + one + " -d" +
                      Quoted(Plain(folder)));
}

bool LZipFile::RunCommand(const std::string& command) const {
    return RunCommandLineProcess(command.c_str(), kEnvironment);
}

void LZipFile::PauseAfterCommand() const {
    timespec left{1, 0};
    while (::nanosleep(&left, &left) != 0 && errno == EINTR) continue;
}

bool LZipFile::CreateEmptyZipFile(const char* path) {
    const LDescriptor file(path ? ::open_exlock(path, O_RDWR | O_NONBLOCK | O_CREAT | O_TRUNC, 0666) : -1);
    return file && ::write(file.Get(), kEmptyArchive, sizeof kEmptyArchive) == sizeof kEmptyArchive;
}

bool LZipFile::GetZipFileDetails(const char*, const char*, bool& exists, unsigned long long& size) {
    exists = false;
    size = 0;
    return true;
}

bool LZipFile::TestZipFileExists(const char*, const char*) {
    return true;
}

unsigned long long LZipFile::GetZipFileSizeBytes64(const char*, const char*) {
    return 0;
}

bool LZipFile::VerifyZipFileIntegrity(const char*) {
    return false;
}

bool LZipFileCreate(const char* archive) {
    return LZipFile::CreateEmptyZipFile(archive);
}

bool LZipFileAdd(const char* archive, const char* file, const char* baseFolder, bool exclusionsOff, char,
                 LProcessInterface*, bool freshen) {
    LZipFile zip(archive, baseFolder, freshen);
    zip.SetExclusionsOff(exclusionsOff);
    return zip.SetFolder(file) && zip.AddFile(file) && zip.Save();
}

bool LZipFileAddFolder(const char* archive, const char* folder, const char* baseFolder, bool exclusionsOff,
                       LProcessInterface*) {
    LZipFile zip(archive, baseFolder, false);
    zip.SetExclusionsOff(exclusionsOff);
    return zip.AddFolder(folder) && zip.SetFolder(folder) && zip.SetWorkingFolder(baseFolder) && zip.Save();
}

bool LZipFileAddFolder(const char* archive, const char* folder, const char* baseFolder, bool exclusionsOff) {
    return LZipFileAddFolder(archive, folder, baseFolder, exclusionsOff, nullptr);
}

bool LZipFileDelete(const char* archive, const char* entry) {
    LZipFile zip(archive, false);
    return zip.SetRemovePath(entry) && zip.RemoveFile(entry) && zip.Save();
}

bool LZipFileDeleteFolder(const char* archive, const char* folder) {
    LZipFile zip(archive, false);
    return zip.SetFolder(folder) && zip.RemoveFolder(folder) && zip.Save();
}

bool LZipFileExtractAllFiles(const char* archive, const char* folder) {
    return LZipFile(archive, false).ExtractAllFiles(folder);
}

bool LZipFileExtract(const char* archive, const char* entry, const char* folder) {
    return LZipFile(archive, false).Extract(archive, folder, entry);
}

bool LZipFileExtractToFile(const char* archive, const char* entry, const char* folder, int&) {
    return LZipFileExtract(archive, entry, folder);
}

bool LZipFileGetFileDetails(const char* archive, const char* entry, bool& exists, unsigned long long& size) {
    return LZipFile::GetZipFileDetails(archive, entry, exists, size);
}

bool LZipFileTestFileExists(const char* archive, const char* entry) {
    return LZipFile::TestZipFileExists(archive, entry);
}

unsigned long long LZipFileGetFileSizeBytes64(const char* archive, const char* entry) {
    return LZipFile::GetZipFileSizeBytes64(archive, entry);
}

bool LZipFileVerifyIntegrity(const char* archive) {
    return LZipFile::VerifyZipFileIntegrity(archive);
}

bool LZipFileIterator::Open(const char*) {
    entries.Clear();
    pCurrent = nullptr;
    return false;
}
