#include "app/LScheduleHelperNotify.h"

#include "app/LScheduleHelper.h"
#include "app/LScheduleHelperKeys.h"
#include "app/LScheduleHelperRequest.h"

LScheduleHelperNotify::~LScheduleHelperNotify() {
    StopCallbacks();
}

void LScheduleHelperNotify::EvConnectionError(long connection, LXPCErrorType error) {
    if (error == xpcErrorConnectionInterrupted) return;
    if (LXPCMachServer* server = pOwner->getXPCServer()) server->Disconnect(connection);
}

void LScheduleHelperNotify::EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) {
    const auto request = LScheduleHelperRequest::Read(items);
    switch (request.action) {
    case LScheduleHelperRequest::Test:
        return _Reply(connection, message, kReplyTestConnection, true);
    case LScheduleHelperRequest::Quit:
        pOwner->shutdownHelper();
    case LScheduleHelperRequest::Add:
        return Add(request.bundleId, request.bundlePath, request.skedName, LDateTime(request.LaunchSeconds()),
                   request.daily, request.weekly, LWeekDay(request.weekDays));
    case LScheduleHelperRequest::Delete:
        return Delete(request.bundleId, request.bundlePath, request.skedName);
    case LScheduleHelperRequest::DeleteAll:
        return DeleteAll(request.bundleId, request.bundlePath);
    case LScheduleHelperRequest::Handshake:
        if (request.IsFromMainApp()) _Reply(connection, message, kReplyNewConnection, true);
        return;
    case LScheduleHelperRequest::MayQuit:
        return _Reply(connection, message, kReplyShutdownHelperRequest, !HasTimers());
    case LScheduleHelperRequest::None:
        return;
    }
}

void LScheduleHelperNotify::EvInvalidConnectionAttempt() {
    pOwner->shutdownHelper();
}

void LScheduleHelperNotify::EvScheduleStart(const char* appBundleId, const char* appPath, const char*) {
    pOwner->launchMainApp(appBundleId, appPath);
}

void LScheduleHelperNotify::_Reply(long connection, long message, const char* key, bool value) {
    LXPCMachServer* server = pOwner->getXPCServer();
    if (!server) return;
    LList<LXPCDataListable> items;
    items.Add(CreateXPCData({key, xpcDataBool}, value, 0));
    server->SendReply(connection, message, items);
}
