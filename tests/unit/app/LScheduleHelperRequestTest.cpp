#include "app/LScheduleHelperRequest.h"
#include "app/LScheduleHelperKeys.h"

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>
#include <vector>

namespace {

using Request = LScheduleHelperRequest;

constexpr const char* kPath = "/Applications/Quillo.app";

// A message's items, listed in the order of the vocabulary as an endpoint hands them over whatever order they were sent
// in.
class Message {
public:
    Message& Text(const char* key, const char* text) { return Add(key, xpcDataString, reinterpret_cast<long>(text)); }
    Message& Number(const char* key, LXPCDataType type, long value) { return Add(key, type, value); }
    Message& Flag(const char* key, bool value = true) { return Add(key, xpcDataBool, value); }
    Message& FromMainApp() { return Text(kKeyMainAppBundleId, kMainAppBundleId).Text(kKeyMainAppBundlePath, kPath); }

    Request Read() const {
        LList<LXPCDataListable> items;
        const auto keys = LScheduleHelperKeys();
        for (auto key = keys.rbegin(); key != keys.rend(); ++key)
            for (const LXPCDataListable& item : sent)
                if (std::string_view(item.szName) == key->szName) items.Add(new LXPCDataListable(item));
        return Request::Read(items);
    }

private:
    Message& Add(const char* key, LXPCDataType type, long value) {
        std::unique_ptr<LXPCDataListable> item(CreateXPCData({key, type}, value, 0));
        sent.push_back(*item);
        return *this;
    }

    std::vector<LXPCDataListable> sent;
};

TEST(ScheduleHelperRequest, AnAddCarriesEverythingAndStartsTenSecondsEarlier) {
    const Request r = Message()
                          .Number(kKeyNewSkedWeekdayMask, xpcDataUInt64, 0x1FF)
                          .Flag(kKeyNewSkedWeekly)
                          .Flag(kKeyNewSkedDaily, false)
                          .Number(kKeyNewSkedTime, xpcDataDate, 1'700'000'000)
                          .Text(kKeyNewSkedName, "Morning")
                          .FromMainApp()
                          .Read();
    EXPECT_EQ(r.action, Request::Add);
    EXPECT_STREQ(r.bundleId, kMainAppBundleId);
    EXPECT_STREQ(r.bundlePath, kPath);
    EXPECT_STREQ(r.skedName, "Morning");
    EXPECT_EQ(r.LaunchSeconds(), 1'699'999'990);
    EXPECT_FALSE(r.daily);
    EXPECT_TRUE(r.weekly);
    EXPECT_EQ(r.weekDays, 0x7F);
}

TEST(ScheduleHelperRequest, AbsentTimeFlagsAndDaysCountAsNothingAndTheEarliestTimeSaturates) {
    const Request r = Message().FromMainApp().Text(kKeyNewSkedName, "").Read();
    EXPECT_EQ(r.action, Request::Add);
    EXPECT_EQ(r.LaunchSeconds(), -10);
    EXPECT_FALSE(r.daily || r.weekly);
    EXPECT_EQ(r.weekDays, 0);
    Request earliest;
    earliest.startSeconds = LONG_MIN;
    EXPECT_EQ(earliest.LaunchSeconds(), LONG_MIN);
}

TEST(ScheduleHelperRequest, OfSeveralTriggersOneIsTaken) {
    const auto all = [] {
        return Message()
            .FromMainApp()
            .Text(kKeyNewSkedName, "new")
            .Text(kKeyDeleteSkedName, "old")
            .Flag(kKeyDeleteAllSked)
            .Flag(kKeyNewConnection)
            .Flag(kKeyShutdownHelperRequest);
    };
    EXPECT_EQ(all().Read().action, Request::Add);
    EXPECT_STREQ(all().Read().skedName, "old");  // the later key fills the slot last
    EXPECT_EQ(all().Flag(kKeyTestConnection, false).Read().action, Request::Test);
    EXPECT_EQ(all().Flag(kKeyShutdownHelper, false).Read().action, Request::Quit);
    EXPECT_EQ(all().Flag(kKeyShutdownHelper).Flag(kKeyTestConnection).Read().action, Request::Test);
    EXPECT_EQ(Message()
                  .FromMainApp()
                  .Text(kKeyDeleteSkedName, "old")
                  .Flag(kKeyDeleteAllSked)
                  .Flag(kKeyNewConnection)
                  .Read()
                  .action,
              Request::Delete);
    EXPECT_EQ(Message().FromMainApp().Flag(kKeyDeleteAllSked).Flag(kKeyNewConnection).Read().action,
              Request::DeleteAll);
    EXPECT_EQ(Message().FromMainApp().Flag(kKeyNewConnection).Flag(kKeyShutdownHelperRequest).Read().action,
              Request::Handshake);
    EXPECT_EQ(Message().Flag(kKeyShutdownHelperRequest).Read().action, Request::MayQuit);
    EXPECT_EQ(Message().FromMainApp().Number(kKeyNewSkedTime, xpcDataDate, 5).Read().action, Request::None);
}

TEST(ScheduleHelperRequest, WhatLacksATextItNeedsAsksForNothing) {
    // A key sent with another type reads as a null text.
    EXPECT_EQ(Message().FromMainApp().Text(kKeyNewSkedName, nullptr).Flag(kKeyDeleteAllSked).Read().action,
              Request::None);
    EXPECT_EQ(Message().FromMainApp().Text(kKeyDeleteSkedName, nullptr).Read().action, Request::None);
    for (const char* trigger : {kKeyNewSkedName, kKeyDeleteSkedName, kKeyDeleteAllSked, kKeyNewConnection}) {
        const auto message = [trigger] {
            return trigger == kKeyDeleteAllSked || trigger == kKeyNewConnection ? Message().Flag(trigger)
                                                                                : Message().Text(trigger, "x");
        };
        EXPECT_EQ(message().Text(kKeyMainAppBundleId, "id").Read().action, Request::None) << trigger;
        EXPECT_EQ(message().Text(kKeyMainAppBundlePath, kPath).Read().action, Request::None) << trigger;
        EXPECT_NE(message().Text(kKeyMainAppBundleId, "").Text(kKeyMainAppBundlePath, "").Read().action, Request::None)
            << trigger;
    }
}

TEST(ScheduleHelperRequest, OnlyTheMainApplicationShakesHands) {
    const struct {
        const char *id, *path;
        bool expected;
    } cases[] = {
        {kMainAppBundleId, "/Applications/Quillo.app", true},
        {kMainAppBundleId, "Quillo.app", true},
        {kMainAppBundleId, "/a.b/Quillo", true},
        {kMainAppBundleId, "/Applications/quillo.app", false},
        {kMainAppBundleId, "/Applications/Quillo.app/", false},
        {kMainAppBundleId, "", false},
        {"com.tarnwick.Quillofree", kPath, false},
        {"", kPath, false},
    };
    for (const auto& c : cases) {
        const Request r = Message()
                              .Flag(kKeyNewConnection)
                              .Text(kKeyMainAppBundleId, c.id)
                              .Text(kKeyMainAppBundlePath, c.path)
                              .Read();
        EXPECT_EQ(r.IsFromMainApp(), c.expected) << c.id << " " << c.path;
    }
}

}  // namespace
