// Quillo: stands in for the main application. Without arguments it "records" what is due; with a command it plays the
// main application's part towards the helper.
#include "Recording.h"
#include "ScheduleBook.h"
#include "app/LScheduleHelperKeys.h"
#include "common/Folders.h"
#include "common/HelperStarter.h"
#include "common/ScheduleText.h"
#include "common/StopSignal.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <ctime>
#include <iostream>

namespace {

using namespace tools;

constexpr const char* helperBundleName = "schedulehelper.app";
constexpr int failed = 1;
constexpr int usage = 2;

struct Options {
    std::string helper;
    double timeoutSeconds = 10;
    ScheduleWords schedule;
    double sessionSeconds = 0;
};

int Fail(const std::string& sentence, int status = failed) {
    std::cerr << "Quillo: " << sentence << std::endl;
    return status;
}

// What every command needs: the helper, serving, and this application as the helper is to know it.
class Session {
public:
    explicit Session(const Options& options)
        : timeoutMs(static_cast<uint32_t>(std::lround(options.timeoutSeconds * 1000))), book(ScheduleBookPath()),
          helper(HelperStarter(options.helper).Connect(timeoutMs)) {}

    int Handshake() {
        if (!helper) return NoHelper();
        if (helper->Ask(HelperRequest::Handshake(application), timeoutMs) != HelperClient::Answer::Yes)
            return Fail("the helper refuses " + application.path);
        std::cout << "the helper knows " << application.path << std::endl;
        return 0;
    }

    // Quillo's own list first: being started for nothing is better than not knowing why.
    int Add(const NewSchedule& schedule) {
        if (!helper) return NoHelper();
        if (const int status = Put(schedule)) return status;
        if (!helper->Tell(HelperRequest::Add(application, schedule), timeoutMs)) return NoAnswer();
        std::cout << "added \"" << schedule.name << "\" for " << LocalTimeText(schedule.start) << std::endl;
        return 0;
    }

    int Delete(const std::string& name) {
        if (!helper) return NoHelper();
        if (!helper->Tell(HelperRequest::Delete(application, name), timeoutMs)) return NoAnswer();
        const LDescriptor turn = book.TakeTurn();
        if (!book.Load()) return Fail("can't read " + ScheduleBookPath());
        if (book.Remove(name) && !book.Save()) return Fail("can't write " + ScheduleBookPath());
        std::cout << "deleted \"" << name << '"' << std::endl;
        return 0;
    }

    int Ask() {
        if (!helper) return NoHelper();
        const HelperClient::Answer answer = helper->Ask(HelperRequest::MayQuit(), timeoutMs);
        if (answer == HelperClient::Answer::No) return Fail("the helper may not be shut down: it has schedules");
        if (answer != HelperClient::Answer::Yes) return NoAnswer();
        std::cout << "the helper may be shut down" << std::endl;
        return 0;
    }

    int Quit() {
        if (const int status = Ask()) return status;
        if (!helper->TellToQuit(timeoutMs)) return Fail("the helper is still there");
        std::cout << "the helper has ended" << std::endl;
        return 0;
    }

private:
    int Put(const NewSchedule& schedule) {
        const LDescriptor turn = book.TakeTurn();
        if (!book.Load()) return Fail("can't read " + ScheduleBookPath());
        book.Put(schedule);
        return book.Save() ? 0 : Fail("can't write " + ScheduleBookPath());
    }

    static int NoHelper() { return Fail("no helper answers"); }
    static int NoAnswer() { return Fail("the helper does not answer"); }

    const Application application{kMainAppBundleId, OwnBundle()};
    const uint32_t timeoutMs;
    ScheduleBook book;
    std::unique_ptr<HelperClient> helper;
};

int Handshake(const Options& options) {
    return Session(options).Handshake();
}

int Add(const Options& options) {
    std::string fault;
    const std::optional<NewSchedule> schedule = ParseSchedule(options.schedule, time(nullptr), fault);
    return schedule ? Session(options).Add(*schedule) : Fail(fault, usage);
}

int Delete(const Options& options) {
    return Session(options).Delete(options.schedule.name);
}
int Ask(const Options& options) {
    return Session(options).Ask();
}
int Quit(const Options& options) {
    return Session(options).Quit();
}

int KeepRunning(const Options& options) {
    if (const int status = Handshake(options)) return status;
    AwaitStopSignal(options.sessionSeconds);
    std::cout << "Quillo quits" << std::endl;
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    BlockStopSignals();
    if (argc == 1) return Record();

    CLI::App app("Stands in for the main application. Without a command it records what is due.", "Quillo");
    app.require_subcommand(1);
    app.fallthrough();
    Options options;
    options.helper = FolderOf(OwnBundle()) + "/" + helperBundleName;
    app.add_option("--helper", options.helper, "the helper's bundle")->capture_default_str();
    app.add_option("--timeout", options.timeoutSeconds, "seconds to wait for the helper")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 3600.0));

    int (*run)(const Options&) = nullptr;
    const auto command = [&](const char* name, const char* description, int (*function)(const Options&)) {
        return app.add_subcommand(name, description)->callback([&run, function] { run = function; });
    };
    command("handshake", "shakes hands with the helper", Handshake);
    auto* add = command("add", "adds a schedule to Quillo's list and to the helper", Add);
    add->add_option("NAME", options.schedule.name)->required();
    add->add_option("--at", options.schedule.at, "2026-11-30T21:05, 21:05, +90s, +15min, +2h")->required();
    auto* daily = add->add_flag("--daily", options.schedule.daily);
    add->add_option("--weekly", options.schedule.weekly, "mon,wed,...")->excludes(daily);
    command("delete", "deletes a schedule from both", Delete)->add_option("NAME", options.schedule.name)->required();
    command("ask", "asks whether the helper may be shut down", Ask);
    command("quit", "asks, and shuts it down when it may be", Quit);
    command("session", "shakes hands and keeps running, so that the helper serves", KeepRunning)
        ->add_option("--seconds", options.sessionSeconds)
        ->required()
        ->check(CLI::Range(0.0, 86'400.0));

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : usage;
    }
    return run(options);
}
