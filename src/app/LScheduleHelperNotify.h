// LScheduleHelperNotify: the helper's event object, at once the sink of its XPC server and its scheduler. Made by the
// delegate before the server, lives until the process ends; keeps nothing per connection. Messages arrive on pool
// threads, one at a time per connection; starts arrive on pool threads, too.
#pragma once

#include "scheduler/LGCDScheduler.h"
#include "xpc/LXPCEventNotify.h"

class LScheduleHelper;

class LScheduleHelperNotify : public LXPCServerEventNotify, public LGCDScheduler {
public:
    LScheduleHelperNotify() = default;
    // Leaves the store and the server alone.
    ~LScheduleHelperNotify() override;

    // Anything but an interruption ends the connection.
    void EvConnectionError(long connection, LXPCErrorType error) override;
    void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) override;
    void EvReplyReceived(long, const LList<LXPCDataListable>&) override {}
    void EvMessageSent(long) override {}
    // A refused peer ends the helper.
    void EvInvalidConnectionAttempt() override;

    using LGCDScheduler::EvScheduleStart;
    // Starts the main application; it finds its due work by itself, so the schedule's name is not passed on.
    void EvScheduleStart(const char* appBundleId, const char* appPath, const char* skedName) override;

    LScheduleHelper* pOwner = nullptr;  // set before anything arrives; not owned

private:
    void _Reply(long connection, long message, const char* key, bool value);
};
