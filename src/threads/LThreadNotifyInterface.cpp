#include "threads/LThreadNotifyInterface.h"

#include "text/LCopyBounded.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

LThreadNotifyInterface::~LThreadNotifyInterface() {
    StopThreadNow();  // it may still report
    QueuedNotifyDataHandlerDestroy();
}

void LThreadNotifyInterface::SetError(const char* text) {
    PostNotifyFromSender(kError, text, text ? std::strlen(text) + 1 : 0);
}

void LThreadNotifyInterface::SetStatus(const char* text, int level) {
    if (level != 0 && level != 1) return;
    {
        const LLockObjectGuard guard(statusLock);
        LCopyBounded(status[level], text, sizeof status[level]);
    }
    PostNotifyFromSender(level == 0 ? kStatus0 : kStatus1, nullptr, 0);
}

// No number and what is below 0 count as 0.
void LThreadNotifyInterface::SetProgress(double fraction) {
    const double hundredths = fraction > 0 ? std::min(fraction * 100, double{UINT32_MAX}) : 0;
    PostNotifyFromSender(kProgress, nullptr, static_cast<uint32_t>(hundredths));
}

void LThreadNotifyInterface::SetProgressIndeterminateOn() {
    PostNotifyFromSender(kIndeterminateOn, nullptr, 0);
}

void LThreadNotifyInterface::SetProgressIndeterminateOff() {
    PostNotifyFromSender(kIndeterminateOff, nullptr, 0);
}

void LThreadNotifyInterface::EvQueuedNotifyData(unsigned int code, const void* bytes, unsigned long length) {
    switch (code) {
    case kError:
        if (bytes) pTarget->SetError(static_cast<const char*>(bytes));
        return;
    case kStatus0:
    case kStatus1: {
        const int level = code == kStatus0 ? 0 : 1;
        char latest[LTextBufferSize];
        {
            const LLockObjectGuard guard(statusLock);
            LCopyBounded(latest, status[level], sizeof latest);
        }
        return pTarget->SetStatus(latest, level);
    }
    case kProgress:
        return pTarget->SetProgress(static_cast<double>(length) * 0.01);
    case kIndeterminateOn:
        return pTarget->SetProgressIndeterminateOn();
    case kIndeterminateOff:
        return pTarget->SetProgressIndeterminateOff();
    default:
        return;
    }
}
