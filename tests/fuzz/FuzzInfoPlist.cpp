// A bundle's Info.plist, XML or binary, and the version in it. What is said in XML must be read the same when libplist
// has made it binary. The input is the file.
#include "Fuzz.h"

#include "InfoPlist.h"
#include "PropertyListReader.h"
#include "Utf8.h"

#include "app/LScheduleHelper.h"
#include "text/LCFBundle.h"

#include <plist/plist.h>
#include <set>

using platform::InfoPlist;

namespace {

constexpr size_t kMaxText = 4096, kMaxEntries = 1024;

struct FreeNode {
    void operator()(void* node) const { plist_free(node); }
};

std::string ToBinary(std::string_view xml) {
    plist_t raw = nullptr;
    plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &raw);
    const std::unique_ptr<void, FreeNode> root(raw);
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(root.get(), &bytes, &length);
    const std::unique_ptr<char, decltype(&std::free)> owner(bytes, &std::free);
    return bytes ? std::string(bytes, length) : "";
}

std::set<std::string> ServicesOf(const InfoPlist& info) {
    return {info.machServices.begin(), info.machServices.end()};
}

void CheckBounds(const InfoPlist& info) {
    Require(info.strings.size() <= kMaxEntries && info.machServices.size() <= kMaxEntries, "entries are limited");
    for (const auto& [key, text] : info.strings)
        Require(key.size() <= kMaxText && text.size() <= kMaxText, "texts are limited");
    for (const std::string& service : info.machServices) Require(service.size() <= kMaxText, "names are limited");
}

void CheckVersion(const std::string& version) {
    int major = -1, minor = -1;
    const ExactText<char> text(version);
    LCFBundle::ParseVersion(text.Get(), major, minor);
    Require(LIsMainAppVersion(major, minor) == (major == 2 && minor == 14), "only version 2.14 is the helper's");
}

// What the XML reader leaves out, libplist writes nonetheless: values of other types, and texts that aren't UTF-8.
bool IsWhollyKnown(std::string_view xml) {
    for (const char* tag : {"<date", "<real", "<uid"})
        if (xml.find(tag) != xml.npos) return false;
    return platform::IsUtf8(xml) && xml.find('\0') == xml.npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto info = platform::ParseInfoPlist(bytes);
    if (!info) return 0;
    CheckBounds(*info);
    if (const std::string* version = info->String("CFBundleVersion")) CheckVersion(*version);
    if (bytes.starts_with("bplist") || bytes.size() > 1 << 16 || !IsWhollyKnown(bytes)) return 0;
    const std::string_view xml = bytes.substr(bytes.find('<'));
    const auto again = platform::ParseInfoPlist(ToBinary(xml));
    Require(again.has_value(), "the binary form can be read");
    Require(again->strings == info->strings, "both forms hold the same texts");
    Require(ServicesOf(*again) == ServicesOf(*info), "both forms hold the same services");
    return 0;
}
