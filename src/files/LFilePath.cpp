#include "files/LFilePath.h"

#include "files/LFile.h"
#include "text/LAscii.h"
#include "text/LCFURL.h"
#include "text/LCopyBounded.h"
#include "text/LStringShort.h"

#include <Carbon/Carbon.h>
#include <bsd/mount.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <unistd.h>

namespace {

constexpr size_t kNone = std::string_view::npos;
constexpr std::string_view kSeparators = "/\\";
constexpr size_t kMaxLength = LTextBufferSize - 1;

constexpr bool IsSeparator(char c) {
    return c == '/' || c == '\\';
}

std::string_view View(const char* text) {
    return text ? text : "";
}

// A result in the making: takes what fits. It is copied out at the end, so that `dst` may be an argument.
class PathText {
public:
    void Append(std::string_view text) {
        const size_t count = std::min(text.size(), kMaxLength - length);
        std::memcpy(buffer + length, text.data(), count);
        length += count;
    }
    bool HasRoomFor(size_t count) const { return length + count <= kMaxLength; }
    void Clear() { length = 0; }
    std::string_view View() const { return {buffer, length}; }
    const char* Terminated() {
        buffer[length] = '\0';
        return buffer;
    }
    void CopyTo(char* dst) { std::memcpy(dst, Terminated(), length + 1); }

private:
    char buffer[LTextBufferSize] = {};
    size_t length = 0;
};

// `text` may lie in `dst`.
void Store(char* dst, std::string_view text) {
    const size_t count = std::min(text.size(), kMaxLength);
    std::memmove(dst, text.data(), count);
    dst[count] = '\0';
}

std::string_view LastComponent(std::string_view path) {
    return path.substr(path.find_last_of(kSeparators) + 1);  // npos + 1 is 0
}

PathText Join(std::string_view folder, std::string_view name, std::string_view ext) {
    PathText path;
    path.Append(folder.substr(0, kMaxLength - 1));
    if (!folder.empty() && !IsSeparator(path.View().back())) path.Append("/");
    path.Append(name);
    path.Append(ext);
    return path;
}

bool IsAbsolute(std::string_view path) {
    if (!path.empty() && IsSeparator(path.front())) return true;
    return path.substr(0, path.find_first_of(kSeparators)).find(':') != kNone;
}

// Takes a leading "./" or "../" off; false when there is none.
bool TakeStep(std::string_view& path, std::string_view points) {
    if (!path.starts_with(points) || path.size() == points.size() || !IsSeparator(path[points.size()])) return false;
    path.remove_prefix(points.size() + 1);
    return true;
}

// The folder without its last component. An absolute one is never cut below its first separator.
std::string_view WithoutLastComponent(std::string_view folder) {
    const size_t end = folder.find_last_not_of(kSeparators);
    if (end == kNone) return folder;
    const size_t cut = folder.find_last_of(kSeparators, end);
    if (cut == kNone) return "";
    return folder.substr(0, std::max<size_t>(cut, 1));
}

// Where two texts part, and the last separator before that which both have.
struct Fork {
    size_t difference = 0;
    size_t separator = kNone;
};

Fork FindFork(std::string_view a, std::string_view b) {
    Fork fork;
    const size_t common = std::min(a.size(), b.size());
    for (; fork.difference < common && a[fork.difference] == b[fork.difference]; ++fork.difference) {
        if (IsSeparator(a[fork.difference])) fork.separator = fork.difference;
    }
    return fork;
}

bool IsForbiddenInPath(char c) {
    return (c > 0 && c < 0x20) || std::strchr(":*?\"<>|", c) != nullptr;
}

bool IsForbiddenInName(char c) {
    return IsSeparator(c) || IsForbiddenInPath(c);
}

}  // namespace

void LFile::_MakeFilePath(char* dst, const char* folder, const char* name, const char* ext) {
    Join(View(folder), View(name), View(ext)).CopyTo(dst);
}

void LFile::_GetFolderFromPath(char* dst, const char* path) {
    const std::string_view view = View(path).substr(0, LTextBufferSize);
    const size_t separator = view.find_last_of(kSeparators);
    if (separator != kNone && separator > 0) return Store(dst, view.substr(0, separator));
    Store(dst, view.starts_with('/') ? "/" : "");
}

