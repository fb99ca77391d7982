// The schedule store: a durable change beside the bare file system operations that make the same bytes durable, and a
// reload beside libplist parsing the same file.
#include "Bench.h"
#include "UserDefaultsStore.h"

#include "scheduler/LGCDScheduler.h"

#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <plist/plist.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr char kApp[] = "com.example.application";
constexpr long kStart = 4102444800;  // far enough away

class Scheduler : public LGCDScheduler {
public:
    using LGCDScheduler::EvScheduleStart;
    ~Scheduler() override { StopCallbacks(); }
    void EvScheduleStart(const char*, const char*, const char*) override {}
};

using bench::Folder;

[[noreturn]] void Die(const char* what) {
    perror(what);
    exit(1);
}

std::string NameOf(int i) {
    return "Evening concert " + std::to_string(i);
}

// Stores `count` schedules in one write: as many additions would take minutes.
void Fill(const std::string& store, const std::string& app, int count) {
    platform::SetStandardUserDefaults(store);
    NSUserDefaults& defaults = NSUserDefaults::standardUserDefaults();
    NSMutableArray keys;
    for (int i = 0; i < count; i++) {
        const NSString key("LGCDSCHEDULER_" + std::string(kApp) + app + NameOf(i));
        NSMutableDictionary schedule;
        schedule.setValueForKey(NSString(kApp), NSString("APP_BUNDLEID"));
        schedule.setValueForKey(NSString(app), NSString("APP_PATH"));
        schedule.setValueForKey(NSString(NameOf(i)), NSString("SKED_NAME"));
        schedule.setValueForKey(NSNumber::numberWithLong(kStart + i), NSString("START_TIME"));
        schedule.setValueForKey(NSNumber::numberWithBool(i % 3 == 1), NSString("IS_DAILY"));
        schedule.setValueForKey(NSNumber::numberWithBool(i % 3 == 2), NSString("IS_WEEKLY"));
        schedule.setValueForKey(NSNumber::numberWithUnsignedInt(0x22), NSString("WEEKDAY_MASK"));
        defaults.setObjectForKey(schedule, key);
        keys.addObject(key);
    }
    defaults.setObjectForKey(keys, NSString("LGCDSCHEDULER_SKED_ALL"));
    if (!defaults.synchronize()) Die(store.c_str());
}

std::string BytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return (std::stringstream() << file.rdbuf()).str();
}

void ReplaceBare(const std::string& folder, const std::string& bytes) {
    const std::string temporary = folder + "/bare.new", name = folder + "/bare";
    const int file = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (file < 0) Die("open");
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t count = write(file, bytes.data() + done, bytes.size() - done);
        if (count < 0) Die("write");
        done += static_cast<size_t>(count);
    }
    if (fsync(file) != 0) Die("fsync");
    close(file);
    if (rename(temporary.c_str(), name.c_str()) != 0) Die("rename");
    const int opened = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (opened < 0 || fsync(opened) != 0) Die("fsync of the folder");
    close(opened);
}

double Microseconds(uint64_t since) {
    return static_cast<double>(bench::NowNs() - since) / 1e3;
}

void DurableAdd(const Folder& folder, int stored, int times) {
    const std::string store = folder.path + "/store.plist";
    Fill(store, folder.path, stored);
    Scheduler scheduler;
    scheduler.LoadFromSettings();
    const auto add = [&](int i) {
        scheduler.Add(kApp, folder.path.c_str(), NameOf(-1 - i % 4).c_str(), LDateTime(kStart), false, false,
                      LWeekDay());
    };
    for (int i = 0; i < 4; i++) add(i);
    const std::string bytes = BytesOf(store);
    ReplaceBare(folder.path, bytes);
    bench::Samples adds, bare;
    for (int i = 0; i < times; i++) {  // by turns, so that both meet the same disk
        uint64_t start = bench::NowNs();
        add(i);
        adds.Add(Microseconds(start));
        start = bench::NowNs();
        ReplaceBare(folder.path, bytes);
        bare.Add(Microseconds(start));
    }
    const std::string name = "store.add." + std::to_string(stored);
    bare.Print(name + ".bare_replace", "us");
    adds.Print(name, "us", name + ".bare_replace");
}

void Reload(const Folder& folder, int stored, int times) {
    const std::string store = folder.path + "/store.plist";
    Fill(store, folder.path, stored);
    const std::string bytes = BytesOf(store);
    bench::Samples reload, parse;
    for (int i = 0; i < times; i++) {
        uint64_t start = bench::NowNs();
        plist_t list = nullptr;
        plist_from_xml(bytes.data(), static_cast<uint32_t>(bytes.size()), &list);
        plist_free(list);
        parse.Add(Microseconds(start));

        platform::SetStandardUserDefaults(folder.path + "/none.plist");  // not to count the old one's end
        Scheduler scheduler;
        start = bench::NowNs();
        platform::SetStandardUserDefaults(store);
        scheduler.LoadFromSettings();
        reload.Add(Microseconds(start));
        if (!scheduler.HasTimers()) Die("reload");
    }
    const std::string name = "store.reload." + std::to_string(stored);
    parse.Print(name + ".libplist_parse", "us");
    reload.Print(name, "us", name + ".libplist_parse");
}

// `schedulectl list` as a whole process, its output into the null device.
void List(const Folder& folder, int stored, int times) {
    Fill(folder.path + "/com.tarnwick.schedulehelper.plist", folder.path, stored);
    const std::string bytes = BytesOf(folder.path + "/com.tarnwick.schedulehelper.plist");
    setenv("XDG_CONFIG_HOME", folder.path.c_str(), 1);
    bench::Samples list, parse;
    for (int i = 0; i < times; i++) {
        uint64_t start = bench::NowNs();
        plist_t parsed = nullptr;
        plist_from_xml(bytes.data(), static_cast<uint32_t>(bytes.size()), &parsed);
        plist_free(parsed);
        parse.Add(Microseconds(start));
        start = bench::NowNs();
        if (system("'" CONTROL_PROGRAM "' list --quiet >/dev/null") != 0) Die("list");
        list.Add(Microseconds(start));
    }
    const std::string name = "store.list." + std::to_string(stored);
    parse.Print(name + ".libplist_parse", "us");
    list.Print(name, "us", name + ".libplist_parse");
}

// Each case in a process of its own: the heap that one leaves behind is not the next one's.
template <class Case>
void Apart(Case measure) {
    const pid_t pid = fork();
    if (pid < 0) Die("fork");
    if (pid == 0) {
        {
            const Folder folder;
            measure(folder);
        }
        _exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (status != 0) exit(1);
}

}  // namespace

int main() {
    for (const int stored : {1, 1000, 10000})
        Apart([&](const Folder& folder) { DurableAdd(folder, stored, stored == 10000 ? 40 : 150); });
    for (const int stored : {1000, 10000})
        Apart([&](const Folder& folder) { Reload(folder, stored, stored == 10000 ? 15 : 60); });
    Apart([](const Folder& folder) { List(folder, 10000, 15); });
}
