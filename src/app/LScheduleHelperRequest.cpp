#include "app/LScheduleHelperRequest.h"

#include "app/LScheduleHelperKeys.h"
#include "files/LFile.h"

#include <cstring>

namespace {

bool Is(const LXPCDataListable& item, const char* key) {
    return std::strcmp(item.szName, key) == 0;
}

const char* Text(const LXPCDataListable& item) {
    return item.type == xpcDataString ? reinterpret_cast<const char*>(item.nValue) : nullptr;
}

// The triggers that a message carries besides those that end the reading.
struct Triggers {
    bool add = false, remove = false, removeAll = false, handshake = false, mayQuit = false;
};

LScheduleHelperRequest::Action FirstOf(const Triggers& triggers) {
    if (triggers.add) return LScheduleHelperRequest::Add;
    if (triggers.remove) return LScheduleHelperRequest::Delete;
    if (triggers.removeAll) return LScheduleHelperRequest::DeleteAll;
    if (triggers.handshake) return LScheduleHelperRequest::Handshake;
    if (triggers.mayQuit) return LScheduleHelperRequest::MayQuit;
    return LScheduleHelperRequest::None;
}

// An add without its name is not turned into the next action: it asks for nothing that could be done.
bool HasTexts(const LScheduleHelperRequest& request) {
    switch (request.action) {
    case LScheduleHelperRequest::Add:
    case LScheduleHelperRequest::Delete:
        return request.bundleId && request.bundlePath && request.skedName;
    case LScheduleHelperRequest::DeleteAll:
    case LScheduleHelperRequest::Handshake:
        return request.bundleId && request.bundlePath;
    default:
        return true;
    }
}

}  // namespace

LScheduleHelperRequest LScheduleHelperRequest::Read(const LList<LXPCDataListable>& items) {
    LScheduleHelperRequest request;
    Triggers triggers;
    for (LListIterator<LXPCDataListable> item(items); item; item.Next()) {
        if (Is(*item, kKeyTestConnection) || Is(*item, kKeyShutdownHelper)) {
            request.action = Is(*item, kKeyTestConnection) ? Test : Quit;
            return request;
        }
        if (Is(*item, kKeyNewConnection)) {
            triggers.handshake = true;
        } else if (Is(*item, kKeyMainAppBundleId)) {
            request.bundleId = Text(*item);
        } else if (Is(*item, kKeyMainAppBundlePath)) {
            request.bundlePath = Text(*item);
        } else if (Is(*item, kKeyNewSkedName)) {
            request.skedName = Text(*item);
            triggers.add = true;
        } else if (Is(*item, kKeyNewSkedTime)) {
            request.startSeconds = item->nValue;
        } else if (Is(*item, kKeyNewSkedDaily)) {
            request.daily = item->nValue != 0;
        } else if (Is(*item, kKeyNewSkedWeekly)) {
            request.weekly = item->nValue != 0;
        } else if (Is(*item, kKeyNewSkedWeekdayMask)) {
            request.weekDays = static_cast<unsigned char>(item->nValue & 0x7F);
        } else if (Is(*item, kKeyDeleteSkedName)) {
            request.skedName = Text(*item);
            triggers.remove = true;
        } else if (Is(*item, kKeyDeleteAllSked)) {
            triggers.removeAll = true;
        } else if (Is(*item, kKeyShutdownHelperRequest)) {
            triggers.mayQuit = true;
        }
    }
    request.action = FirstOf(triggers);
    if (!HasTexts(request)) request.action = None;
    return request;
}

long LScheduleHelperRequest::LaunchSeconds() const {
    long seconds;
    if (__builtin_sub_overflow(startSeconds, kLaunchLeadSeconds, &seconds)) return startSeconds;
    return seconds;
}

bool LScheduleHelperRequest::IsFromMainApp() const {
    char name[LTextBufferSize];
    LFile::_GetFileNameFromPath(name, bundlePath);
    return std::strcmp(name, kMainAppName) == 0 && std::strcmp(bundleId, kMainAppBundleId) == 0;
}
