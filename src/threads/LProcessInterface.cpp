#include "threads/LProcessInterface.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>

namespace {
constexpr unsigned long kTextSize = 8192;
}

void LProcessInterface::SetErrorF(const char* format, ...) {
    char text[kTextSize];
    va_list args;
    va_start(args, format);
    if (!format || std::vsnprintf(text, sizeof text, format, args) < 0) text[0] = '\0';
    va_end(args);
    SetError(text);
}

void LProcessInterface::SetStatusF(int level, const char* format, ...) {
    char text[kTextSize];
    va_list args;
    va_start(args, format);
    if (!format || std::vsnprintf(text, sizeof text, format, args) < 0) text[0] = '\0';
    va_end(args);
    SetStatus(text, level);
}

bool LProcessInterfaceVoid::ProcessWait(unsigned int milliseconds) {
    timespec left{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1'000'000};
    while (::nanosleep(&left, &left) != 0 && errno == EINTR) continue;
    return false;
}

int LProcessInterfaceVoid::ProcessWaitSignal(LSignalObjectRef object, unsigned int timeoutMs) {
    return object.WaitSignal(timeoutMs) ? waitSet : waitTimedOut;
}

int LProcessInterfaceVoid::ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int timeoutMs) {
    return group.Select(timeoutMs) ? waitSet : waitTimedOut;
}
