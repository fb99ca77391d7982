// Path operations: any folder, path and extension, in place or not, against what the operations say of each other and
// plain models. The input is a choice and three texts, each ended by 0.
#include "Fuzz.h"

#include "MountTable.h"

#include "files/LFile.h"
#include "files/LFilePath.h"
#include "text/LCopyBounded.h"

#include <functional>
#include <vector>

namespace {

constexpr size_t kMost = LTextBufferSize - 1;
constexpr std::string_view kSeparators = "/\\";

bool IsSeparator(char c) {
    return c == '/' || c == '\\';
}

// What an operation writes into a buffer of 260 bytes.
std::string Result(const std::function<void(char*)>& operation) {
    const GuardedBuffer<char> buffer(LTextBufferSize);
    operation(buffer.Get());
    return buffer.Text();
}

using Operation = void (*)(char* dst, const char* path);

// The same result when the path lies in the buffer itself.
std::string Apply(Operation operation, const std::string& path) {
    const ExactText<char> apart(path);
    const std::string result = Result([&](char* dst) { operation(dst, apart.Get()); });
    if (path.size() > kMost) return result;
    const std::string inPlace = Result([&](char* dst) {
        std::strcpy(dst, path.c_str());
        operation(dst, dst);
    });
    Require(inPlace == result, "in place is the same");
    return result;
}

std::string Join(const std::string& folder, const std::string& name, const std::string& ext) {
    const ExactText<char> a(folder), b(name), c(ext);
    const std::string joined = Result([&](char* dst) { LFile::_MakeFilePath(dst, a.Get(), b.Get(), c.Get()); });
    std::string expected = folder.substr(0, kMost - 1);
    if (!expected.empty() && !IsSeparator(expected.back())) expected += '/';
    Require(joined == (expected + name + ext).substr(0, kMost), "a path is joined");
    return joined;
}

// A path that fits falls into its parts.
void CheckParts(const std::string& path) {
    const std::string folder = Apply(LFile::_GetFolderFromPath, path);
    const std::string file = Apply(LFile::_GetFileFromPath, path);
    const std::string name = Apply(LFile::_GetFileNameFromPath, path);
    const std::string extension = Apply(LFile::_GetFileExtensionFromPath, path);
    const std::string base = Apply(LFile::_GetBaseFolderFromPath, path);
    if (path.size() > kMost) return;
    const size_t separator = path.find_last_of(kSeparators);
    Require(file == path.substr(separator + 1), "a file is what follows the last separator");
    Require(path.starts_with(folder) && path.starts_with(base), "a folder is the begin");
    if (separator != path.npos && separator > 0) Require(folder.size() == separator, "up to the last separator");
    if (file.find('.') == 0 && file.rfind('.') == 0)
        Require(name == file && extension == file, "a leading point");
    else
        Require(name + extension == file, "a file is its name and extension");
    Require(base.size() <= 2 || base.find_first_of(kSeparators, 2) == base.npos, "a base has no separator behind it");
}

void CheckExtension(const std::string& path, const std::string& ext) {
    const ExactText<char> a(path), b(ext);
    const std::string changed = Result([&](char* dst) { LFile::_ApplyNewFileExtension(dst, a.Get(), b.Get()); });
    if (path.size() + ext.size() > kMost) return;
    Require(changed.ends_with(ext), "the extension is applied");
    const std::string stem = changed.substr(0, changed.size() - ext.size());
    Require(path.starts_with(stem) && (path == stem || path[stem.size()] == '.'), "only the extension is replaced");
}

// An absolute path of plain components, which comes back from being made relative. (Folders of two bytes don't: they
// swallow a step up.)
bool IsPlain(const std::string& path) {
    if (path.size() > 100 || path.size() < 4 || path[0] != '/' || path[2] == '/' || path.back() == '/') return false;
    if (path.find_first_of(":\\") != path.npos || path.find("//") != path.npos) return false;
    for (size_t at = path.find('/'); at != path.npos; at = path.find('/', at + 1))
        if (path[at + 1] == '.') return false;
    return true;
}

void CheckRelative(const std::string& folder, const std::string& path) {
    const ExactText<char> a(folder), b(path);
    bool fits = true;
    const std::string relative =
        Result([&](char* dst) { fits = LFile::GetRelativePathFromAbsolutePath(dst, a.Get(), b.Get()); });
    Require(fits || relative.empty(), "what doesn't fit is nothing");
    const std::string slashed = Result([&](char* dst) { LFile::MakeRelativeFilePath(dst, a.Get(), b.Get()); });
    const auto absolute = [&](const std::string& rel) {
        const ExactText<char> c(rel);
        return Result([&](char* dst) { LFile::MakeAbsoluteFilePath(dst, a.Get(), c.Get(), ""); });
    };
    absolute(path);
    if (!IsPlain(folder) || !IsPlain(path)) return;
    Require(path == folder || absolute(slashed) == path, "relative and back is the path");
    const bool isOneInTheOther = path.starts_with(folder) || folder.starts_with(path);
    if (fits && !isOneInTheOther) Require(absolute(relative) == path, "in the other form as well");
}

void CheckCleaning(const std::string& text) {
    const ExactText<char> source(text);
    bool isName = false, isPath = false;
    const std::string name = Result([&](char* dst) { isName = LFile::PreprocessName(source.Get(), dst); });
    const std::string path = Result([&](char* dst) { isPath = LFile::PreprocessPath(source.Get(), dst); });
    Require(isName == !name.empty() && LFile::IsFileValid(name.c_str()) == isName, "a cleaned name is valid");
    Require(isPath == (path.find_first_not_of(' ') != path.npos), "a cleaned path is something");
    if (LFile::IsFileValid(source.Get())) Require(name == text.substr(0, kMost), "a valid name stays");
    const std::string escaped = Result([&](char* dst) { LFile::EscapeFilePath(source.Get(), dst); });
    size_t at = 0;
    for (size_t i = 0; i < escaped.size(); i++, at++) {
        const bool isQuote = text[at] == '"' || text[at] == '`';
        if (isQuote) Require(escaped[i++] == '\\', "a quote is escaped");
        Require(i < escaped.size() && escaped[i] == text[at], "nothing else is changed");
    }
    Require(at == text.size() || escaped.size() >= kMost - 1, "what fits is there");
}

void CheckComparing(const std::string& text, const std::string& end) {
    const ExactText<char> a(text), b(end);
    Require((tstrcmpend(a.Get(), b.Get()) == 0) == text.ends_with(end), "an end is an end");
    const char* const list[] = {"", ".mov", end.c_str(), nullptr};
    Require(LIsFileExtensionInList(list, b.Get()), "a list has what is in it");
}

// Asks the file system, too.
void CheckExisting(const std::string& folder, const std::string& name, const std::string& ext) {
    const ExactText<char> a(folder), b(name), c(ext);
    const std::string unique =
        Result([&](char* dst) { LFile::MakeUniqueOrderedFilePath(dst, a.Get(), b.Get(), c.Get()); });
    if (unique.size() < kMost) Require(!LFileExists(unique.c_str()), "a unique path is free");
    Require(!Apply(LFile::GetHumanReadableDriveFromPath, "/" + folder).empty(), "an absolute path has a drive");
    Apply(LFile::GetHumanReadableDriveFromPath, name);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const uint8_t choice = input.Byte();
    const std::string folder = input.Text(), path = input.Text(), ext = input.Text();
    CheckParts(path);
    CheckExtension(path, ext);
    CheckRelative(folder, path);
    CheckCleaning(path);
    CheckComparing(path, ext);
    Join(folder, path, ext);
    if (choice > 0) return 0;
    static const bool hasTable = (platform::SetMountTable("1 0 0:1 / / rw - tmpfs none rw\n"), true);
    if (hasTable) CheckExisting(folder, path, ext);
    return 0;
}
