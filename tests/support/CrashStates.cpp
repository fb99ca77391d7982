#include "support/CrashStates.h"

#include "PropertyListReader.h"
#include "UserDefaultsStore.h"
#include "VirtualClock.h"
#include "support/ObservedScheduler.h"

#include <algorithm>
#include <fcntl.h>
#include <string_view>
#include <utility>

namespace {

using Schedules = std::map<std::string, long>;

constexpr char kStore[] = "/home/config/helper/store.plist";
constexpr char kBundleId[] = "com.example.app";
constexpr char kApp[] = "/";  // some folder that is there
constexpr char kNext[] = "next";
constexpr long kNow = CrashStates::kNow;
constexpr long kHorizon = 1'000'000;

const CrashStates::Requests& StoredAtTheBegin() {
    static const CrashStates::Requests& requests =
        *new CrashStates::Requests{{StoreRequest::Add, "stored", kNow + 50}, {StoreRequest::Add, "A", kNow + 60}};
    return requests;
}

void CarryOut(LGCDScheduler& scheduler, const StoreRequest& request) {
    switch (request.kind) {
    case StoreRequest::Add:
        return scheduler.Add(kBundleId, kApp, request.name, LDateTime(request.start), false, false, LWeekDay());
    case StoreRequest::Delete:
        return scheduler.Delete(kBundleId, kApp, request.name);
    case StoreRequest::DeleteAll:
        return scheduler.DeleteAll(kBundleId, kApp);
    }
}

// What a reader of the file finds; nothing where it can't be read. A missing file is an empty one.
std::optional<Schedules> SchedulesIn(const std::optional<std::string>& file) {
    Schedules schedules;
    if (!file) return schedules;
    const auto store = platform::ParsePropertyList(*file);
    if (!store) return {};
    for (const NSObject& key : store->valueForKey(NSString("LGCDSCHEDULER_SKED_ALL")).Array()) {
        const NSDictionary entry = store->valueForKey(key.String()).Dictionary();
        const NSString name = entry.valueForKey(NSString("SKED_NAME")).String();
        if (!name) return {};
        schedules[std::string(name.View())] = entry.valueForKey(NSString("START_TIME")).Number().longValue();
    }
    return schedules;
}

std::string TextOf(CrashStates::Begin begin, const CrashStates::Requests& requests) {
    static constexpr const char* begins[] = {"no folder", "no file", "stored"};
    std::string text = begins[static_cast<size_t>(begin)];
    for (const auto& [kind, name, start] : requests) {
        static constexpr const char* kinds[] = {"add", "delete", "delete all"};
        text += std::string(", ") + kinds[kind] + " " + name;
        if (kind == StoreRequest::Add) text += " at " + std::to_string(start);
    }
    return text;
}

// The calls as the protocol has them.
class StoreCalls final : public FaultyFileCalls {
public:
    StoreCalls(platform::FileCalls& disk, StoreProtocol storeProtocol)
        : FaultyFileCalls(disk), protocol(storeProtocol) {}

    int Open(const char* path, int flags, mode_t mode) override {
        static constexpr std::string_view ending = ".new";
        std::string name(path);
        if (protocol == StoreProtocol::InPlace && (flags & O_CREAT) && name.ends_with(ending)) {
            name.resize(name.size() - ending.size());
            flags = (flags & ~O_EXCL) | O_TRUNC;
        }
        return FaultyFileCalls::Open(name.c_str(), flags, mode);
    }
    int Sync(int descriptor) override {
        const bool omitsFolders = protocol == StoreProtocol::WithoutSyncOfTheFolder;
        if (!omitsFolders && protocol != StoreProtocol::WithoutSyncOfTheFile) return FaultyFileCalls::Sync(descriptor);
        struct stat info {};
        const bool isFolder = Stat(descriptor, info) == 0 && S_ISDIR(info.st_mode);
        return isFolder == omitsFolders ? 0 : FaultyFileCalls::Sync(descriptor);
    }
    int Rename(const char* from, const char* to) override {
        return protocol == StoreProtocol::InPlace ? 0 : FaultyFileCalls::Rename(from, to);
    }

private:
    const StoreProtocol protocol;
};

}  // namespace

