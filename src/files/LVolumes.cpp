// LFile's questions about the volume that a path lies on.
#include "files/LFile.h"
#include "text/LAscii.h"
#include "text/LCopyBounded.h"

#include <Carbon/Carbon.h>
#include <bsd/mount.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string_view>

namespace {

constexpr unsigned short kUnknownFileSystem = 0xFFFF;
constexpr unsigned short kNetworkFileSystems[] = {0x6375, 0x4A48};

bool FindVolume(const char* path, FSVolumeRefNum& volume) {
    FSRef ref;
    FSCatalogInfo info;
    if (::FSPathMakeRef(reinterpret_cast<const UInt8*>(path), &ref, nullptr) != noErr ||
        ::FSGetCatalogInfo(&ref, kFSCatInfoVolume, &info, nullptr) != noErr)
        return false;
    volume = info.volume;
    return true;
}

bool HasAttribute(const char* path, uint32_t bit) {
    return (LFile::GetVolumeAttributes(path) >> bit & 1) != 0;
}

}  // namespace

unsigned short LFile::GetVolumeFileSystemID(const char* path) {
    FSVolumeRefNum volume;
    FSVolumeInfo info;
    if (!FindVolume(path, volume) || ::FSGetVolumeInfo(volume, 0, kFSVolInfoFSInfo, &info) != noErr)
        return kUnknownFileSystem;
    return info.filesystemID;
}

unsigned long LFile::GetVolumeAttributes(const char* path) {
    HParamBlockRec block;
    GetVolParmsInfoBuffer buffer;
    block.ioBuffer = &buffer;
    block.ioReqCount = sizeof buffer;
    if (!FindVolume(path, block.ioVRefNum) || ::PBHGetVolParmsSync(&block) != noErr) return 0;
    return buffer.vMExtendedAttributes;
}

bool LFile::IsOnExternalDrive(const char* path) {
    return !HasAttribute(path, bIsOnInternalBus);
}

bool LFile::IsOnRemovableMedia(const char* path) {
    return !HasAttribute(path, bIsOnInternalBus) || HasAttribute(path, bIsRemovable);
}

bool LFile::IsNetworkPath(const char* path) {
    return !HasAttribute(path, bIsOnInternalBus) && !HasAttribute(path, bIsRemovable) &&
           !HasAttribute(path, bIsOnExternalBus);
}

// A volume that can't be told is taken for local: it is asked about before something is written there.
bool LFile::IsOnLocalDrive(const char* path) {
    const unsigned short id = GetVolumeFileSystemID(path);
    if (id == kUnknownFileSystem) return true;
    const bool isNetwork =
        std::find(std::begin(kNetworkFileSystems), std::end(kNetworkFileSystems), id) != std::end(kNetworkFileSystems);
    return !isNetwork && !IsNetworkPath(path);
}

int LFile::GetVolumeFileSizeLimit(const char* path) {
    struct Row {
        std::string_view type;
        int limit;
    };
    static constexpr Row kRows[] = {{"NTFS", 2},  {"FAT32", 1}, {"EXFAT", 2}, {"FAT16B", 1},
                                    {"FAT16", 0}, {"FAT12", 0}, {"FAT", 0}};
    std::string type = ::volume_type_of(path).value_or("");
    for (char& c : type) c = LAsciiToUpper(c);
    const auto row = std::find_if(std::begin(kRows), std::end(kRows), [&](const Row& r) { return r.type == type; });
    return row == std::end(kRows) ? 2 : row->limit;
}

int LFile::GetSizeFormattedBytes(unsigned long long bytes, char* dst) {
    static constexpr const char* kUnits[] = {"Bytes", "KB", "MB", "GB", "TB"};
    size_t unit = 0;
    while (bytes >= 1024 && unit + 1 < std::size(kUnits)) {
        bytes /= 1024;
        unit++;
    }
    return std::snprintf(dst, LTextBufferSize, "%llu %s", bytes, kUnits[unit]);
}
