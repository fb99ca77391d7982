// The schedule store: loads any file as the helper does at its start, lets a week go by, and changes it. What is on
// disk afterwards must be, entry for entry, what a plain model of the same steps holds. The input is the file.
#include "EventPool.h"
#include "Fuzz.h"
#include "PropertyListReader.h"
#include "PropertyListText.h"
#include "PropertyListTextReader.h"
#include "UserDefaultsStore.h"
#include "VirtualClock.h"

#include "common/ScheduleStore.h"
#include "scheduler/LGCDScheduler.h"
#include "support/TempFolder.h"

#include <bit>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <vector>

namespace {

constexpr long kNow = 1795600800;  // a Wednesday morning, UTC
constexpr long kDay = 86400;
constexpr char kAll[] = "LGCDSCHEDULER_SKED_ALL";
constexpr char kApp[] = "com.example.fuzz";

struct Schedule {
    std::string bundleId, path, name;
    std::string Key() const { return "LGCDSCHEDULER_" + bundleId + path + name; }
    auto operator<=>(const Schedule&) const = default;
};

class Scheduler final : public LGCDScheduler {
public:
    using LGCDScheduler::EvScheduleStart;
    ~Scheduler() override { StopCallbacks(); }
    void EvScheduleStart(const char* appBundleId, const char* appPath, const char* skedName) override {
        fires[{appBundleId, appPath, skedName}]++;
    }

    std::map<Schedule, size_t> fires;
};

// The store's content, and what the helper's operations make of it.
class Model {
public:
    explicit Model(const NSDictionary& content) : store(content) {}

    // The schedules that get a timer, with the number of starts of each in the coming week.
    std::vector<std::pair<Schedule, size_t>> Load();
    void Add(const Schedule& names, NSDictionary schedule);
    void Delete(const Schedule& names);
    void DeleteAll(const std::string& bundleId, const std::string& path);
    const NSDictionary& Content() const { return store; }

private:
    NSObject Entry(const NSString& key) const { return store.valueForKey(key); }
    void SetList() { store.setValueForKey(list, NSString(kAll)); }

    NSMutableDictionary store;
    NSMutableArray list;
};

size_t StartsInAWeek(const NSDictionary& schedule) {
    const auto number = [&](const char* key) { return schedule.valueForKey(NSString(key)).Number(); };
    if (number("IS_DAILY").boolValue()) return 7;
    if (number("IS_WEEKLY").boolValue())
        return static_cast<size_t>(std::popcount(number("WEEKDAY_MASK").unsignedIntValue() & 0x7F));
    const long start = number("START_TIME").longValue();
    return start > kNow && start <= kNow + 7 * kDay ? 1 : 0;
}

std::vector<std::pair<Schedule, size_t>> Model::Load() {
    list = NSMutableArray();
    list.addObjectsFromArray(Entry(NSString(kAll)).Array());
    std::vector<std::pair<Schedule, size_t>> loaded;
    for (const NSObject& key : list) {
        const NSDictionary schedule = Entry(key.String()).Dictionary();
        const auto text = [&](const char* entry) { return schedule.valueForKey(NSString(entry)).String(); };
        const NSString id = text("APP_BUNDLEID"), path = text("APP_PATH"), name = text("SKED_NAME");
        if (!id || !path || !name) continue;
        const Schedule names{id.UTF8String(), path.UTF8String(), name.UTF8String()};
        if (names.bundleId.size() > 259 || names.path.size() > 259 || names.name.size() > 259) continue;
        std::error_code error;
        if (std::filesystem::exists(names.path, error))
            loaded.emplace_back(names, StartsInAWeek(schedule));
        else if (names.Key() != kAll)
            store.setValueForKey({}, NSString(names.Key()));
    }
    return loaded;
}

void Model::Add(const Schedule& names, NSDictionary schedule) {
    const NSString key(names.Key());
    list.removeObject(key);
    list.addObject(key);
    store.setValueForKey(std::move(schedule), key);
    SetList();
}

void Model::Delete(const Schedule& names) {
    const NSString key(names.Key());
    if (names.Key() == kAll) return;
    if (list.containsObject(key)) {
        list.removeObject(key);
        SetList();
    }
    store.setValueForKey({}, key);
}

void Model::DeleteAll(const std::string& bundleId, const std::string& path) {
    const std::string prefix = Schedule{bundleId, path, ""}.Key();
    NSMutableArray kept;
    for (const NSObject& key : list) {
        if (key.String().View().starts_with(prefix))
            store.setValueForKey({}, key.String());
        else
            kept.addObject(key);
    }
    const bool isChanged = kept.count() != list.count();
    list = kept;
    if (isChanged) SetList();
}

std::string BytesOf(const std::string& path) {
    const std::ifstream stream(path, std::ios::binary);
    return (std::ostringstream() << stream.rdbuf()).str();
}

// The folder of the fuzzed store, in memory where the system has such a place. Immortal.
class Place {
public:
    Place() {
        if (std::filesystem::is_directory("/dev/shm")) setenv("TMPDIR", "/dev/shm", 1);
        folder = std::make_unique<TempFolder>();
        setenv("TZ", "UTC0", 1);
        tzset();
        stderr = fopen("/dev/null", "w");  // the store tells of every damaged file
    }
    std::string Path() const { return folder->Join("store.plist"); }
    std::string Aside() const { return Path() + ".damaged-1"; }

private:
    std::unique_ptr<TempFolder> folder;
};

NSDictionary NewSchedule(const Schedule& names) {
    NSMutableDictionary schedule;
    schedule.setValueForKey(NSString(names.bundleId), NSString("APP_BUNDLEID"));
    schedule.setValueForKey(NSString(names.path), NSString("APP_PATH"));
    schedule.setValueForKey(NSString(names.name), NSString("SKED_NAME"));
    schedule.setValueForKey(NSNumber::numberWithLong(-kDay), NSString("START_TIME"));
    schedule.setValueForKey(NSNumber::numberWithBool(false), NSString("IS_DAILY"));
    schedule.setValueForKey(NSNumber::numberWithBool(true), NSString("IS_WEEKLY"));
    schedule.setValueForKey(NSNumber::numberWithUnsignedInt(0x7F), NSString("WEEKDAY_MASK"));
    return schedule;
}

std::string TextOf(const NSDictionary& content) {
    std::string text;
    platform::AppendPropertyListEntry(text, NSString("content"), content);
    return text;
}

class Run {
public:
    explicit Run(const Place& where) : place(where) {}

