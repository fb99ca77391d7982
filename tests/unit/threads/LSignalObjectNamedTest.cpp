#include "threads/LSignalObjectNamed.h"
#include "files/LFile.h"
#include "support/FolderTree.h"
#include "support/TempFolder.h"
#include "threads/LSignalObject.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sched.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class LSignalObjectNamedTest : public testing::Test {
protected:
    LSignalObjectNamedTest() { ::setenv("XDG_DATA_HOME", folder.Path().c_str(), 1); }
    ~LSignalObjectNamedTest() override { ::unsetenv("XDG_DATA_HOME"); }

    TempFolder folder;
};

}  // namespace

TEST_F(LSignalObjectNamedTest, ASignalOfAnotherProcessEndsTheWait) {
    const pid_t child = ::fork();
    if (child == 0) {
        LSignalObjectNamed other("recorder");
        while (::getppid() != 1 && !std::filesystem::exists(folder.Join("ended"))) {
            other.Signal();  // goes nowhere until somebody waits
            ::sched_yield();
        }
        ::_exit(0);
    }
    {
        LSignalObjectNamed waiter("recorder");
        EXPECT_TRUE(waiter.WaitSignal(kSignalNoTimeOut));
        EXPECT_EQ(Tree(folder.Path()), std::vector<std::string>{"recorder?"});
        waiter.Reset();
        EXPECT_FALSE(waiter.WaitSignal(kSignalNoTimeOut));  // the name is in use, by itself
    }
    EXPECT_TRUE(Tree(folder.Path()).empty());
    folder.Write("ended", "");
    ::waitpid(child, nullptr, 0);
}

TEST_F(LSignalObjectNamedTest, WaitsInVainLeaveNothingBehind) {
    LSignalObjectNamed waiter("recorder");
    waiter.Signal();
    waiter.Reset();
    for (int i = 0; i < 3; i++) EXPECT_FALSE(waiter.WaitSignal(1));
    EXPECT_TRUE(Tree(folder.Path()).empty());
    folder.Write("recorder", "somebody's");
    EXPECT_FALSE(waiter.WaitSignal(kSignalNoTimeOut));
    EXPECT_EQ(Content(folder.Join("recorder")), "somebody's");
    LSignalObjectNamed tooLong(std::string(104 - folder.Path().size() - 1, 'x').c_str());
    tooLong.Signal();
    EXPECT_FALSE(tooLong.WaitSignal(kSignalNoTimeOut));
    EXPECT_EQ(Tree(folder.Path()).size(), 1u);
}
