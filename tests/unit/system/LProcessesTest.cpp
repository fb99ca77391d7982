#include "ProcessList.h"
#include "support/TempFolder.h"
#include "system/LLocale.h"
#include "system/LPipe.h"
#include "system/LProcessList.h"
#include "system/LUnixApp.h"

#include <bsd/LDescriptor.h>
#include <bsd/processes.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// What changes the process for good is tried in a child.
bool HoldsInAChild(const std::function<bool()>& holds) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(holds() ? 0 : 1);
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::vector<std::string> Kept() {
    return {gargv, gargv + gargc};
}

std::string ReadAll(int descriptor) {
    std::string all;
    char bytes[4'096];
    for (ssize_t count; (count = ::read(descriptor, bytes, sizeof bytes)) > 0;)
        all.append(bytes, static_cast<size_t>(count));
    return all;
}

// A process whose program is a copy of "sleep" under another name.
class Sleeper {
public:
    Sleeper(const TempFolder& folder, const std::string& name) {
        const std::string program = folder.Join(name);
        std::filesystem::copy_file("/bin/sleep", program);
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) abort();
        pid = ::fork();
        if (pid == 0) {
            ::execl(program.c_str(), name.c_str(), "1000", nullptr);
            ::_exit(127);
        }
        ::close(ends[1]);
        ReadAll(ends[0]);  // ends when it is the program
        ::close(ends[0]);
    }
    ~Sleeper() {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }

    pid_t pid;
};

}  // namespace

TEST(LUnixApp, KeepsTheArgumentsButALaunchersNumber) {
    std::array<std::string, 4> given = {"program", "-psn_0_12345", "file", "-psn_0_1"};
    std::vector<char*> vector;
    for (std::string& one : given) vector.push_back(one.data());
    LUnixAppCopyCommandLineArguments(4, vector.data());
    EXPECT_EQ(Kept(), (std::vector<std::string>{"program", "file", "-psn_0_1"}));
    EXPECT_EQ(gargv[gargc], nullptr);
    for (const int none : {-1, 3, 100}) LRemoveCommandLineArgument(none);
    LRemoveCommandLineArgument(1);
    EXPECT_EQ(Kept(), (std::vector<std::string>{"program", "-psn_0_1"}));
    EXPECT_EQ(gargv[gargc], nullptr);
    for (const int none : {0, -1}) {
        LUnixAppCopyCommandLineArguments(none, vector.data());
        EXPECT_EQ(gargc, 0);
        EXPECT_EQ(gargv[0], nullptr);
    }
}

TEST(LUnixApp, PreparesTheProcess) {
    EXPECT_TRUE(HoldsInAChild([] {
        std::string program = "program";
        char* arguments[] = {program.data(), nullptr};
        rlimit limit{};
        if (!LUnixAppInitCommon(1, arguments) || ::getrlimit(RLIMIT_NOFILE, &limit) != 0) return false;
        return limit.rlim_cur == 1'024 && ::umask(0) == 0 && gargc == 1;
    }));
}

TEST(LGetLocale, IsTheEnvironmentsElseThePreferences) {
    const TempFolder home;
    const auto locale = [&](const char* all, const char* language, int category = LC_ALL) {
        return HoldsInAChild([&] {
            ::setenv("XDG_CONFIG_HOME", home.Path().c_str(), 1);
            ::setenv("LC_ALL", all, 1);
            ::unsetenv("LC_MESSAGES");
            ::setenv("LANG", language, 1);
            const std::string first = LGetLocale(category);
            ::setenv("LC_ALL", "xx", 1);
            return first == "C.UTF-8" && first == LGetLocale(LC_TIME) && first == LGetLocale(LC_ALL);
        });
    };
    EXPECT_TRUE(locale("C", "xx_XX"));
    EXPECT_TRUE(locale("", "C.ISO-8859-1@euro"));
    EXPECT_TRUE(locale("", "C.UTF-8", LC_TIME));
    EXPECT_FALSE(locale("", "xx_XX.UTF-8"));  // there is none: it stays as it was
    EXPECT_FALSE(locale("", ""));
    const std::string start = "<plist version=\"1.0\"><dict><key>AppleLocale</key>", end = "</dict></plist>";
    home.Write(".GlobalPreferences.plist", start + "<string>C</string>" + end);
    EXPECT_TRUE(locale("", ""));
    home.Write("com.tarnwick.schedulehelper.plist", start + "<string>xx_XX_longer</string>" + end);
    EXPECT_FALSE(locale("", ""));  // its own comes first
    home.Write("com.tarnwick.schedulehelper.plist", start + "<integer>1</integer>" + end);
    EXPECT_TRUE(locale("", ""));  // no text, no answer
}

TEST(LProcessList, FindsByNameWhileProcessesComeAndGo) {
    const TempFolder folder;
    const Sleeper sixteen(folder, "a name of sixty)");  // Linux alone knows only the first fifteen
    const Sleeper more(folder, "another name of many characters");
    const Sleeper fifteen(folder, "fifteen letters");
    std::filesystem::remove(folder.Join("fifteen letters"));  // as an upgrade does
    EXPECT_TRUE(LIsApplicationRunning("fifteen letters"));
    EXPECT_TRUE(LIsApplicationRunning("a name of sixty)"));
    EXPECT_TRUE(LIsApplicationRunning("a name of sixty) and more"));
    EXPECT_TRUE(LIsApplicationRunning("another name of many characters"));
    EXPECT_FALSE(LIsApplicationRunning("a name of sixty"));
    EXPECT_FALSE(LIsApplicationRunning("A name of sixty)"));
    EXPECT_FALSE(LIsApplicationRunning("kthreadd"));
    EXPECT_FALSE(LIsApplicationRunning(nullptr));
    EXPECT_EQ(LGetBSDProcessUid("A NAME OF SIXTY)"), sixteen.pid);
    EXPECT_EQ(LGetBSDProcessUid("none of that name"), -1);
    EXPECT_EQ(LGetProcessUid("none of that name"), -1);  // that isn't remembered
    EXPECT_EQ(LGetProcessUid("a name of sixty)"), sixteen.pid);
    EXPECT_EQ(LGetProcessUid("another name of "), sixteen.pid);

    std::atomic<bool> stop{false};
    std::thread churn([&] {
        while (!stop) HoldsInAChild([] { return true; });
    });
    for (int i = 0; i < 200; i++) {
        kinfo_proc* list = nullptr;
        const int count = LGetBSDProcessList(&list);
        const auto isOurs = [](const kinfo_proc& one) { return one.p_pid == ::getpid(); };
        EXPECT_EQ(std::count_if(list, list + count, isOurs), 1);
        std::free(list);
    }
    stop = true;
    churn.join();
}

