#include "CommandLine.h"

#include "CommandParts.h"
#include "Completions.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <iostream>

namespace tools {

namespace {

constexpr double maxTimeoutSeconds = 86'400;

// What a command takes.
enum Takes : unsigned {
    takesNothing = 0,
    takesApplication = 1,
    takesName = 2,
    takesTimes = 4,
    takesDryRun = 8,
    takesForce = 16,
    takesDrop = 32,
};

struct Command {
    const char* name;
    const char* description;
    int (*run)(const Options&);
    unsigned takes;
    const char* group;
};

constexpr const char* schedules = "Schedules";
constexpr const char* helper = "The helper";
constexpr const char* requests = "Single requests, for scripts";

int RunCompletion(const Options& options);

constexpr Command commands[] = {
    {"list", "shows what is stored, in the order of its starts", RunList, takesNothing, schedules},
    {"next", "shows what is started next", RunNext, takesNothing, schedules},
    {"watch", "counts down to what comes; into a pipe a line per event", RunWatch, takesNothing, schedules},
    {"show", "shows all of one schedule", RunShow, takesName | takesApplication, schedules},
    {"add", "adds a schedule, or replaces the one of the same name", RunAdd,
     takesName | takesTimes | takesApplication | takesDryRun, schedules},
    {"delete", "deletes schedules", RunDelete, takesApplication | takesDryRun, schedules},
    {"import", "adds the schedules of a file, JSON or iCalendar: all or none", RunImport,
     takesApplication | takesDryRun, schedules},
    {"export", "writes the schedules as JSON or iCalendar", RunExport, takesNothing, schedules},
    {"simulate", "plays the coming days on a virtual clock", RunSimulate, takesNothing, schedules},
    {"doctor", "checks everything between a schedule and a running recorder", RunDoctor, takesNothing, helper},
    {"status", "shows whether the helper runs and serves", RunStatus, takesNothing, helper},
    {"start", "starts the helper", RunStart, takesDrop, helper},
    {"stop", "ends the helper, unless a start is near; the schedules stay stored", RunStop, takesForce, helper},
    {"restart", "restarts a running helper, when no start is near", RunRestart, takesForce | takesDrop, helper},
    {"log", "shows what the helper's service logged", RunLog, takesNothing, helper},
    {"test", "asks whether the helper answers", RunTest, takesNothing, requests},
    {"handshake", "introduces the application to the helper", RunHandshake, takesApplication, requests},
    {"may-quit", "asks whether the helper has nothing left to do", RunMayQuit, takesNothing, requests},
    {"quit", "ends the helper by a request, at once", RunQuit, takesNothing, requests},
    {"completion", "writes a shell's completions", RunCompletion, takesNothing, requests},
};

void AddShared(CLI::App& app, const Command& command, Options& options) {
    if (command.takes & takesName) app.add_option("NAME", options.schedule.name, "the schedule's name")->required();
    if (command.takes & takesTimes) {
        app.add_option("--at", options.schedule.at,
                       "start: 2026-11-30T21:05, 21:05 (the next one), +90s, +15min, +2h, +3d")
            ->required();
        auto* daily = app.add_flag("--daily", options.schedule.daily, "every day at that time of day");
        app.add_option("--weekly", options.schedule.weekly, "at that time of day on these days: mon,wed,...")
            ->excludes(daily);
    }
    if (command.takes & takesApplication) {
        app.add_option("--app", options.appPath,
                       "the application's bundle (default: $SCHEDULECTL_APP, else the installed Quillo.app; of what is "
                       "stored already: any)");
        app.add_option(
            "--bundle-id", options.bundleId,
            "the application's identifier (default: com.tarnwick.quillofree; of what is stored already: any)");
    }
    if (command.takes & takesDryRun) app.add_flag("--dry-run", options.dryRun, "only tells what would be done");
    if (command.takes & takesDrop)
        app.add_flag("--drop-missing", options.dropMissing,
                     "also when an application isn't there: a helper that is started drops its schedules");
    if (command.takes & takesForce) app.add_flag("--force", options.force, "also when a start is near");
}

// What only one command takes.
void AddOwn(CLI::App& app, Options& options) {
    const std::string name = app.get_name();
    if (name == "list") app.add_flag("--names", options.namesOnly, "only the names, a line each");
    if (name == "delete") {
        app.add_option("NAME", options.names, "the schedules' names");
        app.add_flag("--all", options.all, "all schedules (with --app: of that application)");
    }
    if (name == "watch") app.add_option("--for", options.span, "ends after that time: 90min, 45s (default: never)");
    if (name == "import") {
        app.add_option("FILE", options.file, "the file; - for standard input")->required();
        app.add_flag("--skip-refused", options.skipRefused, "imports what fits when some doesn't");
    }
    if (name == "export")
        app.add_option("FILE", options.file, "the file; - for standard output")->capture_default_str();
    if (name == "import" || name == "export")
        app.add_option("--format", options.format, "json or ical (default: by the file's name)")
            ->check(CLI::IsMember({"json", "ical"}));
    if (name == "simulate") {
        options.span = "";
        app.add_option("--for", options.span, "how far: 30d, 2w, 12h")->required();
        app.add_option("--zone", options.zone, "in this time zone: Europe/Berlin");
        app.add_option("--sleep", options.sleeps,
                       "the machine sleeps FROM..TO: 2026-12-01T23:00..2026-12-02T07:00, or each day 23:00..07:00");
        app.add_option("--restart", options.restart, "the helper is restarted each day at this time: 04:10");
    }
    if (name == "log") {
        app.add_option("--lines", options.lines, "the last ones only")->default_val(100);
        app.add_flag("--follow", options.follow, "waits for more");
    }
    if (name == "completion")
        app.add_option("SHELL", options.shell, "bash, zsh or fish")
            ->required()
            ->check(CLI::IsMember({"bash", "zsh", "fish"}));
}

// The names of an option without the dashes of its short form's absence: "--app"; "" for a positional one.
CompletedOption Completed(const CLI::Option& option) {
    CompletedOption completed;
    completed.description = option.get_description();
    completed.takesValue = option.get_items_expected_max() > 0;
    if (option.get_positional())
        completed.positional = option.get_name(true, false);
    else
        completed.name = "--" + option.get_lnames().front();
    return completed;
}

std::vector<CompletedOption> CompletedOptions(const CLI::App& app) {
    std::vector<CompletedOption> completed;
    for (const CLI::Option* option : app.get_options()) completed.push_back(Completed(*option));
    return completed;
}

void Define(CLI::App& app, Options& options, double& timeoutSeconds) {
    app.footer("Exit status: 0 done, 1 failure, 2 usage, 3 not found, 4 helper unreachable, 5 refused.");
    app.set_version_flag("--version", "schedulectl " SCHEDULEHELPER_VERSION);
    app.require_subcommand(1);
    app.fallthrough();  // what is for all commands also behind the command
    app.add_flag("--json", options.style.json, "answers and errors as JSON");
    app.add_flag("--quiet", options.style.quiet, "only what was asked for, and errors");
    app.add_option("--color", options.style.colour, "always, never, or auto: on a terminal, unless NO_COLOR is set")
        ->capture_default_str()
        ->check(CLI::IsMember({"auto", "always", "never"}));
    app.add_option("--timeout", timeoutSeconds, "seconds to wait for an answer")
        ->capture_default_str()
        ->check(CLI::Range(0.0, maxTimeoutSeconds));
    for (const Command& command : commands) {
        CLI::App* const sub = app.add_subcommand(command.name, command.description)->group(command.group);
        AddShared(*sub, command, options);
        AddOwn(*sub, options);
    }
}

int RunCompletion(const Options& options) {
    Options ignored;
    double alsoIgnored = 0;
    CLI::App app("", "schedulectl");
    Define(app, ignored, alsoIgnored);
    std::vector<CompletedCommand> completed;
    for (const Command& command : commands)
        completed.push_back({command.name, command.description, CompletedOptions(*app.get_subcommand(command.name))});
    std::cout << CompletionScript(options.shell, CompletedOptions(app), completed);
    return exitDone;
}

// Why the first word that is no option is no command; "" when it is one or there is none.
std::string CommandFault(int argc, char** argv) {
    std::vector<std::string> names;
    for (const Command& command : commands) names.emplace_back(command.name);
    const auto word = std::find_if(argv + 1, argv + argc, [](const char* one) { return *one != '-'; });
    if (word == argv + argc) return "which command? (schedulectl --help)";
    if (std::find(names.begin(), names.end(), *word) != names.end()) return "";
    const std::string nearest = NearestName(*word, names);
    return "no command is named " + std::string(*word) +
           (nearest.empty() ? " (schedulectl --help)" : "; did you mean \"" + nearest + "\"?");
}

}  // namespace

ParsedCommand ParseCommandLine(int argc, char** argv, Options& options) {
    CLI::App app("The schedule helper from the command line.", "schedulectl");
    double timeoutSeconds = options.timeoutMs / 1000.0;
    Define(app, options, timeoutSeconds);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return {nullptr, app.exit(error)};
        const Output output(options.style);
        const bool isOfOption = dynamic_cast<const CLI::ValidationError*>(&error) ||
                                dynamic_cast<const CLI::ConversionError*>(&error) ||
                                dynamic_cast<const CLI::ArgumentMismatch*>(&error);
        const std::string fault = isOfOption ? "" : CommandFault(argc, argv);
        return {nullptr, output.Error(exitUsage, fault.empty() ? error.what() : fault)};
    }
    options.timeoutMs = static_cast<uint32_t>(std::lround(timeoutSeconds * 1000));
    const std::string chosen = app.get_subcommands().front()->get_name();
    for (const Command& command : commands)
        if (chosen == command.name) return {command.run, exitDone};
    return {nullptr, exitUsage};
}

}  // namespace tools
