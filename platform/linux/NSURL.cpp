#include <Foundation/NSURL.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <sys/stat.h>

namespace {

// A bookmark's bytes; the path follows, without a terminator.
struct Bookmark {
    char magic[4] = {'b', 'm', 'r', 'k'};
    uint32_t version = 1;
    uint64_t device = 0;
    uint64_t inode = 0;
    uint64_t pathLength = 0;  // data that was cut would name a folder above
};
constexpr size_t kMaxPath = 259;

}  // namespace

NSURL::NSURL(NSString path) {
    if (path.View().empty()) return;
    text = std::move(path);
    accesses = std::make_shared<std::atomic<int>>(0);
}

NSData NSURL::bookmarkDataWithOptions(unsigned long) const {
    struct stat status {};
    if (!text || text.View().size() > kMaxPath || ::stat(text.UTF8String(), &status) != 0) return {};
    Bookmark head;
    head.device = status.st_dev;
    head.inode = status.st_ino;
    head.pathLength = text.View().size();
    std::string bytes(reinterpret_cast<const char*>(&head), sizeof head);
    bytes += text.View();
    return NSData::dataWithBytes(bytes.data(), bytes.size());
}

NSURL NSURL::URLByResolvingBookmarkData(const NSData& data, unsigned long, bool& isStale) {
    const Bookmark expected;
    Bookmark head;
    const std::string_view bytes = data.View();
    if (bytes.size() <= sizeof head || bytes.size() > sizeof head + kMaxPath) return {};
    std::memcpy(&head, bytes.data(), sizeof head);
    if (std::memcmp(head.magic, expected.magic, sizeof head.magic) != 0 || head.version != expected.version ||
        head.pathLength != bytes.size() - sizeof head)
        return {};
    NSURL url(NSString(bytes.substr(sizeof head)));  // null for what is no UTF-8
    struct stat status {};
    if (!url || ::stat(url.text.UTF8String(), &status) != 0) return {};
    isStale = status.st_dev != head.device || status.st_ino != head.inode;
    return url;
}

bool NSURL::respondsToSelector(std::string_view name) const {
    return text && (name == "startAccessingSecurityScopedResource" || name == "stopAccessingSecurityScopedResource");
}

bool NSURL::startAccessingSecurityScopedResource() const {
    if (accesses) accesses->fetch_add(1);
    return accesses != nullptr;
}

void NSURL::stopAccessingSecurityScopedResource() const {
    if (accesses && accesses->load() > 0) accesses->fetch_sub(1);
}