TEST(ProcessStat, NamesMayHoldAnything) {
    const std::string counts = " 1 2 3 4 5 6 7 8 20 0 1 0 4711 9", rest = " S 1 1 1 0 -1 4194560" + counts,
                      kernels = " S 0 0 0 0 -1 2129984" + counts, ended = " Z 1 1 1 0 -1 0" + counts;
    const auto name = [](const std::string& line) {
        const auto stat = platform::ParseProcessStat(line);
        return !stat ? "none" : !stat->isProgram ? "no program" : std::string(stat->name);
    };
    EXPECT_EQ(name("12 (a) S 1 (b))" + rest), "a) S 1 (b)");
    EXPECT_EQ(name("12 ()" + rest), "");
    EXPECT_EQ(platform::ParseProcessStat("12 (a)" + rest)->startTicks, 4711u);
    EXPECT_EQ(name("2 (kthreadd)" + kernels), "no program");
    EXPECT_EQ(name("12 (gone)" + ended), "no program");
    for (const char* line : {"", "12 a b", ")(", "12 (a)", "12 (a) ", "12 (a) S 1 1 1 0 -1", "12 (a) S 1 1 1 0 -1 x"})
        EXPECT_EQ(name(line), "none") << line;
}

TEST(Processes, AreToldByTheirLockAndTheirStart) {
    const TempFolder folder;
    const std::string path = folder.Write("lock", "");
    EXPECT_EQ(flock_holder(path.c_str()), 0);
    EXPECT_EQ(flock_holder(folder.Join("absent").c_str()), 0);
    const LDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(file.Get(), LOCK_EX), 0);
    EXPECT_EQ(flock_holder(path.c_str()), ::getpid());
    EXPECT_LE(process_start_time(::getpid()), ::time(nullptr));
    EXPECT_GT(process_start_time(::getpid()), ::time(nullptr) - 600) << "this test was started just now";
    EXPECT_EQ(process_start_time(-1), 0);
    const auto variables = process_environment(::getpid());
    EXPECT_NE(std::find(variables.begin(), variables.end(), "PATH=" + std::string(::getenv("PATH"))), variables.end());
}

TEST(LPipe, BothDirections) {
    LPipeIn in;
    EXPECT_EQ(in.Descriptor(), -1);
    ASSERT_TRUE(in._Open("printf 'one two'"));
    EXPECT_EQ(ReadAll(in.Descriptor()), "one two");
    ASSERT_TRUE(in._Open("there-is-no-such-command 2>/dev/null"));
    EXPECT_EQ(ReadAll(in.Descriptor()), "");
    EXPECT_FALSE(in._Open(nullptr));
    const TempFolder folder;
    LPipeOut out;
    ASSERT_TRUE(out._Open(("cat > '" + folder.Join("written") + "'").c_str()));
    EXPECT_GT(std::fputs("text", out.Stream()), 0);
    out.Close();  // waits for the command
    EXPECT_EQ(BytesOf(folder.Join("written")), "text");
    LPipeInOut both;
    ASSERT_TRUE(both._Open("tr a-z A-Z", 0, 0));
    EXPECT_EQ(::write(both.WriteDescriptor(), "loud", 4), 4);
    both.CloseWriting();
    EXPECT_EQ(ReadAll(both.ReadDescriptor()), "LOUD");
    ASSERT_TRUE(both._Open("cat; true", 0, 0));  // the one before is ended and reaped
    const pid_t child = both.ProcessId();
    both.Close();
    EXPECT_EQ(::waitpid(child, nullptr, WNOHANG), -1);
}

// One that SIGPIPE doesn't end may go on after its reader has gone, and would be waited for without end. (The last
// seven digits: higher ones are the C library's.)
TEST(LPipe, CommandsStartWithDefaultSignals) {
    EXPECT_TRUE(HoldsInAChild([] {
        ::signal(SIGPIPE, SIG_IGN);
        sigset_t all;
        ::sigfillset(&all);
        ::sigprocmask(SIG_BLOCK, &all, nullptr);
        LPipeIn in;
        return in._Open("grep -cE 'Sig(Ign|Blk):.*[1-9a-f].{0,6}$' /proc/self/status") &&
               ReadAll(in.Descriptor()) == "0\n";
    }));
}

// A program that was started without standard descriptors gets pipes with their numbers.
TEST(LPipe, WorksWithoutStandardDescriptors) {
    EXPECT_TRUE(HoldsInAChild([] {
        for (const int number : {0, 1}) ::close(number);
        LPipeInOut both;
        if (!both._Open("cat", 0, 0) || ::write(both.WriteDescriptor(), "x", 1) != 1) return false;
        both.CloseWriting();
        return ReadAll(both.ReadDescriptor()) == "x";
    }));
}