// A disk, the program that works on it, and what may be found there after a power failure.
class CrashStates::Run {
public:
    Run(CrashStates& crashStates, Begin begin) : states(crashStates), disk(ImageOf(begin)) {
        expected.emplace_back();
        if (begin == Begin::Stored)
            for (const StoreRequest& request : StoredAtTheBegin()) expected[0] = After(expected[0], request);
        Start();
    }

    // A new program on this disk.
    void Start() {
        scheduler.reset();
        platform::SetStandardUserDefaults(kStore, calls);
        scheduler = std::make_unique<ObservedScheduler>();
        scheduler->LoadFromSettings();
    }

    // From now on the power fails at every moment.
    void Watch() {
        disk.onChange = [this] { Look(true); };
        Look(true);
    }

    void Do(const StoreRequest& request) {
        expected.push_back(After(expected.back(), request));
        if (states.protocol == StoreProtocol::AnsweringFirst) Answered();
        CarryOut(*scheduler, request);
    }
    void Answered() { oldest = expected.size() - 1; }
    // After the answer.
    void Finish() {
        Answered();
        Look(false);
        disk.onChange = nullptr;
    }

    bool Kill(const StoreRequest& request, int call) {
        calls.Arm({call, FaultyFileCalls::kKilled, false});
        bool isKilled = false;
        try {
            Do(request);
        } catch (const FaultyFileCalls::Killed&) {
            isKilled = true;
        }
        calls.Arm({});
        return isKilled;
    }
    // Whoever looks now counts on what is there.
    void CountOnWhatIsThere() {
        if (SchedulesIn(disk.BytesOf(kStore)) != expected.back()) expected.pop_back();
        Answered();
    }

    bool Fail(const StoreRequest& request, FaultyFileCalls::Fault failure) {
        calls.Arm(failure);
        Do(request);
        const bool hasFired = calls.HasFired();
        calls.Arm({});
        return hasFired;
    }
    // Whether a reader finds the file in the last state, or in the one before.
    bool IsWhole(bool isLast) const {
        const auto found = SchedulesIn(disk.BytesOf(kStore));
        return found == expected.back() || (!isLast && found == expected[expected.size() - 2]);
    }

    struct Moment {
        std::map<MemoryDisk::Image, std::optional<Outcome>>::iterator image;
        size_t oldest, youngest;  // of `expected`
        bool amidRequest;
    };
    const std::vector<Moment>& Moments() const { return moments; }
    const Schedules& Expected(size_t state) const { return expected[state]; }

private:
    static MemoryDisk::Image ImageOf(Begin begin) {
        MemoryDisk::Image image{{"/home", std::nullopt}};
        if (begin == Begin::NoFolder) return image;
        image["/home/config"] = image["/home/config/helper"] = std::nullopt;
        if (begin == Begin::NoFile) return image;
        static const std::string& stored = *new std::string([&] {
            MemoryDisk writing(image);
            platform::SetStandardUserDefaults(kStore, writing);
            ObservedScheduler adding;
            for (const StoreRequest& request : StoredAtTheBegin()) CarryOut(adding, request);
            return writing.BytesOf(kStore).value();
        }());
        image[kStore] = stored;
        return image;
    }

    // The images are loaded later: the store is in use.
    void Look(bool amidRequest) {
        states.moments++;
        disk.EachImage([&](const MemoryDisk::Image& image) {
            const auto found = states.loaded.emplace(image, std::nullopt).first;
            moments.push_back({found, oldest, expected.size() - 1, amidRequest});
        });
    }

    CrashStates& states;
    platform::VirtualClock clock{kNow};
    MemoryDisk disk;
    StoreCalls calls{disk, states.protocol};
    std::unique_ptr<ObservedScheduler> scheduler;
    std::vector<Schedules> expected;  // after the begin and after each request
    size_t oldest = 0;
    std::vector<Moment> moments;
};

CrashStates::Schedules CrashStates::After(Schedules schedules, const StoreRequest& request) {
    if (request.kind == StoreRequest::DeleteAll) return {};
    schedules.erase(request.name);
    if (request.kind == StoreRequest::Add) schedules[request.name] = request.start;
    return schedules;
}

