// schedulectl: the schedule helper from the command line.
#include "Commands.h"
#include "app/LScheduleHelperKeys.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdlib>
#include <iostream>

namespace {

using tools::Options;

constexpr double maxTimeoutSeconds = 86'400;

struct Command {
    const char* name;
    const char* description;
    int (*run)(const Options&);
};

constexpr Command commands[] = {
    {"test", "asks whether the helper answers", tools::RunTest},
    {"handshake", "introduces the application to the helper", tools::RunHandshake},
    {"add", "adds a schedule, or replaces the one of the same name", tools::RunAdd},
    {"delete", "deletes a schedule", tools::RunDelete},
    {"delete-all", "deletes all schedules of the application", tools::RunDeleteAll},
    {"list", "shows the stored schedules, also while no helper runs", tools::RunList},
    {"may-quit", "asks whether the helper has nothing left to do", tools::RunMayQuit},
    {"quit", "ends the helper; the schedules stay stored", tools::RunQuit},
};

void AddOptions(CLI::App& command, Options& options) {
    const std::string name = command.get_name();
    const bool takesName = name == "add" || name == "delete";
    if (takesName) command.add_option("NAME", options.schedule.name, "the schedule's name")->required();
    if (takesName || name == "delete-all" || name == "handshake") {
        command.add_option("--app", options.appPath,
                           "the application's bundle (default: $SCHEDULECTL_APP, else the installed Quillo.app)");
        command.add_option("--bundle-id", options.bundleId, "the application's identifier")->capture_default_str();
    }
    if (name == "add") {
        command
            .add_option("--at", options.schedule.at, "start: 2026-11-30T21:05, 21:05 (the next one), +90s, +15min, +2h")
            ->required();
        auto* daily = command.add_flag("--daily", options.schedule.daily, "every day at that time of day");
        command.add_option("--weekly", options.schedule.weekly, "at that time of day on these days: mon,wed,...")
            ->excludes(daily);
    }
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("The schedule helper from the command line.", "schedulectl");
    app.footer("Exit status: 0 done, 1 failure, 2 usage, 3 not found, 4 helper unreachable, 5 refused.");
    app.set_version_flag("--version", "schedulectl " SCHEDULEHELPER_VERSION);
    app.require_subcommand(1);
    app.fallthrough();  // --json and --timeout also behind the command

    Options options;
    options.bundleId = kMainAppBundleId;
    double timeoutSeconds = options.timeoutMs / 1000.0;
    app.add_flag("--json", options.json, "answers and errors as JSON");
    app.add_option("--timeout", timeoutSeconds, "seconds to wait for an answer")
        ->capture_default_str()
        ->check(CLI::Range(0.0, maxTimeoutSeconds));
    for (const Command& command : commands) AddOptions(*app.add_subcommand(command.name, command.description), options);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? tools::exitDone : tools::exitUsage;
    }
    options.timeoutMs = static_cast<uint32_t>(std::lround(timeoutSeconds * 1000));
    const std::string chosen = app.get_subcommands().front()->get_name();
    for (const Command& command : commands)
        if (chosen == command.name) return command.run(options);
    return tools::exitUsage;
}
