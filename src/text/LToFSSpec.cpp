#include "text/LToFSSpec.h"

#include "text/LCFString.h"
#include "text/LCFURL.h"
#include "text/LCopyBounded.h"

#include <algorithm>
#include <string>

long LToFSSpec::CStringToFSSpec(const char* path, FSSpec* record) {
    FSRef ref;
    if (FSPathMakeRef(reinterpret_cast<const UInt8*>(path), &ref, nullptr) == noErr) {
        return FSGetCatalogInfo(&ref, kFSCatInfoNone, nullptr, record);
    }
    // Nothing there yet: the folder's record, with the name put in.
    const LCFString text(CFStringCreateWithCString(kCFAllocatorDefault, path, CFStringGetSystemEncoding()));
    const LCFURL url(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, text.Get(), kCFURLPOSIXPathStyle, false));
    const LCFURL folder(CFURLCreateCopyDeletingLastPathComponent(kCFAllocatorDefault, url.Get()));
    if (!text.Get() || !url.Get() || !folder.Get()) return memFullErr;
    if (!CFURLGetFSRef(folder.Get(), &ref)) return fnfErr;
    FSCatalogInfo info;
    const OSErr error = FSGetCatalogInfo(&ref, kFSCatInfoNodeFlags | kFSCatInfoNodeID, &info, nullptr);
    if (error != noErr) return error;
    if (!(info.nodeFlags & kFSNodeIsDirectoryMask)) return fnfErr;
    const LCFString name(CFURLCopyLastPathComponent(url.Get()));
    if (!name.Get()) return memFullErr;
    if (!CFStringGetPascalString(name.Get(), record->name, sizeof record->name, CFStringGetSystemEncoding()))
        return fnfErr;
    record->vRefNum = info.volume.number;
    record->parID = info.nodeID;
    return noErr;
}

void LToFSSpec::GetString(char* out, unsigned long size) const {
    LCopyBounded(out, "", size);
    if (!bValid) return;
    std::string path(record.name + 1, record.name + 1 + record.name[0]);
    CInfoPBRec block;
    block.ioVRefNum = record.vRefNum;
    block.ioFDirIndex = -1;
    block.ioDrDirID = record.parID;
    while (block.ioDrDirID.number != fsRtParID && PBGetCatInfoSync(&block) == noErr) {
        path.insert(0, block.ioName + ":");
        block.ioDrDirID = block.ioDrParID;
    }
    std::replace(path.begin(), path.end(), ':', '/');
    const size_t root = path.find('/');
    if (root != std::string::npos) path.erase(0, root);
    LCopyBounded(out, path.c_str(), size);
}
