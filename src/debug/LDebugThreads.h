// What threads are called and are doing, for bug reports: a table of 64 threads with a short name and the last dialog
// shown by each, a status text of the thread that is busy, and a text that puts all of it together.
//
// A thread writes and reads its own entry only. Without one (65 threads, or never started here) its setters do nothing.
// Any thread. Nothing here allocates.
#pragma once

#include <cstdint>

// Gives the calling thread an entry, named by the first four characters of `name`, or by four digits of its number when
// that is null.
void LDebugThreadDataStartThread(const char* name);
void LDebugThreadDataStopThread();

// Four characters of the name and three digits of the thread's number, units first: "Work321" for 5123.
void LDebugThreadSetName(const char* name);
// The text, cut so that with the same three digits it has at most 31 characters.
void LDebugThreadSetLastDialog(const char* text);

// The status text and who set it; the last one counts. Clearing forgets who, if that is the caller.
void LDebugThreadStatusSet(const char* text);
void LDebugThreadStatusClear();

// The phase that the process is in: 1 and 2 while it starts, 3 and 4 while it ends, more: the number of a command that
// is handled; 0 is unknown, and shown with the last command.
void LDebugSetCurrentCommand(uint32_t command);
void LDebugSetLastCommand(uint32_t command);

// "<prefix>-<machine and system>-<suffix>-<thread name, dialog, status>" into 260 bytes.
void LDebugGenerateXIString(char* dst, const char* prefix, const char* suffix);

// By the system's format language, at most 511 characters, to standard error.
void OutputDebugStringF(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Renames the calling thread for a scope.
class LBugReportBlockScope {
public:
    explicit LBugReportBlockScope(const char* name);
    ~LBugReportBlockScope();
    LBugReportBlockScope(const LBugReportBlockScope&) = delete;
    LBugReportBlockScope& operator=(const LBugReportBlockScope&) = delete;

private:
    char savedName[8] = {};
    uint32_t entry;  // 0xFFFFFFFF: the thread has none
};