void LFile::_GetBaseFolderFromPath(char* dst, const char* path) {
    const std::string_view view = View(path);
    Store(dst, view.substr(0, view.find_first_of(kSeparators, 2)));
}

void LFile::_GetFileFromPath(char* dst, const char* path) {
    PathText component;
    for (const char c : View(path)) {
        if (IsSeparator(c)) {
            component.Clear();
            continue;
        }
        component.Append({&c, 1});
        if (!component.HasRoomFor(1)) break;
    }
    component.CopyTo(dst);
}

void LFile::_GetFileExtensionFromPath(char* dst, const char* path) {
    const std::string_view file = LastComponent(View(path));
    const size_t point = file.rfind('.');
    Store(dst, point == kNone ? "" : file.substr(point));
}

void LFile::_GetFileNameFromPath(char* dst, const char* path) {
    const std::string_view file = LastComponent(View(path));
    const size_t point = file.rfind('.');
    Store(dst, point == 0 ? file : file.substr(0, point));
}

void LFile::_ApplyNewFileExtension(char* dst, const char* path, const char* ext) {
    const std::string_view view = View(path).substr(0, kMaxLength);
    const size_t file = view.size() - LastComponent(view).size();
    const size_t point = view.rfind('.');
    const bool hasExtension = point != kNone && point >= file && point > 0;
    PathText changed;
    changed.Append(hasExtension ? view.substr(0, point) : view);
    changed.Append(View(ext));
    changed.CopyTo(dst);
}

void LFile::GetHumanReadableDriveFromPath(char* dst, const char* path) {
    if (const auto mountPoint = mount_point_of(path)) return Store(dst, *mountPoint);
    constexpr std::string_view kDriveEnd = ":\\";
    const std::string_view view = View(path);
    const auto* const runEnd = std::find_if_not(view.begin(), view.end(), LFileIsLetterOrNumber);
    const auto run = static_cast<size_t>(runEnd - view.begin());
    if (run == 0) return Store(dst, view.starts_with('/') ? "/" : "");
    PathText drive;
    drive.Append(view.substr(0, std::min(run, kMaxLength - kDriveEnd.size())));
    drive.Append(kDriveEnd);
    drive.CopyTo(dst);
}

bool LFile::GetRelativePathFromAbsolutePath(char* dst, const char* folder, const char* path) {
    const std::string_view from = View(folder);
    const std::string_view to = View(path);
    const Fork fork = FindFork(from, to);
    const bool folderMatched = fork.difference == from.size();
    const bool goesOn = fork.difference < to.size() && IsSeparator(to[fork.difference]);
    if (folderMatched && goesOn) {
        Store(dst, to.substr(fork.difference + 1));
        return true;
    }
    if (fork.separator == kNone) {
        Store(dst, to);
        return true;
    }
    if (folderMatched && IsSeparator(from.back())) {
        Store(dst, to.substr(fork.difference));
        return true;
    }
    const std::string_view left = from.substr(fork.difference);
    const std::string_view leftFolders = left.substr(0, left.empty() ? 0 : left.size() - 1);
    const auto steps = static_cast<size_t>(1 + std::count_if(leftFolders.begin(), leftFolders.end(), IsSeparator));
    const std::string_view rest = to.substr(fork.separator + 1);
    if (rest.size() + 3 * steps > LTextBufferSize) {
        Store(dst, "");
        return false;
    }
    const char step[3] = {'.', '.', to[fork.separator]};
    PathText relative;
    for (size_t i = 0; i < steps; ++i) relative.Append({step, sizeof step});
    relative.Append(rest);
    relative.CopyTo(dst);
    return true;
}

void LFile::MakeAbsoluteFilePath(char* dst, const char* folder, const char* relPath, const char* ext) {
    std::string_view rest = View(relPath);
    std::string_view from = View(folder);
    if (IsAbsolute(rest)) return Join("", rest, View(ext)).CopyTo(dst);
    for (;;) {
        if (TakeStep(rest, ".")) continue;
        if (from.size() < 2 || !TakeStep(rest, "..")) break;
        if (from.size() > 2) from = WithoutLastComponent(from);
    }
    Join(from, rest, View(ext)).CopyTo(dst);
}

