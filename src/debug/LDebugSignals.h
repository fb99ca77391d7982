// What a process does about signals: a fault ends it with one fixed status and without its marker, SIGTERM and SIGINT
// end it as a return from main does. Installed once, first thing in main. No handler is installed for a signal that
// somebody catches already, a sanitizer say.
#pragma once

#include <csignal>

// What a process ends with after a fault: the low byte of 666.
inline constexpr int kLFaultStatus = 154;

// SIGSEGV, SIGBUS and SIGFPE end the process with kLFaultStatus; SIGILL ends it by itself; SIGQUIT and SIGPIPE do
// nothing. Also where the calling thread's stack is full; on another thread's full stack the signal itself ends the
// process.
void LDebugCatchFaults();

// SIGTERM and SIGINT end the process with status 0: no handler is begun any more, the static objects are destroyed. If
// that hangs, the process ends all the same, after 5 seconds at most. Starts a thread. Not for programs with
// NSApplicationMain, whose loop takes care of these signals. False and errno when it can't be done.
bool LDebugCatchEndSignals();

// The handlers. Nothing in them but what is allowed in any state of the process.
void LDebugSignalHandler(int number, siginfo_t* info, void* context);
void LIntTermSignalHandler(int number, siginfo_t* info, void* context);
