// The helper as a whole process, with Quillo and schedulectl as its users. One user's helper and Quillo see every other
// Quillo of that user: run nothing else of this system beside these tests.
#include "Descriptor.h"

#include "app/LScheduleHelperKeys.h"
#include "common/HelperClient.h"
#include "home/Home.h"

#include <AppKit/AppKit.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using tools::StoredSchedule;

constexpr const char* startedByHelper = "(the helper)";

StoredSchedule Once(const std::string& name, const std::string& appPath, time_t launch) {
    return {kMainAppBundleId, appPath, name, launch, false, false, 0};
}

std::vector<std::string> NamesOf(const std::vector<StoredSchedule>& schedules) {
    std::vector<std::string> names;
    for (const StoredSchedule& schedule : schedules) names.push_back(schedule.name);
    return names;
}

class HelperTest : public testing::Test {
protected:
    // Any Quillo of this user makes the helper serve: what these tests find would not be theirs.
    void SetUp() override {
        for (const NSRunningApplication& other :
             NSRunningApplication::runningApplicationsWithBundleIdentifier(NSString(kMainAppBundleId)))
            FAIL() << "another Quillo of this user runs, process " << other.processIdentifier();
    }
    std::vector<std::string> QuilloSession() const { return {Home::QuilloProgram(), "session", "--seconds", "600"}; }
    std::vector<std::string> Helper() const { return {Home::HelperProgram()}; }

    Home home;
};

// A connection of this test's own process to the home's helper.
class OwnClient {
public:
    explicit OwnClient(const Home& home) : before(getenv("XDG_RUNTIME_DIR") ? getenv("XDG_RUNTIME_DIR") : "") {
        setenv("XDG_RUNTIME_DIR", home.Environment().at("XDG_RUNTIME_DIR").c_str(), 1);
    }
    ~OwnClient() {
        if (before.empty())
            unsetenv("XDG_RUNTIME_DIR");
        else
            setenv("XDG_RUNTIME_DIR", before.c_str(), 1);
    }
    OwnClient(const OwnClient&) = delete;
    OwnClient& operator=(const OwnClient&) = delete;

    tools::HelperClient client;

private:
    std::string before;
};

