// SIGTERM and SIGINT as something to wait for.
#pragma once

namespace tools {

// Blocks the two, so that AwaitStopSignal gets them. To be called before the process has a second thread, which would
// take them otherwise.
void BlockStopSignals();

// Waits. True: a signal came; false: the time is over. Without BlockStopSignals the signals end the process.
bool AwaitStopSignal(double seconds);

}  // namespace tools
