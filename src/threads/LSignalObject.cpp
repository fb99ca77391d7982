#include "threads/LSignalObject.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace {

// What a thread did before it signalled is seen by the one that waited. The kernel's pipe sees to that in fact; this
// says it in the language's terms, for all signal objects together: a view has no place of its own for it.
std::atomic<unsigned> signalCount{0};

bool WaitForAny(std::span<pollfd> waited, unsigned int timeoutMs) {
    const int ready = LPoll(waited, timeoutMs);
    return ready > 0 || (ready < 0 && errno == EINTR);
}

}  // namespace

bool LSignalObjectRef::Select(int highest, fd_set& readSet, unsigned int timeoutMs) const {
    if (highest >= FD_SETSIZE) return false;  // behind the end of the set
    timeval timeout{static_cast<time_t>(timeoutMs / 1000), static_cast<suseconds_t>(timeoutMs % 1000) * 1000};
    const int ready =
        ::select(highest + 1, &readSet, nullptr, nullptr, timeoutMs == kSignalNoTimeOut ? nullptr : &timeout);
    if (ready > 0) signalCount.load(std::memory_order_acquire);
    return ready > 0 || (ready < 0 && errno == EINTR);
}

bool LSignalObjectRef::WaitSignal(unsigned int timeoutMs) const {
    pollfd waited[] = {LPollFor(*this)};
    return WaitForAny(waited, timeoutMs);
}

bool LSignalObjectRef::WaitSignalDual(LSignalObjectRef second, unsigned int timeoutMs) const {
    pollfd waited[] = {LPollFor(*this), LPollFor(second)};
    return WaitForAny(waited, timeoutMs);
}

bool LSignalObjectRef::WaitSignalTriple(LSignalObjectRef second, LSignalObjectRef third, unsigned int timeoutMs) const {
    pollfd waited[] = {LPollFor(*this), LPollFor(second), LPollFor(third)};
    return WaitForAny(waited, timeoutMs);
}

void LSignalObjectRef::Signal() {
    const char one = 1;
    const int descriptor = writeDescriptor;  // who waits may delete the object as soon as the byte is there
    signalCount.fetch_add(1, std::memory_order_release);
    // A full pipe refuses the byte: the object is set all the same.
    while (::write(descriptor, &one, 1) < 0 && errno == EINTR) continue;
}

void LSignalObjectRef::Reset() {
    LDrainDescriptor(readDescriptor);
}

LSignalObject::LSignalObject() {
    int ends[2];
    if (::pipe2(ends, O_NONBLOCK | O_CLOEXEC) != 0) return;
    readDescriptor = ends[0];
    writeDescriptor = ends[1];
}

LSignalObject::~LSignalObject() {
    if (readDescriptor < 0) return;
    ::close(readDescriptor);
    ::close(writeDescriptor);
}

// poll would wait for the others when one descriptor is negative, and call a closed one ready: both are failures here.
int LPoll(std::span<pollfd> waited, unsigned int timeoutMs) {
    const auto isInvalid = [](const pollfd& one) { return one.fd < 0 || (one.revents & POLLNVAL); };
    errno = EBADF;
    if (std::any_of(waited.begin(), waited.end(), isInvalid)) return -1;
    const timespec timeout{static_cast<time_t>(timeoutMs / 1000), static_cast<long>(timeoutMs % 1000) * 1'000'000};
    int ready;
    do ready = ::ppoll(waited.data(), waited.size(), timeoutMs == kSignalNoTimeOut ? nullptr : &timeout, nullptr);
    while (ready < 0 && errno == EINTR && timeoutMs == 0);  // a look waits for nothing that could be interrupted
    if (ready <= 0) return ready;
    signalCount.load(std::memory_order_acquire);
    errno = EBADF;
    return std::any_of(waited.begin(), waited.end(), isInvalid) ? -1 : ready;
}

void LDrainDescriptor(int descriptor) {
    char bytes[4096];
    for (;;) {
        const ssize_t count = ::read(descriptor, bytes, sizeof bytes);
        if (count == static_cast<ssize_t>(sizeof bytes) || (count < 0 && errno == EINTR)) continue;
        return;  // fewer than asked for: no more was there
    }
}
