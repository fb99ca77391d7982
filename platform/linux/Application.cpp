// The application's life: single instance, launch callback, loop, reopen requests, end by signal.
#include "AcceptPause.h"
#include "EventPool.h"
#include "ExitGate.h"
#include "MainQueue.h"
#include "SingleInstance.h"
#include "UserDefaultsFile.h"
#include "UserDefaultsStore.h"

#include <AppKit/AppKit.h>
#include <dispatch/exit_gate.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <malloc.h>
#include <sys/signalfd.h>

namespace platform {
namespace {

constexpr uint32_t kReopenTimeoutMs = 5'000;

using MakeDelegate = std::function<std::unique_ptr<NSApplicationDelegate>()>;

MakeDelegate& DelegateMaker() {
    static MakeDelegate& make = *new MakeDelegate;
    return make;
}

// Ends the process on SIGTERM or SIGINT. The signals are blocked everywhere and read here by a thread of the pool, so
// they work in every state, also while the main thread hangs in a handler.
class SignalWatcher final : public Watcher {
public:
    explicit SignalWatcher(NSApplicationDelegate& delegate) : application(delegate) {}

    // In every thread that is started from now on, too. Before any other thread is.
    static sigset_t Block() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGTERM);
        sigaddset(&signals, SIGINT);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        return signals;
    }

    bool Start(const sigset_t& signals) {
        descriptor.Reset(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
        return descriptor && EventPool::Shared().Events().Add(descriptor.Get(), EPOLLIN, *this);
    }

    void OnReady(uint32_t) override {
        dispatch_gate_close(EXIT_SUCCESS);
        application.applicationWillTerminate();
        exit(EXIT_SUCCESS);
    }

private:
    NSApplicationDelegate& application;
    Descriptor descriptor;
};

// Answers second instances, on the main thread. The delegate hears of them only while the loop runs: once dispatch_main
// has the main thread, the application already does all that it can do.
class ReopenWatcher final : public Watcher {
public:
    ReopenWatcher(NSApplicationDelegate& delegate, Descriptor listening)
        : application(delegate), listener(std::move(listening)) {}

    bool Start() { return listener && MainQueue::Shared().Events().Add(listener.Get(), EPOLLIN, *this); }

    void OnReady(uint32_t) override {
        Descriptor asker = SingleInstance::TakeReopenRequest(listener.Get());
        if (!asker && AcceptPause::IsNeeded(errno)) return pause.Then([this] { Arm(); });
        Arm();  // first: the callback may never return
        if (!asker) return;
        // Acknowledged once the main queue is served again, which is after the callback or within dispatch_main:
        // whoever asked finds a service that listens.
        MainQueue::Shared().Async(
            [kept = std::make_shared<Descriptor>(std::move(asker))] { SingleInstance::Acknowledge(*kept); });
        if (MainQueue::Shared().IsServedForGood()) return;
        ExitGatePassage passage;
        application.applicationShouldHandleReopen();
    }

private:
    void Arm() { MainQueue::Shared().Events().Arm(listener.Get(), EPOLLIN, *this); }

    NSApplicationDelegate& application;
    Descriptor listener;
    AcceptPause pause;
};

// A closed one would become the number of a socket or of the store, and what is meant for people would be written
// there.
void OpenStandardDescriptors() {
    for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(number, F_GETFD) < 0) open("/dev/null", O_RDWR);  // takes the lowest number that is free
}

// What goes wrong while writing is the writer's to see: a line for a terminal that has gone must not end the process,
// and schedules with it.
void IgnoreSignalsOfWriting() {
    for (const int number : {SIGPIPE, SIGXFSZ}) std::signal(number, SIG_IGN);
}

// By default each thread of a pool gets an arena that keeps its peak for good, and one large message raises the amount
// that is kept: after a few peers that never read, tens of megabytes for a program that mostly sleeps.
void GiveMemoryBack() {
    mallopt(M_ARENA_MAX, 2);
    mallopt(M_TRIM_THRESHOLD, 128 * 1024);
}

int Refuse(const std::string& store, const char* what) {
    std::fprintf(stderr, "%s: %s\n", store.c_str(), what);
    return EXIT_FAILURE;
}

}  // namespace
}  // namespace platform

NSApplicationDelegateClass::NSApplicationDelegateClass(std::function<std::unique_ptr<NSApplicationDelegate>()> make) {
    platform::DelegateMaker() = std::move(make);
}

int NSApplicationMain(int, char**) {
    using namespace platform;
    OpenStandardDescriptors();
    IgnoreSignalsOfWriting();
    GiveMemoryBack();
    const sigset_t signals = SignalWatcher::Block();
    const std::string store = MainBundleUserDefaultsPath();
    if (store.empty()) return Refuse("the application's bundle cannot be read", std::strerror(errno));
    // Immortal all: the process ends by exit on another thread while this one waits for events.
    static SingleInstance& instance = *new SingleInstance(store);
    switch (instance.Claim(kReopenTimeoutMs)) {
    case SingleInstance::Outcome::Alone:
        break;
    case SingleInstance::Outcome::HandedOver:
        return EXIT_SUCCESS;
    case SingleInstance::Outcome::Unanswered:
        return Refuse(store, "another instance holds the lock and does not answer");
    case SingleInstance::Outcome::Unavailable:
        return Refuse(store, std::strerror(errno));
    }
    SetStandardUserDefaults(store);  // the one that is locked, whatever the bundle says if it is asked again
    static NSApplicationDelegate& delegate = *DelegateMaker()().release();
    static SignalWatcher& ending = *new SignalWatcher(delegate);
    if (!ending.Start(signals)) return Refuse(store, std::strerror(errno));
    static ReopenWatcher& reopening = *new ReopenWatcher(delegate, instance.ListenForReopen());
    if (!reopening.Start()) return Refuse(store, std::strerror(errno));
    {
        ExitGatePassage passage;
        delegate.applicationDidFinishLaunching();
    }
    MainQueue::Shared().Serve();
}
