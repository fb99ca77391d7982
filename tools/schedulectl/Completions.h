// Completions: what the shells offer behind "schedulectl", generated from the definitions of the commands. Pure; any
// thread.
#pragma once

#include <string>
#include <vector>

namespace tools {

struct CompletedOption {
    std::string name;        // "--app"; "" for a positional one
    std::string positional;  // "NAME"; "" for an option
    std::string description;
    bool takesValue = false;
};

struct CompletedCommand {
    std::string name;
    std::string description;
    std::vector<CompletedOption> options;
};

// `shell`: bash, zsh or fish. Schedules' names are asked from `schedulectl list --names`.
std::string CompletionScript(const std::string& shell, const std::vector<CompletedOption>& global,
                             const std::vector<CompletedCommand>& commands);

}  // namespace tools
