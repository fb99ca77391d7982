// AppKit, the subset that this system calls: the application's loop with its delegate, running applications, launching.
#pragma once

#include <Foundation/Foundation.h>

#include <functional>
#include <memory>
#include <vector>

// The application's delegate. Callbacks run on the main thread, except that applicationWillTerminate runs on whichever
// thread ends the process, behind the closed exit gate.
class NSApplicationDelegate {
public:
    virtual ~NSApplicationDelegate() = default;
    virtual void applicationDidFinishLaunching() = 0;
    // The application was started a second time while its loop runs (never while dispatch_main has the main thread).
    virtual void applicationShouldHandleReopen() {}
    virtual void applicationWillTerminate() {}
};

// Attaches the application's delegate: an object of namespace scope in the program's main file. `make` is called once,
// by NSApplicationMain.
class NSApplicationDelegateClass {
public:
    explicit NSApplicationDelegateClass(std::function<std::unique_ptr<NSApplicationDelegate>()> make);
};

// Runs the application: opens the null device for standard descriptors that are closed, ignores SIGPIPE and SIGXFSZ
// (writing fails instead), takes the single-instance lock beside the defaults file of the main bundle, calls
// applicationDidFinishLaunching, then serves the main queue and reopen requests. SIGTERM and SIGINT end the process
// with status 0, in dispatch_main too: the exit gate, applicationWillTerminate, exit. Returns only in a second
// instance: 0 when the running one acknowledged the reopen request, 1 (with a line on standard error) when it did not
// within 5 s.
int NSApplicationMain(int argc, char** argv);

// A running application: a process of this user whose program is the executable of the innermost bundle around it.
class NSRunningApplication {
public:
    NSRunningApplication(NSURL bundle, NSString name, pid_t process);

    // Snapshot in ascending order of process numbers; empty when none runs. Any thread.
    static std::vector<NSRunningApplication> runningApplicationsWithBundleIdentifier(const NSString& identifier);

    const NSURL& bundleURL() const { return url; }
    // CFBundleDisplayName, else CFBundleName, else the bundle's file name without ".app".
    const NSString& localizedName() const { return displayName; }
    pid_t processIdentifier() const { return pid; }

private:
    NSURL url;
    NSString displayName;
    pid_t pid;
};

// The desktop's workspace. Any thread.
class NSWorkspace {
public:
    static NSWorkspace& sharedWorkspace();

    // Starts the bundle's executable in a session of its own, with default signals, "/" as working folder and standard
    // input from the null device; standard output and error are this process's, no other descriptor is passed on.
    // Environment, limits and the like are inherited.
    // Returns when it has become its program, or failed to (a line on standard error); a failure that may pass, as
    // while the program file is being written, is tried again for 5 s. What the program does afterwards is its own
    // matter: it is reaped when it ends. Launches of one bundle are serialised: a call that finds one on its way shares
    // its outcome, one that finds an earlier one's process running starts none.
    bool launchApplication(const NSString& path);

    // Shows the file, selected, in the desktop's viewer; false where there is none, as here.
    bool selectFile(const NSString& path);
};