// A plain socket, as a client in another language would have one.
platform::Descriptor ConnectPlain(const std::string& socketPath) {
    platform::Descriptor plain(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    EXPECT_LT(socketPath.size(), sizeof address.sun_path);
    socketPath.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(connect(plain.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0) << strerror(errno);
    return plain;
}

// What comes back for these bytes: `size` bytes of it, or fewer when the helper disconnects.
std::string Exchange(const std::string& socketPath, const std::string& bytes, size_t size) {
    const platform::Descriptor plain = ConnectPlain(socketPath);
    EXPECT_EQ(send(plain.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    std::string answer(size, '\0');
    const ssize_t count = recv(plain.Get(), answer.data(), size, MSG_WAITALL);
    answer.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    return answer;
}

TEST_F(HelperTest, WithoutQuilloItServesNobodyButFires) {
    const StoredSchedule due = Once("due", Home::QuilloBundle(), time(nullptr) + 6);
    const StoredSchedule weekly{kMainAppBundleId, Home::QuilloBundle(), "weekly", due.launch + 3600, false, true, 0x7F};
    home.WriteStore({due, weekly});
    Program helper(Helper(), home.Environment());

    ASSERT_TRUE(helper.AwaitOutput(startedByHelper)) << helper.Output();
    EXPECT_GE(time(nullptr), due.launch);
    std::string answer;
    EXPECT_EQ(home.Control({"test"}, &answer), 4);
    EXPECT_NE(answer.find("it serves only once Quillo runs"), std::string::npos) << answer;

    // Quillo runs now: a second start makes the first helper look again.
    Program second(Helper(), home.Environment());
    EXPECT_EQ(second.AwaitEnd(), 0) << second.Output();
    EXPECT_EQ(home.Control({"may-quit"}), 5)
        << "it serves when the second one has ended; the weekly one is still there";
    EXPECT_EQ(home.Control({"delete", "weekly"}), 0);
    EXPECT_EQ(home.Control({"may-quit"}), 0) << "the one that fired counts no more";
    EXPECT_EQ(NamesOf(home.Stored()), std::vector<std::string>{"due"});

    helper.Signal(SIGTERM);
    EXPECT_EQ(helper.AwaitEnd(), 0);
    EXPECT_EQ(CountOf(helper.Output(), startedByHelper), 1u);
}

TEST_F(HelperTest, WithQuilloItServesEveryRequest) {
    Program quillo(QuilloSession(), home.Environment());
    ASSERT_TRUE(quillo.AwaitOutput("the helper knows")) << quillo.Output();

    EXPECT_EQ(home.Control({"handshake"}), 0);
    EXPECT_EQ(home.Control({"handshake", "--app", "/opt/quillo.app", "--timeout", "0.2"}), 5);
    EXPECT_EQ(home.Control({"handshake", "--bundle-id", "com.tarnwick.Quillofree", "--timeout", "0.2"}), 5);
    EXPECT_EQ(home.Control({"add", "once", "--at", "+1h"}), 0);
    EXPECT_EQ(home.Control({"add", "daily", "--at", "21:05", "--daily"}), 0);
    EXPECT_EQ(home.Control({"add", "weekly", "--at", "2030-01-05T20:15", "--weekly", "sat,sun"}), 0);
    EXPECT_EQ(home.Control({"add", "once", "--at", "2030-01-05T20:15:30"}), 0) << "replaces";
    EXPECT_EQ(home.Control({"add", "absent", "--at", "+1h", "--app", "/no/such/Quillo.app"}), 3);
    EXPECT_EQ(home.Control({"add", "x", "--at", "yesterday"}), 2);
    EXPECT_EQ(home.Control({"add", std::string(260, 'n'), "--at", "+1h"}), 2);
    EXPECT_EQ(home.Control({"delete", "absent"}), 3);

    auto stored = home.Stored();
    ASSERT_EQ(NamesOf(stored), (std::vector<std::string>{"daily", "weekly", "once"}));
    EXPECT_EQ(stored[2].launch, 1'893'874'520);  // 2030-01-05 20:15:20 UTC
    EXPECT_EQ(stored[1].weekdays, 0x41);
    EXPECT_TRUE(stored[0].daily);

    std::string list;
    EXPECT_EQ(home.Control({"list"}, &list), 0);
    for (const char* part : {"2030-01-05 20:15:30", "20:15:20", "sat,sun", "daily"})
        EXPECT_NE(list.find(part), std::string::npos) << part << " in\n" << list;

    EXPECT_EQ(home.Control({"may-quit"}), 5);
    EXPECT_EQ(home.Control({"delete", "--all"}), 0);
    EXPECT_TRUE(home.Stored().empty());
    EXPECT_EQ(home.Control({"may-quit"}), 0);
    EXPECT_EQ(home.Control({"quit"}), 0);
    EXPECT_EQ(home.Control({"test"}), 4);
}

TEST_F(HelperTest, WhatSeveralQuillosAddAtOnceAllOfThemKeep) {
    Program quillo(QuilloSession(), home.Environment());
    ASSERT_TRUE(quillo.AwaitOutput("the helper knows")) << quillo.Output();
    constexpr size_t count = 12;
    std::vector<std::unique_ptr<Program>> adding;
    for (size_t i = 0; i < count; i++)
        adding.push_back(std::make_unique<Program>(
            std::vector<std::string>{Home::QuilloProgram(), "add", "at once " + std::to_string(i), "--at", "+1h"},
            home.Environment()));
    for (const auto& one : adding) EXPECT_EQ(one->AwaitEnd(), 0) << one->Output();
    EXPECT_EQ(home.Stored().size(), count);
    EXPECT_EQ(CountOf(BytesOf(home.Environment().at("XDG_DATA_HOME") + "/Quillo/schedules.json"), "at once"), count);
}

TEST_F(HelperTest, RequestsThatItRefusesLeaveItServing) {
    Program quillo(QuilloSession(), home.Environment());
    ASSERT_TRUE(quillo.AwaitOutput("the helper knows")) << quillo.Output();
    OwnClient own(home);
    ASSERT_TRUE(own.client.Connect());

    const tools::Application application{kMainAppBundleId, Home::QuilloBundle()};
    const tools::NewSchedule notUtf8{"\xFF", time(nullptr) + 3600, false, false, 0};
    EXPECT_TRUE(own.client.Tell(tools::HelperRequest::Add(application, notUtf8), 5000));
    // Its key would be the one of the list of all schedules.
    const tools::NewSchedule collides{"SKED_ALL", time(nullptr) + 3600, false, false, 0};
    EXPECT_TRUE(own.client.Tell(tools::HelperRequest::Add({"", ""}, collides), 5000));
    EXPECT_TRUE(home.Stored().empty());
    EXPECT_EQ(Exchange(home.ServiceSocket(), std::string(64, '\xA5'), 1), "") << "garbage is answered by hanging up";
    EXPECT_EQ(own.client.Ask(tools::HelperRequest::Test(), 5000), tools::HelperClient::Answer::Yes)
        << "another peer's garbage is not this one's matter";
    EXPECT_EQ(home.Control({"add", "fine", "--at", "+1h"}), 0);
    EXPECT_TRUE(own.client.TellToQuit(5000));
}

// The bytes of the example in docs/protocol.md.
TEST_F(HelperTest, SpeaksTheDocumentedProtocol) {
    using namespace std::string_literals;
    Program quillo(QuilloSession(), home.Environment());
    ASSERT_TRUE(quillo.AwaitOutput("the helper knows")) << quillo.Output();
    const std::string request =
        "QSKD\1\0\0\0\7\0\0\0\0\0\0\0\x1C\0\0\0\1\0\0\0\1\0\x13\0\1\0\0\0XPC_TEST_CONNECTION\1"s;
    const std::string reply =
        "QSKD\1\0\1\0\7\0\0\0\0\0\0\0\x22\0\0\0\1\0\0\0\1\0\x19\0\1\0\0\0XPC_TEST_CONNECTION_REPLY\1"s;
    EXPECT_EQ(Exchange(home.ServiceSocket(), request, reply.size()), reply);
    std::string otherVersion = request;
    otherVersion[4] = 2;
    EXPECT_EQ(Exchange(home.ServiceSocket(), otherVersion, 1), "");
}

TEST_F(HelperTest, EndsWellBySignalWhileItServesNobody) {
    const StoredSchedule later = Once("later", Home::QuilloBundle(), time(nullptr) + 3600);
    home.WriteStore({later});
    for (const int number : {SIGTERM, SIGINT}) {
        Program helper(Helper(), home.Environment());
        ASSERT_TRUE(home.AwaitHelper());
        Program second(Helper(), home.Environment());
        EXPECT_EQ(second.AwaitEnd(), 0) << "the first one's loop answers it";
        EXPECT_EQ(home.Control({"test"}), 4);
        helper.Signal(number);
        EXPECT_EQ(helper.AwaitEnd(), 0) << helper.Output();
    }
    EXPECT_EQ(home.Stored(), std::vector<StoredSchedule>{later});
}

// Whoever started it may have closed its standard descriptors, or stop reading what it says; here a line about the
// store has no reader any more.
TEST_F(HelperTest, LivesOnWhereNobodyListens) {
    for (const char* descriptors : {"<&- >&- 2>&-", "3<>\"$HOME/pipe\" 2>\"$HOME/pipe\" 3>&-"}) {
        std::ofstream(home.StorePath()) << "damaged";
        const std::string line = "rm -f \"$HOME/pipe\"; mkfifo \"$HOME/pipe\"; exec '" + Home::HelperProgram() + "' ";
        Program helper({"/bin/sh", "-c", line + descriptors}, home.Environment());
        ASSERT_TRUE(home.AwaitHelper()) << helper.Output();
        Program second(Helper(), home.Environment());
        ASSERT_EQ(second.AwaitEnd(), 0) << "it is there to answer";
        for (const char* number : {"0", "1", "2"}) {
            const auto target =
                std::filesystem::read_symlink("/proc/" + std::to_string(helper.Pid()) + "/fd/" + number).string();
            EXPECT_TRUE(target == "/dev/null" || target.starts_with("pipe:") || target.ends_with("/pipe")) << target;
        }
        helper.Signal(SIGTERM);
        EXPECT_EQ(helper.AwaitEnd(), 0);
    }
}

TEST_F(HelperTest, PeersThatComeAndGoLeaveNothingBehind) {
    Program quillo({Home::QuilloProgram()}, home.Environment());
    ASSERT_TRUE(quillo.AwaitOutput("nothing is due"));
    Program helper(Helper(), home.Environment());
    ASSERT_TRUE(home.AwaitService()) << helper.Output();
    const std::string descriptors = "/proc/" + std::to_string(helper.Pid()) + "/fd";
    const auto open = [&] {
        const std::filesystem::directory_iterator folder(descriptors);
        return std::distance(begin(folder), end(folder));
    };
    EXPECT_EQ(home.Control({"test"}), 0);
    const auto before = open();
    for (int i = 0; i < 200; i++) {
        const platform::Descriptor silent = ConnectPlain(home.ServiceSocket());
        const platform::Descriptor half = ConnectPlain(home.ServiceSocket());
        EXPECT_EQ(send(half.Get(), "QSKD\1", 5, MSG_NOSIGNAL), 5);
    }
    // Who is answered was let in after all of them; their ends are handled in any order: several looks until they are
    // through.
    bool isThrough = false;
    for (int looks = 0; looks < 1000 && !isThrough; looks++) {
        EXPECT_EQ(home.Control({"test"}), 0);
        isThrough = open() <= before;
    }
    EXPECT_TRUE(isThrough) << open() << " descriptors, " << before << " before";
}

TEST_F(HelperTest, EndsWellOnSigtermWhileItServesAndComesBackWithItsSchedules) {
    Program quillo({Home::QuilloProgram()}, home.Environment());
    ASSERT_TRUE(quillo.AwaitOutput("nothing is due"));
    for (const int number : {SIGTERM, SIGINT, SIGKILL}) {
        Program helper(Helper(), home.Environment());
        ASSERT_TRUE(home.AwaitService()) << helper.Output();
        EXPECT_EQ(home.Control({"add", "kept " + std::to_string(number), "--at", "+1h"}), 0);
        helper.Signal(number);
        EXPECT_EQ(helper.AwaitEnd(), number == SIGKILL ? 1000 + SIGKILL : 0) << helper.Output();
    }
    EXPECT_EQ(home.Stored().size(), 3u);
}

TEST_F(HelperTest, StartsOnlyTheVersionThatItBelongsTo) {
    std::vector<StoredSchedule> schedules;
    for (const char* version : {"2.13", "3.0", "2.140", "2.14", "2.14.2"})
        schedules.push_back(Once(version, home.CopyQuillo(version, version), 0));
    // The wrong ones are due first: when the right ones have come up, their turn is over. Copying has taken its time.
    const time_t launch = time(nullptr) + 5;
    for (size_t i = 0; i < schedules.size(); i++) schedules[i].launch = i < 3 ? launch : launch + 1;
    schedules.push_back(Once("again", schedules[3].appPath, launch + 1));
    home.WriteStore(schedules);
    Program helper(Helper(), home.Environment());
    ASSERT_TRUE(helper.AwaitOutput(startedByHelper, 2)) << helper.Output();
    helper.Signal(SIGTERM);  // the gate waits for a launch that is under way
    EXPECT_EQ(helper.AwaitEnd(), 0);
    EXPECT_EQ(CountOf(helper.Output(), startedByHelper), 2u) << helper.Output();
}

}  // namespace
