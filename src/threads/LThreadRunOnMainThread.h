// Work for the main thread: items that any thread posts, and that run there, in the order of posting, when the main
// thread serves its events. Each poster can withdraw what it has posted.
//
// Posting and withdrawing: any thread. A withdrawal waits for an item of the poster's that is running, unless it is
// that item which withdraws; so an item must not wait for whoever withdraws its poster.
#pragma once

#include <memory>

class LThreadRunOnMainThreadData {
public:
    virtual ~LThreadRunOnMainThreadData() = default;
    virtual void MainThreadFunction() = 0;
};

class LThreadRunOnMainThread {
public:
    // On the main thread: from Init on, until Destroy, items run. Those posted before and afterwards wait.
    static void Init();
    static void Destroy();

    LThreadRunOnMainThread();
    virtual ~LThreadRunOnMainThread();
    LThreadRunOnMainThread(const LThreadRunOnMainThread&) = delete;
    LThreadRunOnMainThread& operator=(const LThreadRunOnMainThread&) = delete;

    // Takes the item, which is deleted once it has run; at once when the poster is withdrawn.
    void RunOnMainThread(LThreadRunOnMainThreadData* item);
    // Withdraws the poster for good: from here on none of its items runs. Whose item's run is going on on another
    // thread waits for its end.
    void ThreadRunOnMainThreadDestroy();

    // Items that are posted and have neither run nor been withdrawn.
    int GetRefCount() const;

private:
    class Account;
    struct Posted;

    const std::shared_ptr<Account> account;  // with each of its items, which may outlive the poster
};

// A bare word that something happened. A concrete class calls ThreadQueuedNotifyDestroy in its destructor.
class LThreadQueuedNotify {
public:
    virtual ~LThreadQueuedNotify();
    virtual void EvQueuedNotify() = 0;  // on the main thread

    void PostQueueNotify();
    void ThreadQueuedNotifyDestroy() { poster.ThreadRunOnMainThreadDestroy(); }

private:
    LThreadRunOnMainThread poster;
};

// A code and a copy of some bytes. A concrete class calls QueuedNotifyDataHandlerDestroy in its destructor.
class LQueuedNotifyDataHandler {
public:
    virtual ~LQueuedNotifyDataHandler();
    // On the main thread. Null bytes if none were given; the length is what was given, bytes or not.
    virtual void EvQueuedNotifyData(unsigned int code, const void* bytes, unsigned long length) = 0;

    void PostNotifyFromSender(unsigned int code, const void* bytes, unsigned long length);
    void QueuedNotifyDataHandlerDestroy() { poster.ThreadRunOnMainThreadDestroy(); }

private:
    LThreadRunOnMainThread poster;
};

bool LIsMainThread();
