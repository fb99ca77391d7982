#include "support/MemoryDisk.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <unistd.h>
#include <utility>

struct MemoryDisk::Node {
    struct Change {
        size_t offset;
        std::string bytes;
        bool isTruncation;
    };

    bool isFolder = false;
    // Of a file: as programs see it, as it was when last synced, and what has been done since.
    std::string bytes;
    std::string safe;
    std::vector<Change> changes;
    // Of a folder: what each name has stood for since the last sync, first to last. Null: for nothing.
    std::map<std::string, std::vector<NodePointer>> names;

    NodePointer Child(const std::string& name) const {
        const auto found = names.find(name);
        return found == names.end() ? nullptr : found->second.back();
    }
    void SetChild(const std::string& name, const NodePointer& child) {
        auto& history = names[name];
        if (history.empty()) history.emplace_back();
        history.push_back(child);
    }
    void Sync() {
        safe = bytes;
        changes.clear();
        for (auto& [name, history] : names) history = {history.back()};
        std::erase_if(names, [](const auto& entry) { return !entry.second.back(); });
    }
};

struct MemoryDisk::Place {
    NodePointer folder;  // null with errno: there is none
    std::string name;
};

struct MemoryDisk::Opened {
    NodePointer node;
    size_t offset = 0;
};

namespace {

constexpr size_t kSector = 512;

std::string PathOf(std::string folder, const std::string& name) {
    return folder.append("/").append(name);
}

// What may be left of `before` after a write: the whole of it, a begin of it (under the old size or the new one), an
// end of it, or its size alone.
void AddOutcomes(const std::string& before, size_t offset, const std::string& written,
                 std::set<std::string>& outcomes) {
    const auto part = [&](size_t from, size_t to, size_t end) {
        std::string after = before;
        after.resize(std::max(before.size(), offset + end), '\0');
        after.replace(offset + from, to - from, written, from, to - from);
        outcomes.insert(std::move(after));
    };
    const size_t size = written.size();
    std::set<size_t> cuts{0, size};
    if (size > 0) cuts.insert({1, size - 1});
    for (size_t cut = kSector; cut < size; cut += kSector) cuts.insert(cut);
    for (const size_t cut : cuts) {
        part(0, cut, cut);
        part(0, cut, size);
        part(cut, size, size);
    }
}

}  // namespace

// One choice for each name and each file whose state is open, and the image that they make.
class MemoryDisk::Survivors {
public:
    explicit Survivors(const Node& root) { Collect(root); }

    // The next choice; false when all have been there.
    bool Next() {
        for (auto& [place, choice] : choices) {
            if (++choice.now < choice.count) return true;
            choice.now = 0;
        }
        return false;
    }
    Image Current(const Node& tree) const {
        Image image;
        Put(tree, "", image);
        return image;
    }

private:
    struct Choice {
        size_t count;
        size_t now = 0;
    };

    void Collect(const Node& node) {
        if (!seen.insert(&node).second) return;
        if (!node.isFolder) {
            auto& outcomes = contents[&node];
            outcomes = Outcomes(node);
            choices[{&node, ""}] = {outcomes.size()};
        }
        for (const auto& [name, history] : node.names) {
            choices[{&node, name}] = {history.size()};
            for (const NodePointer& child : history)
                if (child) Collect(*child);
        }
    }

    static std::vector<std::string> Outcomes(const Node& file) {
        std::set<std::string> outcomes{file.safe};
        for (const auto& [offset, bytes, isTruncation] : file.changes) {
            std::set<std::string> more = outcomes;
            for (const std::string& before : outcomes) {
                if (isTruncation)
                    more.emplace();
                else
                    AddOutcomes(before, offset, bytes, more);
            }
            outcomes = std::move(more);
        }
        return {outcomes.begin(), outcomes.end()};
    }

    void Put(const Node& folder, const std::string& path, Image& image) const {
        for (const auto& [name, history] : folder.names) {
            const NodePointer& child = history[choices.at({&folder, name}).now];
            if (!child) continue;
            const std::string childPath = PathOf(path, name);
            if (!child->isFolder) {
                image[childPath] = contents.at(child.get())[choices.at({child.get(), ""}).now];
                continue;
            }
            image[childPath] = std::nullopt;
            Put(*child, childPath, image);
        }
    }

    std::set<const Node*> seen;
    std::map<const Node*, std::vector<std::string>> contents;
    std::map<std::pair<const Node*, std::string>, Choice> choices;
};

MemoryDisk::MemoryDisk(const Image& image) : root(std::make_shared<Node>()) {
    root->isFolder = true;
    for (const auto& [path, bytes] : image) {
        const auto node = std::make_shared<Node>();
        node->isFolder = !bytes;
        node->bytes = bytes.value_or("");
        const auto [folder, name] = PlaceOf(path);
        folder->SetChild(name, node);
        node->Sync();
        folder->Sync();
    }
}

MemoryDisk::~MemoryDisk() = default;

void MemoryDisk::EachImage(const std::function<void(const Image&)>& visit) const {
    std::set<Image> seen;
    Survivors survivors(*root);
    do {
        const auto [image, isNew] = seen.insert(survivors.Current(*root));
        if (isNew) visit(*image);
    } while (survivors.Next());
}

