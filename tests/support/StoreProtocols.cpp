#include "support/StoreProtocols.h"

#include "support/FileCallsFilter.h"

#include <fcntl.h>
#include <string>
#include <string_view>

namespace {

class Whole : public FileCallsFilter {
    using FileCallsFilter::FileCallsFilter;
};

template <bool ofFolders>
class WithoutSync : public FileCallsFilter {
public:
    using FileCallsFilter::FileCallsFilter;
    int Sync(int descriptor) override {
        struct stat info {};
        return Stat(descriptor, info) == 0 && S_ISDIR(info.st_mode) == ofFolders ? 0
                                                                                 : FileCallsFilter::Sync(descriptor);
    }
};

class InPlace : public FileCallsFilter {
public:
    using FileCallsFilter::FileCallsFilter;
    int Open(const char* path, int flags, mode_t mode) override {
        static constexpr std::string_view ending = ".new";
        std::string name(path);
        if ((flags & O_CREAT) && name.ends_with(ending)) {
            name.resize(name.size() - ending.size());
            flags = (flags & ~O_EXCL) | O_TRUNC;
        }
        return FileCallsFilter::Open(name.c_str(), flags, mode);
    }
    int Rename(const char*, const char*) override { return 0; }
};

template <class Calls>
StoreProtocol Through(bool answersFirst = false) {
    return {[](platform::FileCalls& disk) { return std::make_unique<Calls>(disk); }, answersFirst};
}

}  // namespace

StoreProtocol RealStoreProtocol() {
    return Through<Whole>();
}

StoreProtocol WithoutSyncOfTheFile() {
    return Through<WithoutSync<false>>();
}

StoreProtocol WithoutSyncOfTheFolder() {
    return Through<WithoutSync<true>>();
}

StoreProtocol WritingInPlace() {
    return Through<InPlace>();
}

StoreProtocol AnsweringFirst() {
    return Through<Whole>(true);
}