bool LFile::MakeRelativeFolder(char* dst, const char* base, const char* target) {
    const std::string_view to = View(target);
    PathText from;
    from.Append(View(base));
    if (from.View().empty()) {
        Store(dst, to);
        return true;
    }
    if (!from.View().ends_with('/')) from.Append("/");
    const std::string_view view = from.View();
    const auto parted = std::mismatch(view.begin(), view.end(), to.begin(), to.end());
    const std::string_view common = view.substr(0, static_cast<size_t>(parted.first - view.begin()));
    const size_t shared = common.rfind('/') + 1;  // npos + 1 is 0
    PathText relative;
    for (const char c : view.substr(shared)) {
        if (c == '/') relative.Append("../");
    }
    const std::string_view rest = to.substr(shared);
    relative.Append(rest.substr(rest.starts_with('/') ? 1 : 0));
    relative.CopyTo(dst);
    return true;
}

bool LFile::MakeRelativeFilePath(char* dst, const char* base, const char* target) {
    return MakeRelativeFolder(dst, base, target);
}

void LFile::MakeUniqueOrderedFilePath(char* dst, const char* folder, const char* name, const char* ext) {
    PathText path = Join(View(folder), View(name), View(ext));
    for (uint32_t n = 0; LFileExists(path.Terminated()); ++n) {
        const LStringShortTemplate<char> candidate(LStringPrintFormatTemplate<char>{"%s_%u"}, name, n);
        const PathText next = Join(View(folder), candidate.Get(), View(ext));
        if (next.View() == path.View() || n == UINT32_MAX) break;
        path = next;
    }
    path.CopyTo(dst);
}

bool LFile::IsFileValid(const char* name) {
    const std::string_view view = View(name);
    return !view.empty() && std::none_of(view.begin(), view.end(), IsForbiddenInName);
}

bool LFile::PreprocessName(const char* src, char* dst) {
    PathText kept;
    for (const char c : View(src)) {
        if (!IsForbiddenInName(c)) kept.Append({&c, 1});
    }
    kept.CopyTo(dst);
    return !kept.View().empty();
}

bool LFile::PreprocessPath(const char* src, char* dst) {
    PathText kept;
    for (const char c : View(src)) {
        if (!IsForbiddenInPath(c)) kept.Append({&c, 1});
    }
    kept.CopyTo(dst);
    return kept.View().find_first_not_of(' ') != kNone;
}

void LFile::EscapeFilePath(const char* src, char* dst) {
    PathText escaped;
    for (const char c : View(src)) {
        const bool isQuote = c == '"' || c == '`';
        if (!escaped.HasRoomFor(isQuote ? 2 : 1)) break;  // a lone back slash would escape what follows the text
        if (isQuote) escaped.Append("\\");
        escaped.Append({&c, 1});
    }
    escaped.CopyTo(dst);
}

char* LFile::GetCurrentDirectory(char* buf) {
    return ::getcwd(buf, LTextBufferSize);
}

int LFile::SetCurrentDirectory(const char* path) {
    return ::chdir(path ? path : "");
}

bool LFileExists(const char* path) {
    if (::access(path ? path : "", F_OK) == 0) return true;
    LCFURL url;
    url.CreateFromFullPath(path);
    FSRef ref;
    return CFURLGetFSRef(url.Get(), &ref);
}

bool LIsFileExtensionInList(const char* const* list, const char* ext) {
    for (; list && *list; ++list) {
        if (LAsciiCompareNoCase(*list, ext) == 0) return true;
    }
    return false;
}

bool LFileIsLetterOrNumber(char c) {
    return LIsAsciiAlphaNumeric(c);
}

int tstrcmpend(const char* s, const char* suffix) {
    const std::string_view text = View(s);
    const std::string_view end = View(suffix);
    if (end.size() > text.size()) return -1;
    return std::strcmp(text.data() + text.size() - end.size(), end.data());
}
