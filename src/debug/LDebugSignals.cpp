#include "debug/LDebugSignals.h"

#include "debug/LHangDetector.h"

#include <bsd/LDescriptor.h>
#include <dispatch/exit_gate.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

namespace {

constexpr unsigned int kPatienceSeconds = 5;
constexpr size_t kHandlerStack = size_t{64} * 1024;

std::atomic<bool> bLLibExceptionAlreadyTrapped{false};
std::atomic<int> endPipe{-1};  // its writing end

void Catch(int number, void (*handler)(int, siginfo_t*, void*)) {
    struct sigaction present {};
    if (::sigaction(number, nullptr, &present) != 0 || present.sa_handler != SIG_DFL) return;
    struct sigaction action {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESTART;
    ::sigfillset(&action.sa_mask);
    ::sigaction(number, &action, nullptr);
}

// A handler on a stack that is full would fault itself.
void GiveThisThreadAHandlerStack() {
    stack_t present{};
    if (::sigaltstack(nullptr, &present) == 0 && !(present.ss_flags & SS_DISABLE)) return;
    static char stack[kHandlerStack];
    const stack_t own{stack, 0, sizeof stack};
    ::sigaltstack(&own, nullptr);
}

bool StartThread(void* (*body)(void*), void* argument) {
    pthread_t thread;
    sigset_t all, before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    errno = ::pthread_create(&thread, nullptr, body, argument);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return errno == 0 && ::pthread_detach(thread) == 0;
}

[[noreturn]] void* End(void*) {
    dispatch_gate_close(EXIT_SUCCESS);
    std::exit(EXIT_SUCCESS);
}

// Closing the gate may end the process at once, and what is destroyed may hang: the marker goes first.
[[noreturn]] void* WaitForEnd(void* argument) {
    const LDescriptor pipe(static_cast<int>(reinterpret_cast<intptr_t>(argument)));
    char byte = 0;
    while (::read(pipe.Get(), &byte, 1) != 1) continue;
    gLHangDetector.DeleteMarker();
    if (!StartThread(End, nullptr)) End(nullptr);
    ::sleep(kPatienceSeconds);
    ::_exit(EXIT_SUCCESS);
}

}  // namespace

// Of several threads that fault at once one ends the process, the others wait for that.
void LDebugSignalHandler(int number, siginfo_t*, void*) {
    if (number == SIGQUIT) return;
    if (number == SIGILL) {
        // To return alone would repeat the instruction for ever.
        ::signal(number, SIG_DFL);
        ::raise(number);
        return;
    }
    while (bLLibExceptionAlreadyTrapped.exchange(true)) ::pause();
    gLHangDetector.DeleteMarker();
    ::_exit(kLFaultStatus);
}

void LIntTermSignalHandler(int, siginfo_t*, void*) {
    const int before = errno;
    // Full means that it has been told.
    [[maybe_unused]] const ssize_t written = ::write(endPipe, "", 1);
    errno = before;
}

void LDebugCatchFaults() {
    ::signal(SIGPIPE, SIG_IGN);
    GiveThisThreadAHandlerStack();
    for (const int number : {SIGQUIT, SIGILL, SIGFPE, SIGSEGV, SIGBUS}) Catch(number, LDebugSignalHandler);
}

bool LDebugCatchEndSignals() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return false;
    LDescriptor reading(ends[0]), writing(ends[1]);
    ::fcntl(writing.Get(), F_SETFL, O_NONBLOCK);
    if (!StartThread(WaitForEnd, reinterpret_cast<void*>(static_cast<intptr_t>(reading.Get())))) return false;
    reading.Release();
    endPipe = writing.Release();
    for (const int number : {SIGINT, SIGTERM}) Catch(number, LIntTermSignalHandler);
    return true;
}
