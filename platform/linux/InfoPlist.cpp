#include "InfoPlist.h"

#include "BinaryPropertyList.h"
#include "Descriptor.h"
#include "PropertyListReader.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace platform {

namespace {

constexpr size_t kMaxFile = size_t{1024} * 1024;
constexpr size_t kMaxText = 4096;
constexpr size_t kMaxEntries = 1024;  // of one dictionary
constexpr std::string_view kMachServices = "MachServices";

std::optional<InfoPlist> ParseXml(std::string_view bytes) {
    const auto root = ParsePropertyList(bytes);
    if (!root || root->count() > kMaxEntries) return std::nullopt;
    InfoPlist info;
    for (const auto& [key, value] : *root) {
        const std::string_view text = value.String().View();
        const bool fits = key.View().size() <= kMaxText && text.size() <= kMaxText;
        if (value.String() && fits) info.strings.emplace(key.View(), text);
    }
    const NSDictionary services = root->valueForKey(NSString(kMachServices)).Dictionary();
    if (services.count() > kMaxEntries) return info;
    for (const auto& [name, value] : services) info.machServices.emplace_back(name.View());
    return info;
}

std::optional<InfoPlist> ParseBinary(std::string_view bytes) {
    const auto list = BinaryPropertyList::Open(bytes);
    if (!list) return std::nullopt;
    auto root = list->Dictionary(list->Top(), kMaxEntries, kMaxText);
    if (!root) return std::nullopt;
    InfoPlist info;
    for (BinaryPropertyList::Entry& entry : *root) {
        if (auto text = list->Text(entry.value, kMaxText)) {
            info.strings.insert_or_assign(std::move(entry.key), std::move(*text));
        } else if (entry.key == kMachServices) {
            auto services = list->Dictionary(entry.value, kMaxEntries, kMaxText);
            if (!services) continue;
            for (BinaryPropertyList::Entry& service : *services) info.machServices.push_back(std::move(service.key));
        }
    }
    return info;
}

}  // namespace

const std::string* InfoPlist::String(std::string_view key) const {
    const auto found = strings.find(key);
    return found == strings.end() ? nullptr : &found->second;
}

std::optional<InfoPlist> ParseInfoPlist(std::string_view bytes) {
    if (bytes.size() > kMaxFile) return std::nullopt;
    if (bytes.starts_with("bplist")) return ParseBinary(bytes);
    if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
    const size_t start = bytes.find_first_not_of(" \t\r\n");
    if (start == std::string_view::npos || bytes[start] != '<') return std::nullopt;
    return ParseXml(bytes.substr(start));
}

std::optional<InfoPlist> ReadInfoPlist(const std::string& bundleRoot) {
    const std::string path = bundleRoot + "/Contents/Info.plist";
    // Without waiting: the name may stand for a pipe.
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!file || ::fstat(file.Get(), &status) != 0) return std::nullopt;
    std::string bytes;
    const int error = ReadRegularFile(FileCalls::System(), file.Get(), status, kMaxFile, bytes);
    auto info = error == 0 ? ParseInfoPlist(bytes) : std::nullopt;
    if (!info) errno = error == 0 ? EINVAL : error;
    return info;
}

}  // namespace platform
