// The helper's wire vocabulary: the service, the keys of requests and replies, and the application that it works for.
#pragma once

#include "xpc/LXPCDataType.h"

#include <span>

inline constexpr char kHelperServiceName[] = "Q3ZT8W5K2R.com.tarnwick.schedulehelper.quillofree214";

inline constexpr char kMainAppBundleId[] = "com.tarnwick.quillofree";
inline constexpr char kMainAppName[] = "Quillo";
inline constexpr char kMainAppVersion[] = "2.14";

inline constexpr char kKeyMainAppBundleId[] = "MAIN_APP_BUNDLEID";
inline constexpr char kKeyMainAppBundlePath[] = "MAIN_APP_BUNDLE_PATH";
inline constexpr char kKeyTestConnection[] = "XPC_TEST_CONNECTION";
inline constexpr char kKeyNewConnection[] = "XPC_NEW_CONNECTION";
inline constexpr char kKeyNewSkedName[] = "NEW_SKED_NAME";
inline constexpr char kKeyNewSkedTime[] = "NEW_SKED_TIME";
inline constexpr char kKeyNewSkedDaily[] = "NEW_SKED_DAILY";
inline constexpr char kKeyNewSkedWeekly[] = "NEW_SKED_WEEKLY";
inline constexpr char kKeyNewSkedWeekdayMask[] = "NEW_SKED_WEEKDAYMASK";
inline constexpr char kKeyDeleteSkedName[] = "DELETE_SKED_NAME";
inline constexpr char kKeyDeleteAllSked[] = "DELETE_ALL_SKED";
inline constexpr char kKeyShutdownHelper[] = "XPC_SHUTDOWN_HELPER";
inline constexpr char kKeyShutdownHelperRequest[] = "XPC_SHUTDOWN_HELPER_REQUEST";

inline constexpr char kReplyTestConnection[] = "XPC_TEST_CONNECTION_REPLY";
inline constexpr char kReplyNewConnection[] = "XPC_NEW_CONNECTION_REPLY";
inline constexpr char kReplyShutdownHelperRequest[] = "XPC_SHUTDOWN_HELPER_REQUEST_REPLY";

// A schedule is stored and timed this much earlier than asked for: the main application needs it to start.
inline constexpr long kLaunchLeadSeconds = 10;

struct LScheduleHelperKey {
    const char* szName;
    LXPCDataType type;
};

// What the helper reads, in the order of registration. The order matters: items arrive in it, and a request that
// carries several triggers is decided by it.
std::span<const LScheduleHelperKey> LScheduleHelperKeys();
