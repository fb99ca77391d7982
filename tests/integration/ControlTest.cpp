// schedulectl as a person and a script use it, with a real helper. Run nothing else of this system beside these tests.
#include "Descriptor.h"
#include "app/LScheduleHelperKeys.h"
#include "home/Home.h"
#include "support/TempFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <pty.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using tools::StoredSchedule;

StoredSchedule Once(const std::string& name, time_t launch) {
    return {kMainAppBundleId, Home::QuilloBundle(), name, launch, false, false, 0};
}

class ControlTest : public testing::Test {
protected:
    // What it prints; its status must be this one.
    std::string Told(int status, const std::vector<std::string>& words) const {
        std::string output;
        EXPECT_EQ(home.Control(words, &output), status) << words[0] << ": " << output;
        return output;
    }
    std::string Write(const std::string& name, const std::string& text) const {
        std::ofstream(files.Join(name)) << text;
        return files.Join(name);
    }

    Home home;
    TempFolder files;
};

// The helper's number as `status` tells it.
std::string ProcessIn(const std::string& status) {
    const std::string word = "process ";
    const size_t at = status.find(word);
    if (at == std::string::npos) return "";
    const size_t begin = at + word.size();
    return status.substr(begin, status.find_first_not_of("0123456789", begin) - begin);
}

#define EXPECT_TELLS(text, part) EXPECT_NE((text).find(part), std::string::npos) << (text)

TEST_F(ControlTest, StopsAHelperOnlyWhereNothingIsMissed) {
    home.WriteStore({Once("soon", time(nullptr) + 40)});
    EXPECT_TELLS(Told(4, {"status"}), "nothing will be started");
    EXPECT_TELLS(Told(0, {"restart"}), "nothing to restart");
    EXPECT_TELLS(Told(4, {"stop"}), "no helper runs");
    EXPECT_TELLS(Told(0, {"start"}), "started the helper");
    EXPECT_TELLS(Told(0, {"start"}), "runs already");
    EXPECT_TELLS(Told(5, {"stop"}), "soon is to be started at");
    const std::string before = Told(0, {"status"});
    EXPECT_TELLS(Told(0, {"restart", "--force"}), "restarted");
    const std::string after = Told(0, {"status"});
    EXPECT_TELLS(after, "next       soon");
    ASSERT_NE(ProcessIn(after), "") << after;
    EXPECT_NE(ProcessIn(before), ProcessIn(after));
    EXPECT_TELLS(Told(0, {"stop", "--force"}), "nothing is started until it runs again");
    EXPECT_EQ(home.Stored().size(), 1u);

    const std::string bundle = home.CopyQuillo("elsewhere", "2.14");
    StoredSchedule moved = Once("moved", time(nullptr) + 3600);
    moved.appPath = bundle;
    home.WriteStore({moved});
    Told(0, {"start"});
    std::filesystem::rename(bundle, bundle + ".away");
    EXPECT_TELLS(Told(5, {"restart", "--force"}), "isn't there now");
    EXPECT_EQ(home.Stored().size(), 1u);
    Told(0, {"stop"});
    EXPECT_TELLS(Told(5, {"start"}), "isn't there now");
    EXPECT_EQ(home.Stored().size(), 1u);
    std::filesystem::rename(bundle + ".away", bundle);
    Told(0, {"start"});
    for (const auto& [zone, told] :
         {std::pair("Asia/Tokyo", "JST (UTC+0900)"), {"<+0530>-5:30", "+0530 (UTC+0530)"}, {"Nowhere", "is no zone"}}) {
        auto session = home.Environment();
        session["TZ"] = zone;
        Program restart({Home::ControlProgram(), "restart"}, session);
        EXPECT_EQ(restart.AwaitEnd(), 0) << restart.Output();
        Program doctor({Home::ControlProgram(), "doctor"},
                       session);  // it compares the helper's zone with the session's
        doctor.AwaitEnd();
        EXPECT_TELLS(doctor.Output(), told);
    }
    Told(0, {"stop"});
    EXPECT_EQ(home.Stored().size(), 1u);
}

