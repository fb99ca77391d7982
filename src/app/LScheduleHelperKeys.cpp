#include "app/LScheduleHelperKeys.h"

std::span<const LScheduleHelperKey> LScheduleHelperKeys() {
    static constexpr LScheduleHelperKey kKeys[] = {
        {kKeyMainAppBundleId, xpcDataString},     {kKeyMainAppBundlePath, xpcDataString},
        {kKeyTestConnection, xpcDataBool},        {kKeyNewConnection, xpcDataBool},
        {kKeyNewSkedName, xpcDataString},         {kKeyNewSkedTime, xpcDataDate},
        {kKeyNewSkedDaily, xpcDataBool},          {kKeyNewSkedWeekly, xpcDataBool},
        {kKeyNewSkedWeekdayMask, xpcDataUInt64},  {kKeyDeleteSkedName, xpcDataString},
        {kKeyDeleteAllSked, xpcDataBool},         {kKeyShutdownHelper, xpcDataBool},
        {kKeyShutdownHelperRequest, xpcDataBool},
    };
    return kKeys;
}
