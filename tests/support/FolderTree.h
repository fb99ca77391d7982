// What tests of file operations compare: file contents, whole trees, and names of bad taste.
#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

// Every kind of bad taste that a file system allows.
inline const std::vector<std::string> kNames{"plain", "two words",  "-rf",       "--help", "a\"b",
                                             "a'b",   "$(touch X)", "`touch X`", "a\\b",   "line\nfeed",
                                             "a:b",   "*",          "?",         ";rm",    "\xFF\xFE not UTF-8",
                                             "%s%n",  ".hidden",    "~"};

inline std::string Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// What lies below a folder: each path with its content, "/" for a folder, " -> target" for a link.
inline std::vector<std::string> Tree(const std::string& root) {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        const std::string name = entry.path().string().substr(root.size() + 1);
        if (entry.is_symlink())
            found.push_back(name + " -> " + std::filesystem::read_symlink(entry.path()).string());
        else
            found.push_back(name + (entry.is_directory()      ? "/"
                                    : entry.is_regular_file() ? "=" + Content(entry.path().string())
                                                              : "?"));
    }
    std::sort(found.begin(), found.end());
    return found;
}
