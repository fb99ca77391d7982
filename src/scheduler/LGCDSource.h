// LGCDSource: owns one timer source. An element of the source list of an LGCDTimer.
#pragma once

#include <dispatch/dispatch.h>

class LGCDSource {
public:
    // Takes over the caller's reference.
    explicit LGCDSource(dispatch_source_s* timerSource) : source(timerSource) {}
    // After this no event of the source starts; one that has started finds no record and does nothing.
    ~LGCDSource() {
        dispatch_source_cancel(source);
        dispatch_release(source);
    }
    LGCDSource(const LGCDSource&) = delete;
    LGCDSource& operator=(const LGCDSource&) = delete;

    LGCDSource* pNext = nullptr;
    const dispatch_source_t source;
};
