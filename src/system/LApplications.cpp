#include "system/LApplications.h"

#include "files/LFile.h"
#include "text/LCFReference.h"
#include "text/LCFString.h"
#include "text/LCopyBounded.h"

#include <AppKit/AppKit.h>

#include <dirent.h>
#include <memory>
#include <string>
#include <sys/stat.h>

bool LIsApplicationBundled() {
    FSRef location;
    if (::GetProcessBundleLocation(&kCurrentProcess, &location) != noErr) return false;
    const auto* const path = reinterpret_cast<const UInt8*>(location.path.c_str());
    bool isFolder = false;
    return ::FSPathMakeRef(path, &location, &isFolder) == noErr && isFolder;
}

void LGetInstalledApplicationResourcesFolder(char* out, unsigned long size) {
    const CFBundleRef bundle = ::CFBundleGetMainBundle();
    const LCFReference<CFURLRef> url(bundle ? ::CFBundleCopyResourcesDirectoryURL(bundle) : nullptr);
    LCopyBounded(out, "", size);
    if (!url.Get()) return;
    const LCFString path(::CFURLCopyFileSystemPath(url.Get(), kCFURLPOSIXPathStyle));
    if (path.Get()) path.GetString(out, size);
}

void LGetInstalledApplicationLXAResourcesFolder(char* out) {
    char folder[LTextBufferSize];
    LGetInstalledApplicationResourcesFolder(folder, sizeof folder);
    LFile::_MakeFilePath(out, folder, "resources", "");
}

bool LIsApplicationInstalled(const char* name) {
    char path[LTextBufferSize];
    return LFile::GetInstalledApplicationExePath(path, name);
}

bool LGetPSNFromSignature(unsigned long signature, unsigned long type, ProcessSerialNumber* psn) {
    *psn = {};
    while (::GetNextProcess(psn) == noErr) {
        ProcessInfoRec information{};
        if (::GetProcessInformation(psn, &information) == noErr && information.processSignature == signature &&
            information.processType == type)
            return true;
    }
    return false;  // behind the last process is none
}

namespace {

bool Select(const std::string& path) {
    return NSWorkspace::sharedWorkspace().selectFile(NSString(path));
}

// Neither folders nor links, nor what can't be looked at.
bool IsShown(const std::string& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0 && !S_ISDIR(info.st_mode) && !S_ISLNK(info.st_mode);
}

bool SelectFileIn(const std::string& path) {
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(path.c_str()), &::closedir);
    if (!folder) return false;
    while (const dirent* entry = ::readdir(folder.get())) {
        const std::string file = path + "/" + entry->d_name;
        if (IsShown(file) && Select(file)) return true;
    }
    return false;
}

}  // namespace

void LRevealInFinder(const char* path) {
    if (!path || !*path) return;
    if (!SelectFileIn(path)) Select(path);
}

void LOpenAddressBook() {
    FSRef application;
    const auto* const path = reinterpret_cast<const UInt8*>("/Applications/Address Book.app");
    if (::FSPathMakeRef(path, &application, nullptr) == noErr) ::LSOpenFSRef(&application);
}
