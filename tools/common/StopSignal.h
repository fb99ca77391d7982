// The signals by which a person or a system stops a program, as something to wait for.
#pragma once

namespace tools {

// Blocks SIGTERM, SIGINT, SIGHUP and SIGTSTP, so that the waits below get them. To be called before the process has a
// second thread, which would take them otherwise.
void BlockStopSignals();

// Waits. The signal that came; 0: the time is over. Without BlockStopSignals the signals do what they do.
int AwaitSignal(double seconds);

// The same; true: one that ends came. Leaves one that only suspends to the system.
bool AwaitStopSignal(double seconds);

}  // namespace tools
