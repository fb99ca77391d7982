#include "Completions.h"

#include <algorithm>

namespace tools {

namespace {

std::string Joined(const std::vector<CompletedOption>& options) {
    std::string words;
    for (const CompletedOption& option : options)
        if (!option.name.empty()) words += (words.empty() ? "" : " ") + option.name;
    return words;
}

// Up to the first remark: a shell has a line for it.
std::string Short(const std::string& description) {
    const std::string start = description.substr(0, description.find_first_of("(:;"));
    return start.substr(0, start.find_last_not_of(' ') + 1);
}

// In single quotes.
std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text)
        if (c == '\'')
            quoted += "'\\''";
        else
            quoted += c;
    return quoted + "'";
}

bool Takes(const CompletedCommand& command, const char* positional) {
    return std::any_of(command.options.begin(), command.options.end(),
                       [&](const CompletedOption& option) { return option.positional == positional; });
}

// Which of the words behind a command are schedules that there are: `add` takes a new one.
bool TakesStoredName(const CompletedCommand& command) {
    return command.name != "add" && Takes(command, "NAME");
}

std::string Bash(const std::vector<CompletedOption>& global, const std::vector<CompletedCommand>& commands) {
    std::string names, cases;
    for (const CompletedCommand& command : commands) {
        names += (names.empty() ? "" : " ") + command.name;
        cases += "        " + command.name + ") options=\"$options " + Joined(command.options) + "\"";
        if (TakesStoredName(command)) cases += "; stored=1";
        if (Takes(command, "FILE")) cases += "; files=1";
        if (Takes(command, "SHELL")) cases += "; words='bash zsh fish'";
        cases += " ;;\n";
    }
    return "# Completions of schedulectl for bash.\n"
           "_schedulectl() {\n"
           "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} command='' each\n"
           "    local options='" +
           Joined(global) +
           "' stored='' files='' words=''\n"
           "    COMPREPLY=()\n"
           "    for each in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
           "        case \" " +
           names +
           " \" in *\" $each \"*) command=$each; break ;; esac\n"
           "    done\n"
           "    case $before in\n"
           "        --color) mapfile -t COMPREPLY < <(compgen -W 'auto always never' -- \"$word\"); return ;;\n"
           "        --format) mapfile -t COMPREPLY < <(compgen -W 'json ical' -- \"$word\"); return ;;\n"
           "        --app) compopt -o filenames; mapfile -t COMPREPLY < <(compgen -d -- \"$word\"); return ;;\n"
           "    esac\n"
           "    case $command in\n"
           "        '') words='" +
           names + "' ;;\n" + cases +
           "    esac\n"
           "    if [[ $word == -* ]]; then\n"
           "        mapfile -t COMPREPLY < <(compgen -W \"$options\" -- \"$word\")\n"
           "    elif [[ -n $words ]]; then\n"
           "        mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$word\")\n"
           "    elif [[ -n $stored ]]; then\n"
           "        while IFS= read -r each; do\n"
           "            [[ $each == \"$word\"* ]] && COMPREPLY+=(\"$(printf '%q' \"$each\")\")\n"
           "        done < <(schedulectl list --names 2>/dev/null)\n"
           "    elif [[ -n $files ]]; then\n"
           "        compopt -o filenames\n"
           "        mapfile -t COMPREPLY < <(compgen -f -- \"$word\")\n"
           "    fi\n"
           "}\n"
           "complete -F _schedulectl schedulectl\n";
}

std::string ZshOption(const CompletedOption& option) {
    std::string description = Short(option.description);
    std::replace(description.begin(), description.end(), '[', '(');
    std::replace(description.begin(), description.end(), ']', ')');
    const std::string value = !option.takesValue          ? ""
                              : option.name == "--color"  ? ":when:(auto always never)"
                              : option.name == "--format" ? ":format:(json ical)"
                              : option.name == "--app"    ? ":bundle:_files -/"
                                                          : ":value:";
    return Quoted(option.name + "[" + description + "]" + value);
}

std::string Zsh(const std::vector<CompletedOption>& global, const std::vector<CompletedCommand>& commands) {
    std::string names, cases, options;
    for (const CompletedOption& option : global)
        if (!option.name.empty()) options += " \\\n        " + ZshOption(option);
    for (const CompletedCommand& command : commands) {
        names += "        " + Quoted(command.name + ":" + Short(command.description)) + "\n";
        cases += "        " + command.name + ") _arguments";
        for (const CompletedOption& option : command.options)
            if (!option.name.empty()) cases += " " + ZshOption(option);
        if (TakesStoredName(command)) cases += " '*:schedule:_schedulectl_stored'";
        if (Takes(command, "FILE")) cases += " '1:file:_files'";
        if (Takes(command, "SHELL")) cases += " '1:shell:(bash zsh fish)'";
        cases += " ;;\n";
    }
    return "#compdef schedulectl\n"
           "# Completions of schedulectl for zsh.\n"
           "_schedulectl_stored() {\n"
           "    local -a stored\n"
           "    stored=(${(f)\"$(schedulectl list --names 2>/dev/null)\"})\n"
           "    compadd -a stored\n"
           "}\n"
           "_schedulectl() {\n"
           "    local line state\n"
           "    local -a commands=(\n" +
           names +
           "    )\n"
           "    _arguments -C" +
           options +
           " \\\n        '1:command:->command' '*::words:->words'\n"
           "    case $state in\n"
           "        command) _describe command commands; return ;;\n"
           "    esac\n"
           "    case $line[1] in\n" +
           cases +
           "    esac\n"
           "}\n"
           "_schedulectl \"$@\"\n";
}

std::string FishOption(const std::string& condition, const CompletedOption& option) {
    std::string line = "complete -c schedulectl" + condition + " -l " + option.name.substr(2);
    if (option.takesValue) line += " -r";
    if (option.name == "--color") line += " -a 'auto always never'";
    if (option.name == "--format") line += " -a 'json ical'";
    if (option.name == "--app") line += " -a '(__fish_complete_directories)'";
    return line + " -d " + Quoted(Short(option.description)) + "\n";
}

std::string Fish(const std::vector<CompletedOption>& global, const std::vector<CompletedCommand>& commands) {
    std::string script = "# Completions of schedulectl for fish.\ncomplete -c schedulectl -f\n";
    for (const CompletedOption& option : global)
        if (!option.name.empty()) script += FishOption("", option);
    for (const CompletedCommand& command : commands) {
        script += "complete -c schedulectl -n __fish_use_subcommand -a " + command.name + " -d " +
                  Quoted(Short(command.description)) + "\n";
        const std::string condition = " -n '__fish_seen_subcommand_from " + command.name + "'";
        for (const CompletedOption& option : command.options)
            if (!option.name.empty()) script += FishOption(condition, option);
        if (TakesStoredName(command))
            script += "complete -c schedulectl" + condition + " -a '(schedulectl list --names 2>/dev/null)'\n";
        if (Takes(command, "FILE")) script += "complete -c schedulectl" + condition + " -F\n";
        if (Takes(command, "SHELL")) script += "complete -c schedulectl" + condition + " -a 'bash zsh fish'\n";
    }
    return script;
}

}  // namespace

std::string CompletionScript(const std::string& shell, const std::vector<CompletedOption>& global,
                             const std::vector<CompletedCommand>& commands) {
    if (shell == "bash") return Bash(global, commands);
    return shell == "zsh" ? Zsh(global, commands) : Fish(global, commands);
}

}  // namespace tools
