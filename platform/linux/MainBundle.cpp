#include "MainBundle.h"

#include <bsd/LMutex.h>

#include <unistd.h>

namespace platform {

namespace {

// Cuts `suffix` off the end of `text`; false when it doesn't end so.
bool RemoveSuffix(std::string_view& text, std::string_view suffix) {
    if (!text.ends_with(suffix)) return false;
    text.remove_suffix(suffix.size());
    return true;
}

// "" when that can't be told now.
std::string OwnBundleRoot() {
    const auto program = ProgramOfLink("/proc/self/exe");
    if (!program) return "";
    if (auto bundle = BundleOfProgram(*program)) return *bundle;
    const size_t slash = program->rfind('/');
    return slash == std::string::npos || slash == 0 ? "/" : program->substr(0, slash);
}

struct Roots {
    LMutex mutex;
    std::string own L_GUARDED_BY(mutex);
    std::string replacement L_GUARDED_BY(mutex);
};

Roots& TheRoots() {
    static Roots& instance = *new Roots;
    return instance;
}

}  // namespace

std::optional<std::string> BundleOfProgram(std::string_view programPath) {
    const size_t slash = programPath.rfind('/');
    if (slash == std::string_view::npos || slash + 1 == programPath.size()) return std::nullopt;
    std::string_view folder = programPath.substr(0, slash);
    if (!RemoveSuffix(folder, "/Contents/Linux") && !RemoveSuffix(folder, "/Contents/MacOS")) return std::nullopt;
    std::string_view name = folder.substr(folder.rfind('/') + 1);  // npos + 1 is 0
    if (!RemoveSuffix(name, ".app") || name.empty()) return std::nullopt;
    return std::string(folder);
}

std::optional<std::string> ProgramOfLink(const std::string& link) {
    std::string target(256, '\0');
    for (;;) {
        const ssize_t length = ::readlink(link.c_str(), target.data(), target.size());
        if (length < 0) return std::nullopt;
        if (static_cast<size_t>(length) < target.size()) {
            target.resize(static_cast<size_t>(length));
            break;
        }
        target.resize(2 * target.size());  // perhaps cut
    }
    std::string_view program = target;
    RemoveSuffix(program, " (deleted)");
    return std::string(program);
}

std::string MainBundleRoot() {
    Roots& roots = TheRoots();
    LMutexLock lock(roots.mutex);
    if (!roots.replacement.empty()) return roots.replacement;
    if (roots.own.empty()) roots.own = OwnBundleRoot();
    return roots.own;
}

void SetMainBundleRoot(std::string root) {
    Roots& roots = TheRoots();
    LMutexLock lock(roots.mutex);
    roots.replacement = std::move(root);
}

}  // namespace platform
