#include "HelperRequest.h"

#include "app/LScheduleHelperKeys.h"
#include "text/LCopyBounded.h"

namespace tools {

HelperRequest HelperRequest::Test() {
    HelperRequest request;
    request.PutFlag(kKeyTestConnection);
    request.replyKey = kReplyTestConnection;
    return request;
}

HelperRequest HelperRequest::Handshake(const Application& application) {
    HelperRequest request(application);
    request.PutFlag(kKeyNewConnection);
    request.replyKey = kReplyNewConnection;
    return request;
}

HelperRequest HelperRequest::Add(const Application& application, const NewSchedule& schedule) {
    HelperRequest request(application);
    request.PutText(kKeyNewSkedName, schedule.name)
        .Put(kKeyNewSkedTime, xpcDataDate, schedule.start)
        .Put(kKeyNewSkedDaily, xpcDataBool, schedule.daily)
        .Put(kKeyNewSkedWeekly, xpcDataBool, schedule.weekly)
        .Put(kKeyNewSkedWeekdayMask, xpcDataUInt64, schedule.weekdays);
    return request;
}

HelperRequest HelperRequest::Delete(const Application& application, const std::string& name) {
    HelperRequest request(application);
    request.PutText(kKeyDeleteSkedName, name);
    return request;
}

HelperRequest HelperRequest::DeleteAll(const Application& application) {
    HelperRequest request(application);
    request.PutFlag(kKeyDeleteAllSked);
    return request;
}

HelperRequest HelperRequest::MayQuit() {
    HelperRequest request;
    request.PutFlag(kKeyShutdownHelperRequest);
    request.replyKey = kReplyShutdownHelperRequest;
    return request;
}

HelperRequest HelperRequest::Quit() {
    HelperRequest request;
    request.PutFlag(kKeyShutdownHelper);
    return request;
}

HelperRequest::HelperRequest(const Application& application) {
    PutText(kKeyMainAppBundleId, application.bundleId).PutText(kKeyMainAppBundlePath, application.path);
}

HelperRequest& HelperRequest::Put(const char* key, LXPCDataType type, long value) {
    LXPCData item;
    LCopyBounded(item.szName, key, sizeof item.szName);
    item.type = type;
    item.nValue = value;
    items.push_back(item);
    return *this;
}

HelperRequest& HelperRequest::PutText(const char* key, const std::string& text) {
    return Put(key, xpcDataString, reinterpret_cast<long>(texts.emplace_back(text).c_str()));
}

}  // namespace tools
