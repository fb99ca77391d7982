#include "debug/LDebugThreads.h"

#include "text/LAscii.h"
#include "text/LCopyBounded.h"
#include "text/LPrintf.h"
#include "threads/LLockObject.h"
#include "threads/LThreadRunOnMainThread.h"

#include <Carbon/Carbon.h>
#include <mach/thread_policy.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

constexpr uint32_t kMaxThreads = 64;
constexpr uint32_t kNone = 0xFFFFFFFF, kBeingClaimed = 0xFFFFFFFE;
constexpr unsigned long kNameSize = 8, kDialogSize = 32, kNameStart = 4;

struct Entry {
    std::atomic<uint32_t> thread{kNone};
    char dialog[kDialogSize] = {};
    char name[kNameSize] = {};
};

struct Table {
    LLockObject lock;  // claiming and freeing
    Entry entries[kMaxThreads];
    std::atomic<uint32_t> count{0};  // the highest used one and those before it
};

struct Status {
    LLockObject lock;
    char text[LTextBufferSize] = {};
    uint32_t thread = 0;
};

Table& TheTable() {
    static Table& table = *new Table;
    return table;
}

Status& TheStatus() {
    static Status& status = *new Status;
    return status;
}

std::atomic<uint32_t> currentCommand{1}, lastCommand{0};

// kNone: the calling thread has no entry.
uint32_t FindOwnEntry() {
    Table& table = TheTable();
    const uint32_t self = ::mach_thread_self(), count = table.count;
    for (uint32_t i = 0; i < count; i++)
        if (table.entries[i].thread == self) return i;
    return kNone;
}

uint32_t ClaimEntry() {
    Table& table = TheTable();
    const LLockObjectGuard guard(table.lock);
    uint32_t i = 0;
    while (i < table.count && table.entries[i].thread != kNone) i++;
    if (i == kMaxThreads) return kNone;
    table.entries[i].thread = kBeingClaimed;
    if (i == table.count) table.count++;
    return i;
}

// Units, tens, hundreds.
void CopyDigits(char (&digits)[4]) {
    uint32_t rest = ::mach_thread_self();
    for (int i = 0; i < 3; i++, rest /= 10) digits[i] = static_cast<char>('0' + rest % 10);
    digits[3] = '\0';
}

void SetShortName(Entry& entry, const char* name) {
    char digits[4];
    CopyDigits(digits);
    LCopyBounded(entry.name, name, kNameStart + 1);
    LAppendBounded(entry.name, digits, kNameSize);
}

void CommandText(char (&text)[LTextBufferSize]) {
    static constexpr const char* kPhases[] = {"GloIni1", "GuiIni2", "GuiDes3", "GloDes4"};
    Status& status = TheStatus();
    const LLockObjectGuard guard(status.lock);
    const uint32_t command = currentCommand;
    if (status.thread == ::mach_thread_self())
        LCopyBounded(text, status.text, sizeof text);
    else if (!LIsMainThread())
        text[0] = '\0';
    else if (command == 0)
        tplsnprintf(text, sizeof text, "Ukn0(LstCmd%d)", lastCommand.load());
    else if (command <= 4)
        LCopyBounded(text, kPhases[command - 1], sizeof text);
    else
        tplsnprintf(text, sizeof text, "(Cmd%d)", command);
}

void MachineText(char (&text)[LTextBufferSize]) {
    SInt32 major = 0, minor = 0;
    ::Gestalt(gestaltSystemVersionMajor, &major);
    ::Gestalt(gestaltSystemVersionMinor, &minor);
    tplsnprintf(text, sizeof text, "Mac%s%d%02d", "Intel", major, minor);
}

}  // namespace

void LDebugThreadDataStartThread(const char* name) {
    const uint32_t i = ClaimEntry();
    if (i == kNone) return;
    Entry& entry = TheTable().entries[i];
    if (name)
        LCopyBounded(entry.name, name, kNameStart + 1);
    else
        tplsnprintf(entry.name, sizeof entry.name, "%.4d", ::mach_thread_self() % 10'000);
    entry.dialog[0] = '\0';
    entry.thread = ::mach_thread_self();
}

void LDebugThreadDataStopThread() {
    Table& table = TheTable();
    const LLockObjectGuard guard(table.lock);
    const uint32_t i = FindOwnEntry();
    if (i == kNone) return;
    table.entries[i].thread = kNone;
    uint32_t count = table.count;
    while (count > 0 && table.entries[count - 1].thread == kNone) count--;
    table.count = count;
}

void LDebugThreadSetName(const char* name) {
    if (const uint32_t i = FindOwnEntry(); i != kNone) SetShortName(TheTable().entries[i], name);
}

void LDebugThreadSetLastDialog(const char* text) {
    const uint32_t i = FindOwnEntry();
    if (i == kNone) return;
    char digits[4];
    CopyDigits(digits);
    Entry& entry = TheTable().entries[i];
    LCopyBounded(entry.dialog, text, kDialogSize - std::strlen(digits));
    LAppendBounded(entry.dialog, digits, kDialogSize);
}

void LDebugThreadStatusSet(const char* text) {
    Status& status = TheStatus();
    const LLockObjectGuard guard(status.lock);
    LCopyBounded(status.text, text, sizeof status.text);
    status.thread = ::mach_thread_self();
}

void LDebugThreadStatusClear() {
    Status& status = TheStatus();
    const LLockObjectGuard guard(status.lock);
    if (status.thread == ::mach_thread_self()) status.thread = 0;
}

void LDebugSetCurrentCommand(uint32_t command) {
    currentCommand = command;
}

void LDebugSetLastCommand(uint32_t command) {
    lastCommand = command;
}

void LDebugGenerateXIString(char* dst, const char* prefix, const char* suffix) {
    char machine[LTextBufferSize], command[LTextBufferSize], name[kNameSize] = "Unknown", dialog[kDialogSize] = "";
    MachineText(machine);
    CommandText(command);
    if (const uint32_t i = FindOwnEntry(); i != kNone) {
        const Entry& entry = TheTable().entries[i];
        LCopyBounded(name, LIsAsciiDigit(entry.name[0]) ? "" : entry.name, sizeof name);
        LCopyBounded(dialog, entry.dialog, sizeof dialog);
    }
    char detail[LTextBufferSize];
    tplsnprintf(detail, sizeof detail, "%s%s%s", name, dialog, command);
    tplsnprintf(dst, LTextBufferSize, "%s-%s-%s-%s", prefix, machine, suffix, detail);
}

void OutputDebugStringF(const char* format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    if (!format || std::vsnprintf(text, sizeof text, format, args) < 0) text[0] = '\0';
    va_end(args);
    std::fputs(text, stderr);
    std::fflush(stderr);
}

LBugReportBlockScope::LBugReportBlockScope(const char* name) : entry(FindOwnEntry()) {
    if (entry == kNone) return;
    LCopyBounded(savedName, TheTable().entries[entry].name, sizeof savedName);
    SetShortName(TheTable().entries[entry], name);
}

LBugReportBlockScope::~LBugReportBlockScope() {
    if (entry != kNone) LCopyBounded(TheTable().entries[entry].name, savedName, sizeof savedName);
}
