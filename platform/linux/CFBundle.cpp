#include "CFObject.h"
#include "InfoPlist.h"
#include "MainBundle.h"
#include "Passing.h"

#include <bsd/LMutex.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>
#include <system_error>
#include <vector>

using platform::CFHolder;

struct CFBundle {
    platform::CFHeader header;
    std::string root;
    std::vector<std::pair<std::string, CFHolder<CFString>>> info;  // no map: that has no standard layout
};

namespace {

// Null when `root` is no folder.
CFBundleRef MakeBundle(const std::string& root) {
    std::error_code error;
    if (!std::filesystem::is_directory(root, error)) return nullptr;
    std::vector<std::pair<std::string, CFHolder<CFString>>> info;
    // A bundle whose version can't be read is not started.
    std::optional<platform::InfoPlist> plist;
    if (platform::Persist([&] { return (plist = platform::ReadInfoPlist(root)).has_value(); })) {
        for (const auto& [key, text] : plist->strings) {
            if (CFStringRef string = platform::CFStringFromUtf8(text)) info.emplace_back(key, string);
        }
    } else if (platform::IsPassing(errno)) {
        std::fprintf(stderr, "%s: its Info.plist cannot be read: %s\n", root.c_str(), std::strerror(errno));
    }
    return platform::MakeCF<CFBundle>(root, std::move(info));
}

// The main bundles that were asked for: one, unless a test moves the root. They are never released, because nobody who
// got one holds a reference to it.
struct MainBundles {
    LMutex mutex;
    std::map<std::string, CFBundleRef> byRoot L_GUARDED_BY(mutex);
};

}  // namespace

const CFStringRef kCFBundleVersionKey = platform::CFStringFromUtf8("CFBundleVersion");

CFBundleRef CFBundleCreate(CFAllocatorRef, CFURLRef url) {
    return url ? MakeBundle(platform::PathOfCFURL(url)) : nullptr;
}

CFBundleRef CFBundleGetMainBundle() {
    static MainBundles& bundles = *new MainBundles;
    const std::string root = platform::MainBundleRoot();
    {
        LMutexLock lock(bundles.mutex);
        const auto found = bundles.byRoot.find(root);
        if (found != bundles.byRoot.end()) return found->second;
    }
    const CFHolder<CFBundle> made(MakeBundle(root));
    if (!made) return nullptr;
    LMutexLock lock(bundles.mutex);
    const auto [entry, isNew] = bundles.byRoot.emplace(root, made.get());
    if (isNew) CFRetain(made.get());
    return entry->second;
}

CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key) {
    if (!bundle) return nullptr;
    const std::string name = platform::Utf8FromCFString(key);
    const auto found = std::find_if(bundle->info.begin(), bundle->info.end(),
                                    [&name](const auto& entry) { return entry.first == name; });
    return found == bundle->info.end() ? nullptr : found->second.get();
}

CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle) {
    return bundle ? platform::CFURLFromPath(bundle->root, true) : nullptr;
}

CFURLRef CFBundleCopyResourcesDirectoryURL(CFBundleRef bundle) {
    return bundle ? platform::CFURLFromPath(bundle->root + "/Contents/Resources", true) : nullptr;
}