std::optional<std::string> MemoryDisk::BytesOf(const std::string& path) const {
    const NodePointer node = Find(path);
    return node && !node->isFolder ? std::optional(node->bytes) : std::nullopt;
}

std::vector<std::string> MemoryDisk::Files() const {
    std::vector<std::string> files;
    const std::function<void(const Node&, const std::string&)> walk = [&](const Node& folder, const std::string& path) {
        for (const auto& [name, history] : folder.names) {
            const std::string childPath = PathOf(path, name);
            if (const NodePointer& child = history.back(); child && child->isFolder)
                walk(*child, childPath);
            else if (child)
                files.push_back(childPath);
        }
    };
    walk(*root, "");
    return files;
}

MemoryDisk::Place MemoryDisk::PlaceOf(const std::string& path) const {
    const size_t slash = path.rfind('/');
    const NodePointer folder = Find(path.substr(0, slash));
    if (folder && !folder->isFolder) errno = ENOTDIR;
    if (!folder || !folder->isFolder) return {};
    return {folder, path.substr(slash + 1)};
}

MemoryDisk::NodePointer MemoryDisk::Find(const std::string& path) const {
    NodePointer node = root;
    for (size_t at = 0; at < path.size();) {
        const size_t begin = at + 1;
        at = std::min(path.find('/', begin), path.size());
        if (begin == at) continue;
        if (!node->isFolder) {
            errno = ENOTDIR;
            return nullptr;
        }
        node = node->Child(path.substr(begin, at - begin));
        if (!node) {
            errno = ENOENT;
            return nullptr;
        }
    }
    return node;
}

int MemoryDisk::Changed() {
    if (onChange) onChange();
    return 0;
}

int MemoryDisk::Open(const char* path, int flags, mode_t) {
    NodePointer node = Find(path);
    if (node && (flags & O_CREAT) && (flags & O_EXCL)) return errno = EEXIST, -1;
    if (node && (flags & O_DIRECTORY) && !node->isFolder) return errno = ENOTDIR, -1;
    if (node && node->isFolder && (flags & O_ACCMODE) != O_RDONLY) return errno = EISDIR, -1;
    if (!node && !(errno == ENOENT && (flags & O_CREAT))) return -1;
    const bool isNew = !node, truncates = !isNew && (flags & O_TRUNC);
    if (isNew) {
        const auto [folder, name] = PlaceOf(path);
        if (!folder) return -1;
        node = std::make_shared<Node>();
        folder->SetChild(name, node);
    }
    if (truncates) {
        node->bytes.clear();
        node->changes.push_back({0, "", true});
    }
    const int descriptor = nextDescriptor++;
    opened[descriptor] = {node};
    if (isNew || truncates) Changed();
    return descriptor;
}

int MemoryDisk::Close(int descriptor) {
    if (opened.erase(descriptor) > 0) return 0;
    errno = EBADF;
    return -1;
}

int MemoryDisk::Stat(int descriptor, struct stat& info) {
    const Node& node = *opened.at(descriptor).node;
    info = {};
    info.st_mode = node.isFolder ? S_IFDIR | 0700 : S_IFREG | 0600;
    info.st_uid = ::geteuid();
    info.st_size = static_cast<off_t>(node.bytes.size());
    return 0;
}

ssize_t MemoryDisk::Read(int descriptor, void* bytes, size_t count) {
    auto& [node, offset] = opened.at(descriptor);
    const std::string part = node->bytes.substr(std::min(offset, node->bytes.size()), count);
    std::memcpy(bytes, part.data(), part.size());
    offset += part.size();
    return static_cast<ssize_t>(part.size());
}

ssize_t MemoryDisk::Write(int descriptor, const iovec* parts, int count) {
    std::string written;
    for (int i = 0; i < count; i++) written.append(static_cast<const char*>(parts[i].iov_base), parts[i].iov_len);
    auto& [node, offset] = opened.at(descriptor);
    node->bytes.resize(std::max(node->bytes.size(), offset + written.size()), '\0');
    node->bytes.replace(offset, written.size(), written);
    node->changes.push_back({offset, written, false});
    offset += written.size();
    Changed();
    return static_cast<ssize_t>(written.size());
}

int MemoryDisk::Sync(int descriptor) {
    opened.at(descriptor).node->Sync();
    return Changed();
}

int MemoryDisk::Rename(const char* from, const char* to) {
    const NodePointer node = Find(from);
    const Place source = PlaceOf(from), target = PlaceOf(to);
    if (!node || !target.folder) return -1;
    target.folder->SetChild(target.name, node);
    source.folder->SetChild(source.name, nullptr);
    return Changed();
}

int MemoryDisk::RenameWithoutReplacing(const char* from, const char* to) {
    if (Find(from) && Find(to)) return errno = EEXIST, -1;
    return Rename(from, to);
}

int MemoryDisk::Unlink(const char* path) {
    if (!Find(path)) return -1;
    const auto [folder, name] = PlaceOf(path);
    folder->SetChild(name, nullptr);
    return Changed();
}

int MemoryDisk::MakeFolder(const char* path, mode_t) {
    if (Find(path)) return errno = EEXIST, -1;
    const auto [folder, name] = PlaceOf(path);
    if (!folder) return -1;
    const auto node = std::make_shared<Node>();
    node->isFolder = true;
    folder->SetChild(name, node);
    return Changed();
}
