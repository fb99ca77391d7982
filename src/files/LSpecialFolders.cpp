#include "files/LSpecialFolders.h"

#include "files/LFile.h"
#include "files/LFilePath.h"
#include "text/LCFBundle.h"
#include "text/LCFString.h"
#include "text/LCFURL.h"
#include "text/LCopyBounded.h"
#include "text/LPrintf.h"

#include <Carbon/Carbon.h>

#include <cstring>
#include <pwd.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr const char* kProgramFolder = "schedulehelper";
constexpr const char* kSharedFolder = "Shared";
constexpr const char* kApplicationsFolder = "/Applications";
constexpr const char* kVolumesFolder = "/Volumes";
constexpr OSType kVolumesFolderType = 0x737276C4;

// folder/name. False if it was cut: then it names something else, and nobody may act on it.
bool Join(char* dst, const char* folder, const char* name) {
    const size_t whole = std::strlen(folder) + 1 + std::strlen(name ? name : "");
    LFile::_MakeFilePath(dst, folder, name, "");
    return whole < LTextBufferSize;
}

void JoinAndMake(char* dst, const char* folder, const char* name) {
    char parent[LTextBufferSize];
    LCopyBounded(parent, folder, sizeof parent);
    if (Join(dst, parent, name)) ::mkdir(dst, 0777);
}

}  // namespace

void GetUserSpecialFolder(char* dst, unsigned int directory, const char* fallback) {
    const NSArray paths = NSSearchPathForDirectoriesInDomains(directory, NSUserDomainMask, true);
    if (paths.count() > 0) {
        LCopyBounded(dst, paths[0].String().UTF8String(), LTextBufferSize);
        return;
    }
    char home[LTextBufferSize];
    LFile::GetUserFolder(home);
    if (Join(dst, home, fallback) && !LFileExists(dst)) ::mkdir(dst, 0777);
}

void LFile::GetUserDocumentsFolder(char* dst) {
    GetUserSpecialFolder(dst, NSDocumentDirectory, "Documents");
}

void LFile::GetUserDesktopFolder(char* dst) {
    GetUserSpecialFolder(dst, NSDesktopDirectory, "Desktop");
}

void LFile::GetUserMusicFolder(char* dst) {
    GetUserSpecialFolder(dst, NSMusicDirectory, "Music");
}

void LFile::GetUserVideoFolder(char* dst) {
    GetUserSpecialFolder(dst, NSMoviesDirectory, "Movies");
}

void LFile::GetUserPicturesFolder(char* dst) {
    GetUserSpecialFolder(dst, NSPicturesDirectory, "Pictures");
}

void LFile::GetUserDownloadFolder(char* dst) {
    GetUserSpecialFolder(dst, NSDownloadsDirectory, "Downloads");
}

void LFile::GetUserApplicationsFolder(char* dst) {
    GetUserSpecialFolder(dst, NSApplicationDirectory, "Applications");
}

void LFile::GetTempFolder(char* dst) {
    GetUserSpecialFolder(dst, NSCachesDirectory, "Library/Caches");
}

void LFile::GetUserDataFolder(char* dst) {
    GetUserSpecialFolder(dst, NSApplicationSupportDirectory, "Library/Application Support");
}

void LFile::GetSharedDataFolder(char* dst) {
    GetUserDataFolder(dst);
}

void LFile::GetUserDataFolderApp(char* dst) {
    GetUserDataFolder(dst);
    JoinAndMake(dst, dst, kProgramFolder);
}

void LFile::GetSharedDataFolderApp(char* dst) {
    GetUserDataFolderApp(dst);
    JoinAndMake(dst, dst, kSharedFolder);
}

void LFile::GetUserDataFolderAppSubFolder(const char* name, char* dst) {
    char folder[LTextBufferSize];
    GetUserDataFolderApp(folder);
    JoinAndMake(dst, folder, name);
}

void LFile::GetSharedDataFolderAppSubFolder(const char* name, char* dst) {
    char folder[LTextBufferSize];
    GetSharedDataFolderApp(folder);
    if (!Join(dst, folder, name) || LFileExists(dst)) return;
    if (::mkdir(dst, 0777) == 0) SetFolderSecurityAllAccess(dst);
}

void LFile::GetApplicationsFolder(char* dst) {
    const NSArray paths = NSSearchPathForDirectoriesInDomains(NSApplicationDirectory, NSLocalDomainMask, true);
    LCopyBounded(dst, paths.count() > 0 ? paths[0].String().UTF8String() : kApplicationsFolder, LTextBufferSize);
}

bool LFile::GetInstalledApplicationExePath(char* dst, const char* name) {
    char folder[LTextBufferSize];
    GetUserApplicationsFolder(folder);
    if (Join(dst, folder, name) && LFileExists(dst)) return true;
    GetApplicationsFolder(folder);
    return Join(dst, folder, name) && LFileExists(dst);
}

void LFile::GetProgramExecutablePath(char* dst) {
    const LCFURL url(::CFBundleCopyBundleURL(::CFBundleGetMainBundle()));
    const LCFString path(url.Get() ? ::CFURLCopyFileSystemPath(url.Get(), kCFURLPOSIXPathStyle) : nullptr);
    path.GetString(dst, LTextBufferSize);
}

void LFile::GetHelpFolder(char* dst) {
    char bundle[LTextBufferSize];
    GetProgramExecutablePath(bundle);
    tplsnprintf(dst, LTextBufferSize, "%s%s", bundle, "/Contents/Resources/help");
}

void LFile::GetUserFolder(char* dst) {
    LCopyBounded(dst, NSHomeDirectory().UTF8String(), LTextBufferSize);
}

void LFile::GetUserFolderNonSandboxed(char* dst) {
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> texts(16'384);
    ::getpwuid_r(::getuid(), &entry, texts.data(), texts.size(), &found);
    LCopyBounded(dst, found ? found->pw_dir : "", LTextBufferSize);
}

void LFile::GetMountedDrivesFolder(char* dst) {
    FSRef folder;
    if (::FSFindFolder(kOnSystemDisk, kVolumesFolderType, false, &folder) == noErr &&
        ::FSRefMakePath(&folder, reinterpret_cast<UInt8*>(dst), LTextBufferSize) == noErr)
        return;
    LCopyBounded(dst, kVolumesFolder, LTextBufferSize);
}

void LFile::GetNetworkSharesFolder(char* dst) {
    GetMountedDrivesFolder(dst);
}

void ParseFileTypes(NSMutableArray* types, const char* filter) {
    constexpr std::string_view kStart = "*.", kAnything = "*";
    if (!types || !filter) return;
    for (const char* text = filter; *text;) {
        std::string_view patterns = text += std::strlen(text) + 1;
        if (patterns.empty()) return;
        text += patterns.size() + 1;
        while (!patterns.empty()) {
            std::string_view pattern = patterns.substr(0, patterns.find(';'));
            patterns.remove_prefix(std::min(pattern.size() + 1, patterns.size()));
            if (!pattern.starts_with(kStart)) continue;
            pattern.remove_prefix(kStart.size());
            if (pattern != kAnything) types->addObject(NSString(pattern));
        }
    }
}
