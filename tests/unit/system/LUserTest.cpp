#include "system/LUser.h"
#include "support/TempFolder.h"

#include <gtest/gtest.h>

#include <fstream>
#include <grp.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// What `body` gives in a process of its own: switching users can't be undone. Null variables are missing ones.
template <class Body>
bool InChild(const char* user, const char* logName, Body body) {
    const pid_t child = ::fork();
    if (child == 0) {
        user ? ::setenv("USER", user, 1) : ::unsetenv("USER");
        logName ? ::setenv("LOGNAME", logName, 1) : ::unsetenv("LOGNAME");
        ::_exit(body() ? 0 : 1);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    return status == 0;
}

const uid_t ordinary = 501;
bool BecomeOrdinary() {
    return ::getuid() != 0 || (::setgroups(0, nullptr) == 0 && ::setgid(ordinary) == 0 && ::setuid(ordinary) == 0);
}

}  // namespace

TEST(LUser, IsRootByNumberOrByTheNameInTheEnvironment) {
    struct {
        const char* user;
        bool isRoot;
    } const cases[] = {{"root", true}, {"Root", false}, {"rooted", false}, {"", false}, {nullptr, false}};
    for (const auto& [user, isRoot] : cases)
        for (const auto question : {LIsUserRoot, LIsUserAdministrator, LIsUserRunningAsAdministrator}) {
            const auto ask = [&] { return BecomeOrdinary() && question(); };
            EXPECT_EQ(InChild(user, "root", ask), isRoot) << (user ? user : "no USER");
        }
    if (::getuid() == 0) {
        EXPECT_TRUE(InChild("somebody", nullptr, LIsUserRoot));
    }
}

// The system's list of groups is another one for one process, in mounts of its own.
TEST(LUser, IsAdministratorByAGroupOfTheProcess) {
    const TempFolder folder;
    const std::string list = folder.Path() + "/group";
    std::ofstream(list) << "administrators:x:4241:\nadmin:x:4242:\n";
    const auto mountList = [&] {
        return ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
               ::mount(list.c_str(), "/etc/group", nullptr, MS_BIND, nullptr) == 0;
    };
    if (!InChild(nullptr, nullptr, mountList)) GTEST_SKIP() << "no mounts of one's own here";
    struct {
        gid_t group;
        bool isAdministrator;
    } const cases[] = {{4242, true}, {4241, false}, {4243, false}};
    for (const auto& [member, isAdministrator] : cases) {
        const auto ask = [&, group = member] {
            const gid_t groups[] = {4244, group};
            return mountList() && ::setgroups(2, groups) == 0 && ::setuid(ordinary) == 0 && LIsUserAdministrator();
        };
        EXPECT_EQ(InChild(nullptr, nullptr, ask), isAdministrator) << member;
    }
}

TEST(LUser, SwitchesToTheFirstNameThatIsGiven) {
    const std::string tooLong(300, 'n');
    struct {
        const char *logName, *user;
        bool switched;
    } const cases[] = {{"nobody", "root", true},          {"", "nobody", true},
                       {nullptr, "nobody", true},         {nullptr, nullptr, false},
                       {"no such user", "nobody", false}, {tooLong.c_str(), "nobody", false}};
    if (::getuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    for (const auto& [logName, user, switched] : cases) {
        const auto become = [] { return LSwitchToUser() && ::getuid() == 65534 && !LSwitchToRoot(); };
        EXPECT_EQ(InChild(user, logName, become), switched) << (logName ? logName : "no LOGNAME");
    }
    EXPECT_TRUE(InChild(nullptr, nullptr, LSwitchToRoot));
}

TEST(LUser, AnOrdinaryUserBecomesNobodyElse) {
    const auto ask = [] { return BecomeOrdinary() && !LSwitchToUser() && !LSwitchToRoot(); };
    EXPECT_TRUE(InChild("root", "root", ask));
}
