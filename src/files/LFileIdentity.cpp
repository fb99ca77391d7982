#include "files/LFileIdentity.h"

#include "text/LCopyBounded.h"

#include <cstring>
#include <string>
#include <tuple>

bool LIsSameEntry(const char* a, const char* b) {
    struct stat first {
    }, second{};
    if (::lstat(a, &first) != 0 || ::lstat(b, &second) != 0 || !LIsSameFile(first, second)) return false;
    if (first.st_nlink == 1) return true;
    char folderOfA[LTextBufferSize], folderOfB[LTextBufferSize];
    char nameOfA[LTextBufferSize], nameOfB[LTextBufferSize];
    for (const auto& [path, folder, name] : {std::tuple(a, folderOfA, nameOfA), std::tuple(b, folderOfB, nameOfB)}) {
        const char* const slash = std::strrchr(path, '/');
        LCopyBounded(name, slash ? slash + 1 : path, LTextBufferSize);
        const std::string parent = !slash ? "." : slash == path ? "/" : std::string(path, slash);
        LCopyBounded(folder, parent.c_str(), LTextBufferSize);
    }
    return std::strcmp(nameOfA, nameOfB) == 0 && ::stat(folderOfA, &first) == 0 && ::stat(folderOfB, &second) == 0 &&
           LIsSameFile(first, second);
}

bool LLiesInFolder(const struct stat& folder, const char* path) {
    std::string text = path;
    struct stat status {};
    while (::stat(text.c_str(), &status) != 0) {
        if (text == "." || text == "/") return false;  // may not be searched, so there is nothing more to look at
        const size_t slash = text.rfind('/');
        text = slash == std::string::npos ? "." : slash == 0 ? "/" : text.substr(0, slash);
    }
    for (;;) {
        if (LIsSameFile(status, folder)) return true;
        const struct stat below = status;
        text += "/..";
        if (::stat(text.c_str(), &status) != 0 || LIsSameFile(status, below))
            return false;  // the root is its own parent
    }
}