CrashStates::Outcome CrashStates::Load(const MemoryDisk::Image& image) {
    Outcome outcome;
    MemoryDisk disk(image);
    platform::VirtualClock clock(kNow);
    platform::SetStandardUserDefaults(kStore, disk);
    ObservedScheduler scheduler;
    scheduler.LoadFromSettings();
    const StoreRequest next{StoreRequest::Add, kNext, kNow + kHorizon};
    CarryOut(scheduler, next);
    clock.Advance(kHorizon);
    for (const auto& [names, moments] : scheduler.fires)
        outcome.schedules[names.substr(std::string(kBundleId).size() + std::string(kApp).size())] = moments.at(0);
    outcome.goesOn = SchedulesIn(disk.BytesOf(kStore)) == outcome.schedules && outcome.schedules.erase(kNext) == 1;
    for (const std::string& file : disk.Files()) outcome.isDamaged |= file.find(".damaged") != std::string::npos;
    return outcome;
}

void CrashStates::Judge(const Run& run, const std::string& what) {
    for (const Run::Moment& moment : run.Moments()) {
        const auto [oldest, end] = std::pair(moment.oldest, moment.youngest + 1);
        std::optional<Outcome>& loadedOnce = moment.image->second;
        judged++;
        if (!loadedOnce) loadedOnce = Load(moment.image->first);
        const Outcome& outcome = *loadedOnce;
        const auto isOneOf = [&](size_t first, size_t behind) {
            while (first < behind && run.Expected(first) != outcome.schedules) first++;
            return first < behind;
        };
        const auto report = [&](Loss loss, const char* text) {
            violations.push_back({loss, moment.amidRequest, what + ": " + text});
        };
        if (outcome.isDamaged)
            report(Loss::Damaged, "the file is damaged");
        else if (isOneOf(0, oldest) && !isOneOf(oldest, end))
            report(Loss::Lost, "what was answered is lost");
        else if (!isOneOf(oldest, end))
            report(Loss::Mixed, "not one whole state");
        else if (!outcome.goesOn)
            report(Loss::Stuck, "the next schedule isn't stored beside the others");
    }
}

void CrashStates::Try(Begin begin, const Requests& requests) {
    Run run(*this, begin);
    for (size_t i = 0; i < requests.size(); i++) {
        if (i + 1 == requests.size()) run.Watch();
        run.Do(requests[i]);
        run.Answered();
    }
    run.Finish();
    Judge(run, TextOf(begin, requests));
}

bool CrashStates::TryAfterKill(Begin begin, const Requests& requests, int call) {
    Run run(*this, begin);
    for (size_t i = 0; i + 2 < requests.size(); i++) {
        run.Do(requests[i]);
        run.Answered();
    }
    if (!run.Kill(requests[requests.size() - 2], call)) return false;
    run.Watch();
    run.Start();
    run.CountOnWhatIsThere();
    run.Do(requests.back());
    run.Finish();
    Judge(run, TextOf(begin, requests) + ", killed before call " + std::to_string(call) + " of the last but one");
    return true;
}

bool CrashStates::TryAfterFailure(Begin begin, const Requests& requests, FaultyFileCalls::Fault failure) {
    const std::string what = TextOf(begin, requests) + ", call " + std::to_string(failure.call) +
                             " of the last but one failed " + (failure.forGood ? "for good" : "once") + " with error " +
                             std::to_string(failure.error);
    Run run(*this, begin);
    for (size_t i = 0; i + 2 < requests.size(); i++) {
        run.Do(requests[i]);
        run.Answered();
    }
    if (!run.Fail(requests[requests.size() - 2], failure)) return false;
    if (!run.IsWhole(false)) violations.push_back({Loss::Mixed, true, what + ": the file is no whole state"});
    run.Watch();
    run.Do(requests.back());
    run.Finish();
    if (!run.IsWhole(true)) violations.push_back({Loss::Lost, false, what + ": the file is not what memory holds"});
    Judge(run, what);
    return true;
}