// A helper drops the schedules of an application that isn't there while it loads. Once "started" is said, it may go.
TEST_F(ControlTest, AHelperIsStartedOnceItHasLoaded) {
    const std::string bundle = home.CopyQuillo("elsewhere", "2.14");
    std::vector<StoredSchedule> many(3'000, Once("", time(nullptr) + 3600));
    for (size_t i = 0; i < many.size(); i++) {
        many[i].name = std::to_string(i);
        many[i].appPath = bundle;
    }
    home.WriteStore(many);
    for (const char* command : {"start", "restart"}) {
        Told(0, {command});
        std::filesystem::rename(bundle, bundle + ".away");
        Program second({Home::HelperProgram()}, home.Environment());
        ASSERT_EQ(second.AwaitEnd(), 0) << "answered by one that has loaded";
        EXPECT_EQ(home.Stored().size(), many.size()) << command;
        std::filesystem::rename(bundle + ".away", bundle);
    }
}

// It holds its store before it has loaded, and after its last connection has gone: here until the test lets go of it.
TEST_F(ControlTest, AHelperThatHoldsItsStoreIsNeitherLoadedNorEnded) {
    platform::Descriptor store(open((home.StorePath() + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(flock(store.Get(), LOCK_EX), 0);
    EXPECT_TELLS(Told(4, {"start", "--timeout", "0.2"}), "doesn't answer yet");

    const platform::Descriptor service(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    home.ServiceSocket().copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(service.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(service.Get(), 1), 0);
    const auto takeRequest = [&] {
        platform::Descriptor peer(accept4(service.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        char byte;
        EXPECT_EQ(recv(peer.Get(), &byte, 1, 0), 1);
        return peer;
    };
    Program early({Home::ControlProgram(), "quit", "--timeout", "0.5"}, home.Environment());
    takeRequest().Reset();
    EXPECT_EQ(early.AwaitEnd(), 4);
    EXPECT_TELLS(early.Output(), "still there");
    Program quit({Home::ControlProgram(), "quit"}, home.Environment());
    platform::Descriptor peer = takeRequest();
    store.Reset();
    peer.Reset();
    EXPECT_EQ(quit.AwaitEnd(), 0);
    EXPECT_TELLS(quit.Output(), "has ended");
}

TEST_F(ControlTest, IsNotHungByAHelperThatHangs) {
    const auto quillo = home.StartQuillo();
    const auto helper = home.StartHelper();
    Told(0, {"add", "kept", "--at", "+1h"});
    helper->Signal(SIGSTOP);
    const auto begin = std::chrono::steady_clock::now();
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"test"}, {"add", "x", "--at", "+1h"}, {"delete", "kept"}, {"may-quit"}}) {
        auto bounded = words;
        bounded.insert(bounded.end(), {"--timeout", "0.2"});
        Told(4, bounded);
    }
    EXPECT_TELLS(Told(0, {"list"}), "kept");
    EXPECT_TELLS(Told(1, {"doctor", "--timeout", "0.2"}), "does not answer");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    EXPECT_TELLS(Told(0, {"restart", "--timeout", "5"}), "restarted");
    EXPECT_TELLS(Told(0, {"status"}), "runs");
    Told(0, {"stop", "--force"});
}

TEST_F(ControlTest, ImportsAllOrNothing) {
    const auto quillo = home.StartQuillo();
    const auto helper = home.StartHelper();
    Told(0, {"add", "old", "--at", "21:05", "--daily"});
    const auto before = home.Stored();
    const std::string bad = Write("bad.json", R"([{"name":"a","start":"+1h"},{"name":"b","start":"2001-01-01T10:00"},
        {"name":"a","start":"+2h"},{"name":"old","start":"+3h","application":"/no/such/Quillo.app"},
        {"name":"c","start":"+1h","application":"."},{"name":"d","start":"+1h","bundleId":"a\u0001"},
        {"name":"a","start":"+1h","application":")" +
                                                  Home::QuilloBundle() + R"(/../Quillo.app/"}])");
    const std::string refusal = Told(2, {"import", bad});
    for (const char* part :
         {"schedule 2 (b): 2001-01-01 10:00:00 is over", "schedule 3 (a): the same as schedule 1",
          "schedule 4 (old): no application at", "schedule 5 (c): its application's path does not",
          "schedule 6 (d): its application's path or identifier", "schedule 7 (a): the same as", "nothing is imported"})
        EXPECT_TELLS(refusal, part);
    EXPECT_EQ(home.Stored(), before);
    EXPECT_TELLS(Told(0, {"import", bad, "--skip-refused", "--dry-run"}), "would import 1 of 7");
    EXPECT_EQ(home.Stored(), before);

    const std::string tasteless = Write("tasteless.json", R"_([{"name":"\"quotes\" 'n' $(more)","start":"+1h"},
        {"name":"\u05e9\u05dc\u05d5\u05dd \u200f\u05e2","start":"+2h"},{"name":" \ud83d\ude00 , ; \\ ","start":"+3h"},
        {"name":"weekly","start":"20:15","weekly":true,"weekdays":"sat,sun"}])_");
    EXPECT_TELLS(Told(0, {"import", tasteless}), "imported 4 of 4");
    const std::string names = Told(0, {"list", "--names"});
    for (const char* format : {"ical", "json"}) {
        const std::string file = files.Join(format);
        Told(0, {"export", file, "--format", format});
        Told(0, {"delete", "--all"});
        EXPECT_TRUE(home.Stored().empty());
        EXPECT_TELLS(Told(0, {"import", file, "--format", format}), "imported 5 of 5");
        EXPECT_EQ(Told(0, {"list", "--names"}), names) << format;
    }
}

TEST_F(ControlTest, WhatCannotBeReadOrWrittenIsNoSuccess) {
    home.WriteStore({Once("one", time(nullptr) + 3600)});
    EXPECT_TELLS(Told(3, {"import", files.Join("absent")}), "can't be read");
    EXPECT_TELLS(Told(3, {"import", files.Path()}), "Is a directory");
    EXPECT_TELLS(Told(2, {"import", Write("long.ics", "BEGIN:VCALENDAR\nX:" + std::string(3'000'000, 'x'))}),
                 "too long");
    EXPECT_TELLS(Told(1, {"export", "/dev/full"}), "can't be written");
    for (const char* command : {"list", "export", "status", "doctor --json"}) {
        const std::string line = "'" + Home::ControlProgram() + "' " + command + " >/dev/full";
        Program full({"/bin/sh", "-c", line}, home.Environment());
        EXPECT_NE(full.AwaitEnd(), 0) << command;
        EXPECT_TELLS(full.Output(), "No space left on device");
    }
}

TEST_F(ControlTest, AnInterruptedImportIsTakenBack) {
    const auto quillo = home.StartQuillo();
    const auto helper = home.StartHelper();
    Told(0, {"add", "s1", "--at", "21:05", "--daily"});
    Told(0, {"add", "other", "--at", "21:06", "--daily"});
    const auto before = home.Stored();
    std::string text = "[";
    for (int i = 0; i < 20'000; i++)
        text += (i ? ",{\"name\":\"s" : "{\"name\":\"s") + std::to_string(i) + "\",\"start\":\"+1h\"}";
    Program import({Home::ControlProgram(), "import", Write("many.json", text + "]")}, home.Environment());
    ASSERT_TRUE(Await([&] { return home.Stored().size() > 20; })) << import.Output();
    import.Signal(SIGINT);
    EXPECT_EQ(import.AwaitEnd(), 1);
    EXPECT_TELLS(import.Output(), "interrupted: nothing is imported");
    auto after = home.Stored();
    std::reverse(after.begin(), after.end());  // what was replaced and put back is the newest
    EXPECT_EQ(after, before);
}

TEST_F(ControlTest, WatchTellsWhatHappens) {
    const auto quillo = home.StartQuillo();
    const auto helper = home.StartHelper();
    Told(0, {"add", "before", "--at", "+1h"});
    Program watch({Home::ControlProgram(), "watch"}, home.Environment());
    ASSERT_TRUE(watch.AwaitOutput("stored  before")) << watch.Output();
    Told(0, {"add", "due", "--at", "+15s"});
    EXPECT_TRUE(watch.AwaitOutput("added  due")) << watch.Output();
    EXPECT_TRUE(watch.AwaitOutput("launch  due")) << watch.Output();
    Told(0, {"delete", "before", "due"});
    EXPECT_TRUE(watch.AwaitOutput("deleted  before")) << watch.Output();
    helper->Signal(SIGTERM);
    EXPECT_TRUE(watch.AwaitOutput("no helper runs")) << watch.Output();
    watch.Signal(SIGINT);
    EXPECT_EQ(watch.AwaitEnd(), 0);
}

TEST_F(ControlTest, WatchLeavesTheTerminalWhole) {
    home.WriteStore({Once("one", time(nullptr) + 3600)});
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    ASSERT_GE(child, 0);
    if (child == 0) {
        for (const auto& [name, value] : home.Environment()) setenv(name.c_str(), value.c_str(), 1);
        setenv("TERM", "xterm", 1);
        execl(Home::ControlProgram().c_str(), "schedulectl", "watch", nullptr);
        _exit(127);
    }
    std::string shown;
    const auto read = [&] {
        char bytes[4096];
        const ssize_t count = ::read(terminal, bytes, sizeof bytes);
        if (count > 0) shown.append(bytes, static_cast<size_t>(count));
        return count > 0;
    };
    while (shown.find("one") == std::string::npos && read()) continue;
    EXPECT_TRUE(shown.starts_with("\033[?1049h\033[?25l\033[?7l")) << shown;
    ASSERT_EQ(::write(terminal, "\x03", 1), 1);  // Ctrl-C
    while (read()) continue;
    EXPECT_TRUE(shown.ends_with("\033[?7h\033[?25h\033[?1049l") || shown.find("\033[?1049l") > shown.rfind("\033[H"))
        << shown;
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    close(terminal);
}

TEST_F(ControlTest, DoctorFindsWhatKeepsARecordingFromStarting) {
    const time_t now = time(nullptr);
    StoredSchedule wrong = Once("wrong version", now + 3600), gone = Once("gone", now + 3600);
    wrong.appPath = home.CopyQuillo("old", "2.13");
    gone.appPath = files.Join("Quillo.app");
    StoredSchedule renamed = Once("renamed", now + 3600);
    renamed.bundleId = "com.example.other";
    home.WriteStore({wrong, gone, renamed, Once("over", now - 3600)});
    std::ofstream(home.StorePath() + ".damaged-1") << "x";
    const std::string report = Told(1, {"doctor"});
    for (const char* part : {"no helper runs", "a damaged one was set aside", "version 2.13, and only 2.14 is started",
                             "the application is not there", "calls itself \"com.tarnwick.quillofree\"", "over ("})
        EXPECT_TELLS(report, part);
    EXPECT_TELLS(Told(0, {"list"}), "starts nothing: the application is not there");

    std::filesystem::remove(home.StorePath() + ".damaged-1");
    home.WriteStore({Once("fine", now + 3600)});
    Told(0, {"start"});
    EXPECT_TELLS(Told(0, {"doctor", "--json"}), "\"faults\":0");
    std::ofstream(home.StorePath()) << "damaged";
    EXPECT_TELLS(Told(1, {"doctor"}), "can't be read as a store");
    Told(0, {"stop", "--force"});
}

TEST_F(ControlTest, SimulatesAYearWithSummerTime) {
    StoredSchedule daily = Once("daily", 1'767'297'590);  // 2026-01-01 20:59:50 in Berlin
    daily.daily = true;
    home.WriteStore({daily, Once("over", 1'767'297'590)});
    const auto count = [](const std::string& text, const char* part) { return CountOf(text, part); };
    const std::string year = Told(0, {"simulate", "--for", "365d", "--zone", "Europe/Berlin", "--json", "--quiet"});
    EXPECT_EQ(count(year, "\"event\":\"start\""), 365u);
    const size_t shifted = 365 - count(year, "\"shiftSeconds\":0,") - count(year, "\"shiftSeconds\":0}");
    EXPECT_GT(shifted, 120u) << "one of the two halves of the year is shifted";
    EXPECT_LT(shifted, 245u);
    const std::string mended =
        Told(0, {"simulate", "--for", "365d", "--zone", "Europe/Berlin", "--restart", "04:10", "--json", "--quiet"});
    EXPECT_EQ(count(mended, "\"event\":\"start\""), 365u);
    EXPECT_EQ(count(mended, "\"shiftSeconds\":0"), 365u) << "the clocks change before the restart";
    EXPECT_TELLS(Told(0, {"simulate", "--for", "2d", "--zone", "Asia/Tokyo"}), "over: its time is over");
    const std::string asleep = Told(0, {"simulate", "--for", "10d", "--zone", "Asia/Tokyo", "--sleep", "+1s..+5d"});
    EXPECT_EQ(count(asleep, "missed"), 4u) << asleep;
    EXPECT_EQ(count(asleep, "late"), 1u) << asleep;
    const std::string joined = Told(
        0, {"simulate", "--for", "4d", "--zone", "Asia/Tokyo", "--sleep", "23:00..01:00", "--sleep", "00:00..08:00"});
    EXPECT_GE(count(joined, "late"), 3u) << "sleeps that overlap are one: " << joined;
    for (const char* zone : {"Mars/Phobos", "Europe", "zone.tab"})
        EXPECT_TELLS(Told(2, {"simulate", "--for", "10d", "--zone", zone}), "no such zone");
    EXPECT_EQ(home.Stored().size(), 2u) << "the store is as it was";
}

}  // namespace
