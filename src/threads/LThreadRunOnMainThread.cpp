#include "threads/LThreadRunOnMainThread.h"

#include <Carbon/CarbonEvents.h>
#include <bsd/LMutex.h>
#include <mach/thread_policy.h>

#include <condition_variable>
#include <cstring>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr OSType kClass = 0x4C4E6F74;           // "LNot"
constexpr UInt32 kKind = 0x4C4E646B;            // "LNdk"
constexpr EventParamName kThread = 0x4C4E7468;  // "LNth": whose item it is
constexpr EventParamName kData = 0x4C4E6461;    // "LNda": the item, the event's until it is taken

EventHandlerRef installed = nullptr;  // the main thread's

template <class T>
T* Pointer(EventRef event, EventParamName name) {
    void* pointer = nullptr;
    GetEventParameter(event, name, typeVoidPtr, nullptr, sizeof(void*), nullptr, &pointer);
    return static_cast<T*>(pointer);
}

void SetPointer(EventRef event, EventParamName name, const void* pointer) {
    SetEventParameter(event, name, typeVoidPtr, sizeof(void*), &pointer);
}

}  // namespace

// What a poster and its items share.
class LThreadRunOnMainThread::Account {
public:
    // Posts under the lock: nothing is posted behind a withdrawal's back. False when the poster is withdrawn.
    bool Post(EventRef event) {
        const LMutexLock guard(mutex);
        if (!isActive) return false;
        references++;
        PostEventToQueue(GetMainEventQueue(), event, kEventPriorityStandard);
        return true;
    }

    // On the main thread, around an item's run. False when it must not run any more.
    bool Begin() {
        const LMutexLock guard(mutex);
        if (!isActive) references--;
        running += isActive;
        return isActive;
    }
    void End() {
        {
            const LMutexLock guard(mutex);
            references--;
            running--;
        }
        ended.notify_all();
    }

    void Withdraw() {
        const LMutexLock guard(mutex);
        isActive = false;
    }
    void Forget(size_t items) {
        const LMutexLock guard(mutex);
        references -= static_cast<int>(items);
    }
    void AwaitEnd() {
        std::unique_lock<std::mutex> waiting(mutex.Native());
        while (running > 0) ended.wait(waiting);
    }

    int References() {
        const LMutexLock guard(mutex);
        return references;
    }

private:
    LMutex mutex;  // the event queue's lock is taken under it
    std::condition_variable ended;
    bool isActive = true;
    int references = 0;
    int running = 0;  // more than one where an item serves events itself
};

struct LThreadRunOnMainThread::Posted {
    std::unique_ptr<LThreadRunOnMainThreadData> item;
    std::shared_ptr<Account> account;

    static OSStatus Run(EventHandlerCallRef, EventRef event, void*) {
        const std::unique_ptr<Posted> posted(Pointer<Posted>(event, kData));
        if (!posted || !posted->account->Begin()) return noErr;
        posted->item->MainThreadFunction();
        posted->item.reset();
        posted->account->End();
        return noErr;
    }

    struct Flush {
        const Account* account;
        std::vector<std::unique_ptr<Posted>> found;  // deleted outside the queue's lock
    };

    static bool Collect(EventRef event, void* data) {
        auto* flush = static_cast<Flush*>(data);
        if (Pointer<const Account>(event, kThread) != flush->account) return false;
        flush->found.emplace_back(Pointer<Posted>(event, kData));
        SetPointer(event, kData, nullptr);
        return true;
    }
};

void LThreadRunOnMainThread::Init() {
    if (installed) return;
    static constexpr EventTypeSpec kType{kClass, kKind};
    InstallEventHandler(GetApplicationEventTarget(), Posted::Run, 1, &kType, nullptr, &installed);
}

void LThreadRunOnMainThread::Destroy() {
    if (installed) RemoveEventHandler(installed);
    installed = nullptr;
}

LThreadRunOnMainThread::LThreadRunOnMainThread() : account(std::make_shared<Account>()) {}

LThreadRunOnMainThread::~LThreadRunOnMainThread() {
    ThreadRunOnMainThreadDestroy();
}

void LThreadRunOnMainThread::RunOnMainThread(LThreadRunOnMainThreadData* item) {
    auto posted = std::make_unique<Posted>(Posted{std::unique_ptr<LThreadRunOnMainThreadData>(item), account});
    EventRef event = nullptr;
    CreateEvent(nullptr, kClass, kKind, 0, kEventAttributeNone, &event);
    SetPointer(event, kThread, account.get());
    SetPointer(event, kData, posted.get());
    if (account->Post(event)) static_cast<void>(posted.release());  // the event's
    ReleaseEvent(event);
}

void LThreadRunOnMainThread::ThreadRunOnMainThreadDestroy() {
    const std::shared_ptr<Account> kept = account;
    kept->Withdraw();
    Posted::Flush flush{kept.get(), {}};
    FlushSpecificEventsFromQueue(GetMainEventQueue(), Posted::Collect, &flush);
    kept->Forget(flush.found.size());
    if (!LIsMainThread()) kept->AwaitEnd();
}

int LThreadRunOnMainThread::GetRefCount() const {
    return account->References();
}

// --- notifications ---------------------------------------------------------------------------------------------------

namespace {

class LThreadQueuedNotifyData final : public LThreadRunOnMainThreadData {
public:
    explicit LThreadQueuedNotifyData(LThreadQueuedNotify& to) : notifier(to) {}
    void MainThreadFunction() override { notifier.EvQueuedNotify(); }

private:
    LThreadQueuedNotify& notifier;
};

class LQueuedNotifyDataHandlerData final : public LThreadRunOnMainThreadData {
public:
    LQueuedNotifyDataHandlerData(LQueuedNotifyDataHandler& to, unsigned int withCode, const void* bytes,
                                 unsigned long count)
        : handler(to), code(withCode), hasBytes(bytes), length(count) {
        if (bytes) copy.assign(static_cast<const char*>(bytes), count);
    }
    void MainThreadFunction() override { handler.EvQueuedNotifyData(code, hasBytes ? copy.data() : nullptr, length); }

private:
    LQueuedNotifyDataHandler& handler;
    const unsigned int code;
    const bool hasBytes;
    const unsigned long length;
    std::string copy;
};

}  // namespace

LThreadQueuedNotify::~LThreadQueuedNotify() {
    ThreadQueuedNotifyDestroy();
}

void LThreadQueuedNotify::PostQueueNotify() {
    poster.RunOnMainThread(new LThreadQueuedNotifyData(*this));
}

LQueuedNotifyDataHandler::~LQueuedNotifyDataHandler() {
    QueuedNotifyDataHandlerDestroy();
}

void LQueuedNotifyDataHandler::PostNotifyFromSender(unsigned int code, const void* bytes, unsigned long length) {
    poster.RunOnMainThread(new LQueuedNotifyDataHandlerData(*this, code, bytes, length));
}

bool LIsMainThread() {
    return ::mach_thread_self() == static_cast<mach_port_t>(::getpid());
}
