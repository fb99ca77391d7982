// LScheduleHelperRequest: what one received message asks of the helper. Reading it decides everything and does nothing;
// LScheduleHelperNotify acts. Pure, any thread.
#pragma once

#include "text/LList.h"
#include "xpc/LXPCData.h"

struct LScheduleHelperRequest {
    enum Action { None, Test, Quit, Add, Delete, DeleteAll, Handshake, MayQuit };

    Action action = None;
    // Point into the message; null when absent or sent with another type.
    const char* bundleId = nullptr;
    const char* bundlePath = nullptr;
    const char* skedName = nullptr;
    long startSeconds = 0;  // as received
    bool daily = false;
    bool weekly = false;
    unsigned char weekDays = 0;  // bits 0 to 6

    // Reads the items, which come in the order of the vocabulary. "XPC_TEST_CONNECTION" and "XPC_SHUTDOWN_HELPER" end
    // the reading. Of several other triggers the action is the first of Add, Delete, DeleteAll, Handshake, MayQuit; the
    // name slot is shared, so a later name replaces an earlier one. Requests that lack a text they need come out as
    // None.
    static LScheduleHelperRequest Read(const LList<LXPCDataListable>& items);

    // The start that is stored and timed: ten seconds before the received one, saturating.
    long LaunchSeconds() const;
    // Whether a handshake comes from the application that the helper works for.
    bool IsFromMainApp() const;
};
