// Home: a home of one test, in which the built programs run: its own store, runtime folder and data folder. Whatever
// lives in it is ended with it. Single-threaded.
#pragma once

#include "common/ScheduleStore.h"
#include "home/Program.h"
#include "support/TempFolder.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

// Looks until `condition` holds, where no event tells; false when it doesn't within 15 s.
bool Await(const std::function<bool()>& condition);

class Home {
public:
    Home();
    ~Home();
    Home(const Home&) = delete;
    Home& operator=(const Home&) = delete;

    static std::string HelperProgram();
    static std::string QuilloBundle();
    static std::string QuilloProgram();
    static std::string ControlProgram();

    const std::map<std::string, std::string>& Environment() const { return environment; }
    std::string StorePath() const { return folder.Join("config/com.tarnwick.schedulehelper.plist"); }
    // The schedules that the store holds; throws when it can't be read.
    std::vector<tools::StoredSchedule> Stored() const;
    // Writes a store as the helper would find it. Not while a helper runs.
    void WriteStore(const std::vector<tools::StoredSchedule>& schedules) const;
    // A copy of Quillo's bundle whose Info.plist says another version. Gives its path.
    std::string CopyQuillo(const std::string& folderName, const std::string& version) const;
    std::string ServiceSocket() const;
    // Runs schedulectl to its end; `output` is all that it wrote.
    int Control(const std::vector<std::string>& arguments, std::string* output = nullptr) const;

    // Quillo, idle: the helper serves while it runs. Throws when it doesn't come up.
    std::unique_ptr<Program> StartQuillo() const;
    // A helper that serves; `words`: the command line of another one than the built one. Throws when none does.
    std::unique_ptr<Program> StartHelper(const std::vector<std::string>& words = {HelperProgram()}) const;

    // Waits until a helper serves; there is no event to wait for. False: none did within 15 s.
    bool AwaitService() const;
    // The same for a helper that holds the store, whether it serves or not.
    bool AwaitHelper() const;

private:
    TempFolder folder;
    std::map<std::string, std::string> environment;
};
