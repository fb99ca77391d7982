#include "MountTable.h"
#include "VolumeDevice.h"

#include <Carbon/Carbon.h>

#include <cstring>
#include <filesystem>
#include <optional>
#include <pwd.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

constexpr OSType kVolumesFolderType = 0x737276C4;
constexpr uint16_t kNetworkFileSystem = 0x6375;
constexpr size_t kMaxRecordName = sizeof(FSSpec::name) - 1;

// Absolute and without links; nothing when the object doesn't exist.
std::optional<std::string> RealPath(const std::string& path) {
    std::error_code error;
    const std::filesystem::path real = std::filesystem::canonical(path, error);
    return error ? std::nullopt : std::optional(real.string());
}

struct PathParts {
    std::string folder;  // empty for the root
    std::string name;
};

PathParts Split(const std::string& realPath) {
    if (realPath == "/") return {"", "/"};
    const size_t slash = realPath.rfind('/');
    return {slash == 0 ? "/" : realPath.substr(0, slash), realPath.substr(slash + 1)};
}

// The node of a folder given by its real path; "" is the root's parent.
FSNodeID NodeOf(const std::string& folder) {
    if (folder.empty()) return {fsRtParID, ""};
    if (folder == "/") return {fsRtDirID, folder};
    struct stat status {};
    ::stat(folder.c_str(), &status);  // a folder that goes away meanwhile gets the number 0
    return {status.st_ino, folder};
}

}  // namespace

OSStatus FSPathMakeRef(const UInt8* path, FSRef* ref, bool* isDirectory) {
    struct stat status {};
    const char* text = reinterpret_cast<const char*>(path);
    if (!text || ::stat(text, &status) != 0) return fnfErr;
    if (ref) ref->path = text;
    if (isDirectory) *isDirectory = S_ISDIR(status.st_mode);
    return noErr;
}

OSStatus FSRefMakePath(const FSRef* ref, UInt8* path, uint32_t size) {
    if (!ref || !path || ref->path.size() >= size) return paramErr;
    std::memcpy(path, ref->path.c_str(), ref->path.size() + 1);
    return noErr;
}

OSErr FSFindFolder(SInt16, OSType folderType, bool, FSRef* ref) {
    if (folderType != kVolumesFolderType) return paramErr;
    passwd entry{};
    passwd* user = nullptr;
    std::vector<char> texts(16'384);
    ::getpwuid_r(::getuid(), &entry, texts.data(), texts.size(), &user);
    for (const std::string& folder :
         {std::string("/run/media/") + (user ? user->pw_name : ""), std::string("/media")}) {
        bool isFolder = false;
        if (FSPathMakeRef(reinterpret_cast<const UInt8*>(folder.c_str()), ref, &isFolder) == noErr && isFolder)
            return noErr;
    }
    return fnfErr;
}

OSErr FSGetVolumeInfo(const FSVolumeRefNum& volume, uint32_t index, FSVolumeInfoBitmap, FSVolumeInfo* info) {
    if (index != 0 || !info) return paramErr;
    const auto mount = platform::FindMount(volume.path.c_str());
    if (!mount) return fnfErr;
    info->filesystemID = platform::IsNetworkType(mount->type) ? kNetworkFileSystem : 0;
    return noErr;
}

OSErr PBHGetVolParmsSync(HParamBlockRec* block) {
    if (!block || !block->ioBuffer || block->ioReqCount < sizeof *block->ioBuffer) return paramErr;
    const auto mount = platform::FindMount(block->ioVRefNum.path.c_str());
    if (!mount) return fnfErr;
    uint32_t& bits = block->ioBuffer->vMExtendedAttributes = 0;
    if (platform::IsNetworkType(mount->type)) return noErr;
    const platform::BlockDevice device = platform::FindBlockDevice(*mount);
    bits |= 1u << (device.isExternal ? bIsOnExternalBus : bIsOnInternalBus);
    if (device.isRemovable) bits |= 1u << bIsRemovable;
    return noErr;
}

OSErr FSGetCatalogInfo(const FSRef* ref, FSCatalogInfoBitmap, FSCatalogInfo* info, FSSpec* record) {
    if (!ref) return paramErr;
    const auto path = RealPath(ref->path);
    struct stat status {};
    if (!path || ::stat(path->c_str(), &status) != 0) return fnfErr;
    const PathParts parts = Split(*path);
    if (record && parts.name.size() > kMaxRecordName) return fnfErr;
    if (info) {
        info->nodeFlags = S_ISDIR(status.st_mode) ? kFSNodeIsDirectoryMask : 0;
        info->volume = {0, *path};
        info->nodeID = {*path == "/" ? fsRtDirID : status.st_ino, *path};
    }
    if (record) {
        *record = FSSpec();
        record->parID = NodeOf(parts.folder);
        record->name[0] = static_cast<unsigned char>(parts.name.size());
        std::memcpy(record->name + 1, parts.name.data(), parts.name.size());
    }
    return noErr;
}

OSErr PBGetCatInfoSync(CInfoPBRec* block) {
    if (!block || block->ioFDirIndex != -1) return paramErr;
    const auto path = RealPath(block->ioDrDirID.path);
    std::error_code error;
    if (!path || !std::filesystem::is_directory(*path, error)) return fnfErr;
    PathParts parts = Split(*path);
    block->ioName = parts.folder.empty() ? "" : std::move(parts.name);
    block->ioDrParID = NodeOf(parts.folder);
    return noErr;
}
