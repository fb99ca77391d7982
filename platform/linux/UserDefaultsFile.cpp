#include "UserDefaultsFile.h"

#include "HomeFolder.h"
#include "InfoPlist.h"
#include "MainBundle.h"
#include "PropertyListReader.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fcntl.h>

namespace platform {

namespace {

constexpr int kMaxDamaged = 1000;  // files set aside; more are left for a person to look at

std::string FolderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// EINVAL: the file system has no such thing; then it keeps names safe by itself or cannot at all.
bool SyncFolder(FileCalls& calls, const std::string& folder) {
    const FileCallsDescriptor opened(
        calls, Uninterrupted([&] { return calls.Open(folder.c_str(), O_RDONLY | O_DIRECTORY, 0); }));
    return opened && (Uninterrupted([&] { return calls.Sync(opened.Get()); }) == 0 || errno == EINVAL);
}

// Makes a folder and those above it that are missing.
bool MakeFolderTree(FileCalls& calls, const std::string& folder) {
    if (calls.MakeFolder(folder.c_str(), 0700) == 0 || errno == EEXIST) return true;
    if (errno != ENOENT || folder == FolderOf(folder) || !MakeFolderTree(calls, FolderOf(folder))) return false;
    return calls.MakeFolder(folder.c_str(), 0700) == 0;
}

bool IsFileName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

}  // namespace

std::string UserDefaultsPath(const std::string& bundleIdentifier) {
    return FolderFromEnvironment("XDG_CONFIG_HOME", ".config") + "/" + bundleIdentifier + ".plist";
}

std::string MainBundleUserDefaultsPath() {
    const std::string root = MainBundleRoot();
    if (root.empty()) return "";
    const auto info = ReadInfoPlist(root);
    if (!info && errno != ENOENT && errno != ENOTDIR) return "";
    const std::string* identifier = info ? info->String("CFBundleIdentifier") : nullptr;
    if (identifier && IsFileName(*identifier)) return UserDefaultsPath(*identifier);
    const auto program = ProgramOfLink("/proc/self/exe");
    return program ? UserDefaultsPath(program->substr(program->rfind('/') + 1)) : "";  // npos + 1 is 0
}

UserDefaultsFile::Reading UserDefaultsFile::Read(NSDictionary& content) {
    std::string bytes;
    const int error = path.empty() ? EINVAL : ReadOwnFile(calls, path, bytes);
    content = NSMutableDictionary();
    if (error == ENOENT) return Reading::Done;
    if (error != 0 && error != EFBIG) {
        Report("cannot be read and is left alone", error);
        return Reading::Failed;
    }
    if (error == 0) {
        nameIsSafe = false;
        if (auto parsed = ParsePropertyList(bytes)) {
            content = *parsed;
            return Reading::Done;
        }
    }
    return SetAside() ? Reading::Done : Reading::Failed;
}

bool UserDefaultsFile::SetAside() {
    for (int n = 1; n <= kMaxDamaged; n++) {
        const std::string aside = path + ".damaged-" + std::to_string(n);
        if (calls.RenameWithoutReplacing(path.c_str(), aside.c_str()) == 0) {
            fprintf(stderr, "%s: damaged, kept as %s\n", path.c_str(), aside.c_str());
            return true;
        }
        if (errno != EEXIST) break;
    }
    Report("is damaged, cannot be set aside and is left alone", errno);
    return false;
}

bool UserDefaultsFile::Replace(const std::vector<NSPayload<std::string>>& parts) {
    size_t size = 0;
    for (const auto& part : parts) size += part.Get()->size();
    if (size > kMaxPropertyListFile) {  // the next start would take it for damaged
        Report("cannot be written", EFBIG);
        return false;
    }
    const std::string newPath = path + ".new";
    if (!WriteNew(newPath, parts) || !MakeFoldersSafe() || calls.Rename(newPath.c_str(), path.c_str()) != 0) {
        const int error = errno;
        calls.Unlink(newPath.c_str());
        Report("cannot be written", error);
        return false;
    }
    nameIsSafe = false;
    if (!MakeSafe()) return false;
    reported = 0;
    return true;
}

bool UserDefaultsFile::MakeSafe() {
    if (nameIsSafe) return true;
    nameIsSafe = SyncFolder(calls, FolderOf(path));
    if (!nameIsSafe) Report("is written, but perhaps not safe from a power failure", errno);
    return nameIsSafe;
}

// Before the first rename, so that a store which is there lies in folders that are safe. A folder of others that may
// not be opened is not ours to make safe.
bool UserDefaultsFile::MakeFoldersSafe() {
    std::string folder = FolderOf(path);
    while (!foldersAreSafe) {
        const std::string above = FolderOf(folder);
        if (above == folder)
            foldersAreSafe = true;
        else if (!SyncFolder(calls, above) && errno != EACCES)
            return false;
        folder = above;
    }
    return true;
}

bool UserDefaultsFile::WriteNew(const std::string& newPath, const std::vector<NSPayload<std::string>>& parts) {
    const FileCallsDescriptor file(calls, OpenNew(newPath));
    if (!file) return false;
    std::vector<iovec> bytes;
    bytes.reserve(parts.size());
    for (const auto& part : parts) bytes.push_back({const_cast<char*>(part.Get()->data()), part.Get()->size()});
    return WriteParts(file.Get(), std::move(bytes)) && Uninterrupted([&] { return calls.Sync(file.Get()); }) == 0;
}

int UserDefaultsFile::OpenNew(const std::string& newPath) {
    const auto create = [&] {
        return Uninterrupted(
            [&] { return calls.Open(newPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600); });
    };
    int descriptor = create();
    if (descriptor >= 0) return descriptor;
    if (errno == EEXIST) {
        if (calls.Unlink(newPath.c_str()) != 0) return -1;
    } else {
        if (errno != ENOENT || !MakeFolderTree(calls, FolderOf(newPath))) return -1;
        foldersAreSafe = false;
    }
    return create();
}

// Gives what the kernel did not take of one call to the next.
bool UserDefaultsFile::WriteParts(int descriptor, std::vector<iovec> parts) {
    for (size_t first = 0; first < parts.size();) {
        const auto count = static_cast<int>(std::min<size_t>(parts.size() - first, FileCalls::kMostParts));
        const ssize_t written = Uninterrupted([&] { return calls.Write(descriptor, &parts[first], count); });
        if (written < 0) return false;
        if (written == 0) {
            errno = EIO;
            return false;
        }
        auto left = static_cast<size_t>(written);
        for (; first < parts.size() && left >= parts[first].iov_len; first++) left -= parts[first].iov_len;
        if (left == 0) continue;
        parts[first].iov_base = static_cast<char*>(parts[first].iov_base) + left;
        parts[first].iov_len -= left;
    }
    return true;
}

void UserDefaultsFile::Report(const char* what, int error) {
    if (error == reported) return;
    reported = error;
    fprintf(stderr, "%s %s: %s\n", path.c_str(), what, strerror(error));
}

}  // namespace platform
