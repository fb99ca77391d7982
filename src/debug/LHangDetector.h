// LHangDetector: marks a running instance by a file in the user's caches that it holds locked. A file that nobody holds
// is what a run left behind that did not end cleanly.
#pragma once

#include "text/LStringShort.h"

#include <atomic>

#include <sys/types.h>

class LHangDetector {
public:
    constexpr LHangDetector() = default;
    ~LHangDetector() { Destroy(); }
    LHangDetector(const LHangDetector&) = delete;
    LHangDetector& operator=(const LHangDetector&) = delete;

    // Gives up a marker that it holds. Then takes the user's, new or left behind, and writes into it when the process
    // started to be marked: 8 bytes, seconds and milliseconds, each the low 32 bits, little-endian. Takes none where
    // another instance holds it, where something else than a file lies in its place, or without a caches folder. Not
    // beside itself or Destroy.
    void InitAndTest();
    // Deletes the marker, if this instance holds one, and unlocks it.
    void Destroy();

    // Deletes the marker, if there is one, for a process that is about to end: the lock goes with it. Only once: from
    // then on the path is the next instance's, whose marker would go. Any thread, also in a signal handler.
    void DeleteMarker();

private:
    char path[LTextBufferSize] = {};
    std::atomic<int> descriptor{-1};
    std::atomic<bool> isMarked{false};  // set after the path and the owner
    pid_t owner = 0;                    // a forked child has the descriptor, too, but not the marker
};

// Deleted at the end of the process.
extern LHangDetector gLHangDetector;

void LDebugHangDetectorInit();
void LDebugHangDetectorDestroy();
