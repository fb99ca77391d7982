// LScheduleHelper: the application's delegate. Loads the stored schedules, serves the main application while that runs,
// and starts it when a schedule's time has come. All long-lived state lives in two static owners, none in the delegate:
// the event object and the server, destroyed at the end of the process in this order: server, event object.
#pragma once

#include "xpc/LXPCMachServer.h"

#include <AppKit/AppKit.h>

// Whether a system version is 10.7 or later, the first that the helper runs on. Only the low byte of each number
// counts.
bool LIsLionOrLater(int major, int minor);
// The same for this system; asked once.
bool IsOSMacLionOrLater();

// Whether a bundle of this version is the one that the helper belongs to.
bool LIsMainAppVersion(int major, int minor);

class LScheduleHelper : public NSApplicationDelegate {
public:
    // Main thread. Loads the schedules; returns only where the helper doesn't serve: the main application isn't
    // running, or the service can't be had. Its timers run on either way.
    void applicationDidFinishLaunching() override;
    // The helper was started again while it doesn't serve: the main application may run by now.
    void applicationShouldHandleReopen() override;
    void applicationWillTerminate() override;

    // The server, null before it is made and after it is deleted. Any thread.
    LXPCMachServer* getXPCServer();
    // Ends the process with status 0; the schedules stay stored. Any thread.
    [[noreturn]] void shutdownHelper();
    // Starts the application at the path, unless that very bundle is running already or its version is another one. Any
    // thread. Every failure is silent here.
    void launchMainApp(const char* bundleId, const char* bundlePath);
    bool isMainAppRunning();

private:
    void startXPCServer();
};
