#include "BundleState.h"

#include "app/LScheduleHelper.h"
#include "app/LScheduleHelperKeys.h"
#include "text/LCFBundle.h"
#include "text/LCFString.h"
#include "text/LCFURL.h"

#include <CoreFoundation/CoreFoundation.h>

#include <array>
#include <sys/stat.h>
#include <unistd.h>

namespace tools {

namespace {

std::string InfoText(const LCFBundle& bundle, const char* key) {
    LCFString name;
    name.SetString(key);
    const CFTypeRef value = CFBundleGetValueForInfoDictionaryKey(bundle.Get(), name.Get());
    std::array<char, 1024> text{};
    // The layer keeps texts only of what a bundle says.
    if (!value || !CFStringGetCString(static_cast<CFStringRef>(value), text.data(), text.size(), kCFStringEncodingUTF8))
        return "";
    return text.data();
}

bool IsRegularFile(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

std::string ProgramOf(const std::string& bundle, const std::string& name) {
    if (name.empty() || name.find('/') != std::string::npos) return "";
    const std::string contents = bundle + "/Contents/";
    if (std::string program = contents + "Linux/" + name; IsRegularFile(program)) return program;
    if (std::string program = contents + "MacOS/" + name; IsRegularFile(program)) return program;
    return "";
}

}  // namespace

BundleState LookAtBundle(const std::string& path) {
    BundleState state;
    state.isThere = access(path.c_str(), F_OK) == 0;
    LCFString text;
    text.SetString(path.c_str());
    const LCFURL url(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, text.Get(), kCFURLPOSIXPathStyle, true));
    const LCFBundle bundle(url.Get() ? CFBundleCreate(kCFAllocatorDefault, url.Get()) : nullptr);
    if (!bundle.Get()) return state;
    int major = 0, minor = 0;
    bundle.GetVersionNumber(major, minor);
    state.isRightVersion = LIsMainAppVersion(major, minor);
    state.identifier = InfoText(bundle, "CFBundleIdentifier");
    state.version = InfoText(bundle, "CFBundleVersion");
    state.program = ProgramOf(path, InfoText(bundle, "CFBundleExecutable"));
    state.isExecutable = !state.program.empty() && access(state.program.c_str(), X_OK) == 0;
    return state;
}

std::string WhyNotStarted(const BundleState& bundle) {
    if (!bundle.isThere) return "the application is not there";
    if (!bundle.isRightVersion)
        return (bundle.version.empty() ? "the application tells no version"
                                       : "the application is version " + bundle.version) +
               std::string(", and only ") + kMainAppVersion + " is started";
    if (bundle.program.empty()) return "the bundle holds no program";
    if (!bundle.isExecutable) return "its program may not be executed";
    return "";
}

}  // namespace tools
