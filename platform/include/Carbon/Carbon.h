// Carbon, the subset that this system calls: the system's version and the file records of old.
//
// Files have no numbers here by which they could be found again, so references, node identifiers and records carry the
// path's text beside the platform's fields. Plain values: they copy, own nothing, and any thread may use its own.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <string>

using SInt16 = int16_t;
using SInt32 = int32_t;
using OSType = uint32_t;
using OSErr = SInt16;
using OSStatus = SInt32;

inline constexpr OSErr noErr = 0;
inline constexpr OSErr fnfErr = -43;       // no such file
inline constexpr OSErr paramErr = -50;     // an argument that this subset doesn't know
inline constexpr OSErr memFullErr = -108;  // an object can't be made
inline constexpr OSErr gestaltUndefSelectorErr = -5551;

// A volume: the number is always 0, the path is one that lies on it.
struct FSVolumeRefNum {
    SInt16 number = 0;
    std::string path;
};

// The version that programs see: 10.15, whatever the system below is called.
inline constexpr OSType gestaltSystemVersionMajor = 0x73797331;  // 'sys1'
inline constexpr OSType gestaltSystemVersionMinor = 0x73797332;  // 'sys2'

// gestaltUndefSelectorErr, and `response` as it was, for other selectors.
OSErr Gestalt(OSType selector, SInt32* response);

// A file that existed when the reference was made.
struct FSRef {
    std::string path;
};

// fnfErr when the object doesn't exist (a null path too); `ref` and `isDirectory` (may be null) are set only on
// success.
OSStatus FSPathMakeRef(const UInt8* path, FSRef* ref, bool* isDirectory);

// A folder. The number is the inode, whole; 2 for the root, 1 for what would be its parent.
struct FSNodeID {
    uint64_t number = 0;
    std::string path;
};
inline constexpr uint64_t fsRtParID = 1;
inline constexpr uint64_t fsRtDirID = 2;

// The reference's path with its terminator; paramErr, and nothing written, when that takes more than `size` bytes.
OSStatus FSRefMakePath(const FSRef* ref, UInt8* path, uint32_t size);

// A folder of the system's. Only the one that volumes are mounted in ('srvr'): /run/media/<user>, else /media; fnfErr
// where there is neither. Nothing is ever created.
inline constexpr SInt16 kOnSystemDisk = -32768;
OSErr FSFindFolder(SInt16 volume, OSType folderType, bool create, FSRef* ref);

// A record: the folder and the name in it, which may be still free. The volume number is always 0.
struct FSSpec {
    SInt16 vRefNum = 0;
    FSNodeID parID;
    unsigned char name[64] = {};  // length byte, then at most 63 bytes of UTF-8
};

using FSCatalogInfoBitmap = uint32_t;
inline constexpr FSCatalogInfoBitmap kFSCatInfoNone = 0;
inline constexpr FSCatalogInfoBitmap kFSCatInfoNodeFlags = 0x02;
inline constexpr FSCatalogInfoBitmap kFSCatInfoVolume = 0x04;
inline constexpr FSCatalogInfoBitmap kFSCatInfoNodeID = 0x10;
inline constexpr uint16_t kFSNodeIsDirectoryMask = 0x10;

struct FSCatalogInfo {
    uint16_t nodeFlags = 0;
    FSVolumeRefNum volume;
    FSNodeID nodeID;
};

// Fills all of `info` (may be null; the bits only say what the caller wants) and the record of the object (may be
// null). fnfErr when the object is gone, or when a record is asked for and its name has more than 63 bytes.
OSErr FSGetCatalogInfo(const FSRef* ref, FSCatalogInfoBitmap whichInfo, FSCatalogInfo* info, FSSpec* record);

// The parameter block for a look at one folder: ioFDirIndex -1 asks for the folder of ioDrDirID itself.
struct CInfoPBRec {
    SInt16 ioVRefNum = 0;
    SInt16 ioFDirIndex = 0;
    FSNodeID ioDrDirID;
    std::string ioName;  // result: the folder's name, empty for the root
    FSNodeID ioDrParID;  // result
};

// fnfErr when the folder is gone, paramErr for another index.
OSErr PBGetCatInfoSync(CInfoPBRec* block);

using FSVolumeInfoBitmap = uint32_t;
inline constexpr FSVolumeInfoBitmap kFSVolInfoFSInfo = 0x10000;

struct FSVolumeInfo {
    uint16_t filesystemID = 0;
};

// What is mounted at the volume's path: 0x6375 for file systems over a network, 0 for all others. fnfErr when the path
// is gone or no mount is known for it. `index` must be 0; `whichInfo` only says what the caller wants.
OSErr FSGetVolumeInfo(const FSVolumeRefNum& volume, uint32_t index, FSVolumeInfoBitmap whichInfo, FSVolumeInfo* info);

// How the volume is attached. Block devices by what the kernel knows of them (a partition by its disk); what lies on
// none counts as internal, file systems over a network have no bit at all.
inline constexpr uint32_t bIsOnInternalBus = 21;
inline constexpr uint32_t bIsRemovable = 25;
inline constexpr uint32_t bIsOnExternalBus = 27;

struct GetVolParmsInfoBuffer {
    uint32_t vMExtendedAttributes = 0;
};

struct HParamBlockRec {
    FSVolumeRefNum ioVRefNum;
    GetVolParmsInfoBuffer* ioBuffer = nullptr;
    uint32_t ioReqCount = 0;  // the buffer's size: paramErr when it is smaller
};

OSErr PBHGetVolParmsSync(HParamBlockRec* block);
