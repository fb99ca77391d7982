#include <Foundation/NSUserDefaults.h>

#include "UserDefaultsStore.h"

#include <bsd/LMutex.h>

namespace {

struct Standard {
    LMutex mutex;
    std::unique_ptr<NSUserDefaults> defaults L_GUARDED_BY(mutex);
};

Standard& TheStandard() {
    static Standard& instance = *new Standard;
    return instance;
}

std::unique_ptr<NSUserDefaults> MakeDefaults(const std::string& path, platform::FileCalls& calls) {
    return std::make_unique<NSUserDefaults>(std::make_unique<platform::UserDefaultsStore>(path, calls));
}

}  // namespace

NSUserDefaults& NSUserDefaults::standardUserDefaults() {
    Standard& standard = TheStandard();
    LMutexLock lock(standard.mutex);  // held while the first caller reads the file: the others need it, too
    if (!standard.defaults)
        standard.defaults = MakeDefaults(platform::MainBundleUserDefaultsPath(), platform::FileCalls::System());
    return *standard.defaults;
}

NSUserDefaults::NSUserDefaults(std::unique_ptr<platform::UserDefaultsStore> ownStore) : store(std::move(ownStore)) {}

NSUserDefaults::~NSUserDefaults() = default;

NSObject NSUserDefaults::objectForKey(const NSString& key) const {
    return store->Find(key);
}

void NSUserDefaults::setObjectForKey(NSObject value, const NSString& key) {
    store->Set(key, std::move(value));
}

void NSUserDefaults::removeObjectForKey(const NSString& key) {
    store->Remove(key);
}

bool NSUserDefaults::synchronize() {
    return store->Synchronize();
}

void platform::SetStandardUserDefaults(const std::string& path, FileCalls& calls) {
    Standard& standard = TheStandard();
    LMutexLock lock(standard.mutex);
    standard.defaults = MakeDefaults(path, calls);
}