    void Load(std::string_view file);
    void LetAWeekGoBy();
    void Change();

private:
    void CheckFile() const;
    void CheckRewriting() const;
    void CheckTools();

    const Place& place;
    platform::VirtualClock clock{kNow};
    Model model{NSDictionary()};
    std::vector<std::pair<Schedule, size_t>> loaded;
    Scheduler scheduler;
};

void Run::Load(std::string_view file) {
    const auto content = platform::ParseAnyPropertyList(file);
    if (const auto own = platform::ReadPropertyListText(file))
        Require(content && TextOf(*own) == TextOf(*content), "both readers read the same");
    std::ofstream(place.Path(), std::ios::binary) << file;
    platform::SetStandardUserDefaults(place.Path());
    if (!content) Require(BytesOf(place.Aside()) == file, "a damaged file is kept as it was");
    model = Model(content.value_or(NSDictionary()));
    scheduler.LoadFromSettings();
    loaded = model.Load();
    Require(scheduler.HasTimers() == !loaded.empty(), "the stored schedules are loaded");
}

void Run::LetAWeekGoBy() {
    clock.Advance(7 * kDay);
    std::map<Schedule, size_t> expected;
    for (const auto& [names, starts] : loaded)
        if (starts) expected[names] += starts;
    Require(scheduler.fires == expected, "each schedule starts as often as it must");
}

void Run::CheckFile() const {
    const NSDictionary onDisk = NSDictionary::dictionaryWithContentsOfFile(NSString(place.Path()));
    Require(static_cast<bool>(onDisk), "what is written can be read");
    Require(onDisk == model.Content(), "the file holds what memory holds");
}

// The file's own content, written once more, is the same file.
void Run::CheckRewriting() const {
    const std::string before = BytesOf(place.Path());
    platform::UserDefaultsStore again(place.Path());
    const NSString key(kAll);
    again.Set(key, again.Find(key));
    Require(again.Synchronize() && BytesOf(place.Path()) == before, "writing what was read changes nothing");
}

void Run::CheckTools() {
    const auto seen = tools::ReadStore(place.Path());
    Require(seen.has_value(), "the tools can read the store");
    for (const auto& [names, starts] : model.Load()) {
        const auto found = tools::SchedulesNamed(*seen, names.name, names.bundleId, names.path);
        Require(!found.empty(), "the tools see what the helper would load");
    }
    for (const tools::StoredSchedule& schedule : *seen)
        Require(schedule.name.size() < LTextBufferSize, "the tools see nothing that the helper would skip");
}

void Run::Change() {
    const Schedule added{kApp, "/", "Evening <news> & \r\x01 more"};
    scheduler.Add(added.bundleId.c_str(), added.path.c_str(), added.name.c_str(), LDateTime(-kDay), false, true,
                  LEveryWeekDay);
    model.Add(added, NewSchedule(added));
    CheckFile();
    CheckRewriting();
    CheckTools();
    if (!loaded.empty()) {
        const Schedule& first = loaded.front().first;
        scheduler.Delete(first.bundleId.c_str(), first.path.c_str(), first.name.c_str());
        model.Delete(first);
        CheckFile();
        const Schedule& last = loaded.back().first;
        scheduler.DeleteAll(last.bundleId.c_str(), last.path.c_str());
        model.DeleteAll(last.bundleId, last.path);
        CheckFile();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Place& place = (platform::EventPool::Shared().RunByHand(), *new Place);
    std::filesystem::remove(place.Path());
    std::filesystem::remove(place.Aside());
    Run run(place);
    run.Load({reinterpret_cast<const char*>(data), size});
    run.LetAWeekGoBy();
    run.Change();
    return 0;
}
