#include "app/LScheduleHelper.h"

#include "app/LScheduleHelperKeys.h"
#include "app/LScheduleHelperNotify.h"
#include "text/LCFBundle.h"
#include "text/LCFString.h"
#include "text/LCFURL.h"
#include "text/LPrintf.h"
#include "text/LPtr.h"

#include <Carbon/Carbon.h>
#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/exit_gate.h>

#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

namespace {

// Destroyed in reverse order: the server's connections go before what they report to.
LPtr<LScheduleHelperNotify> pXpcNotifyee;
LPtr<LXPCMachServer> pXPCServer;

bool IsSameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Whether the application runs from this very bundle. A bundle that can't be examined isn't this one.
bool IsRunningFrom(const NSRunningApplication& application, const char* bundlePath) {
    char runningPath[LTextBufferSize];
    struct stat running, wanted;
    return application.bundleURL().path().getCString(runningPath, sizeof runningPath, NSUTF8StringEncoding) &&
           stat(runningPath, &running) == 0 && stat(bundlePath, &wanted) == 0 && IsSameFile(running, wanted);
}

// The caller's reference; null when there is no such folder.
CFBundleRef CreateBundle(const char* path) {
    LCFString text;
    text.SetString(path);
    const LCFURL url(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, text.Get(), kCFURLPOSIXPathStyle, true));
    return url.Get() ? CFBundleCreate(kCFAllocatorDefault, url.Get()) : nullptr;
}

}  // namespace

bool LIsLionOrLater(int major, int minor) {
    major &= 0xFF;
    minor &= 0xFF;
    return major > 10 || (major == 10 && minor > 6);
}

bool IsOSMacLionOrLater() {
    static const bool bIsLionOrLater = [] {
        SInt32 major = 0, minor = 0;
        Gestalt(gestaltSystemVersionMajor, &major);
        Gestalt(gestaltSystemVersionMinor, &minor);
        return LIsLionOrLater(major, minor);
    }();
    return bIsLionOrLater;
}

bool LIsMainAppVersion(int major, int minor) {
    char version[LTextBufferSize];
    tplsnprintf(version, sizeof version, "%d.%d", major, minor);
    return std::strcmp(version, kMainAppVersion) == 0;
}

void LScheduleHelper::applicationDidFinishLaunching() {
    if (!IsOSMacLionOrLater()) shutdownHelper();
    pXpcNotifyee = new LScheduleHelperNotify;
    pXpcNotifyee->pOwner = this;
    pXpcNotifyee->LoadFromSettings();
    if (isMainAppRunning()) startXPCServer();
}

void LScheduleHelper::applicationShouldHandleReopen() {
    if (isMainAppRunning()) startXPCServer();
}

void LScheduleHelper::applicationWillTerminate() {
    if (IsOSMacLionOrLater()) pXPCServer.Reset();
}

LXPCMachServer* LScheduleHelper::getXPCServer() {
    return pXPCServer.Get();
}

void LScheduleHelper::startXPCServer() {
    pXPCServer = new LXPCMachServer(pXpcNotifyee.Get());
    for (const LScheduleHelperKey& key : LScheduleHelperKeys()) pXPCServer->AddKey(key.szName, key.type);
    pXPCServer->Start(kHelperServiceName);
}

void LScheduleHelper::shutdownHelper() {
    dispatch_gate_close(EXIT_SUCCESS);
    if (IsOSMacLionOrLater()) pXPCServer.Reset();
    exit(EXIT_SUCCESS);
}

void LScheduleHelper::launchMainApp(const char* bundleId, const char* bundlePath) {
    const NSString identifier = NSString::initWithCString(bundleId, NSUTF8StringEncoding);
    for (const auto& application : NSRunningApplication::runningApplicationsWithBundleIdentifier(identifier))
        if (IsRunningFrom(application, bundlePath)) return;
    const LCFBundle bundle(CreateBundle(bundlePath));
    if (!bundle.Get()) return;
    int major = 0, minor = 0;
    bundle.GetVersionNumber(major, minor);
    if (!LIsMainAppVersion(major, minor)) return;
    NSWorkspace::sharedWorkspace().launchApplication(NSString::initWithCString(bundlePath, NSUTF8StringEncoding));
}

bool LScheduleHelper::isMainAppRunning() {
    const NSString identifier = NSString::initWithCString(kMainAppBundleId, NSUTF8StringEncoding);
    const NSString name = NSString::initWithCString(kMainAppName, NSUTF8StringEncoding);
    for (const auto& application : NSRunningApplication::runningApplicationsWithBundleIdentifier(identifier))
        if (application.localizedName().isEqualToString(name)) return true;
    return false;
}
