// MemoryDisk: a file system in memory behind the layer's file calls, which knows what a power failure leaves of it. For
// every file it keeps the writes, for every folder the entries since the last fsync of it, and enumerates what of those
// may have reached the disk. It promises only what every file system does:
//
//   - after fsync of a file its bytes are safe, after fsync of a folder the names in it are;
//   - a rename that replaces a name leaves it standing for the one file or the other, never for none.
//
// All else since the last fsync may have happened or not, in any order: each write wholly, in part, or as a hole of
// zeros under the new size; each name of a folder, on its own, may stand for whatever it has stood for.
// No links, modes or owners. One thread.
#pragma once

#include "FileCalls.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class MemoryDisk final : public platform::FileCalls {
public:
    // What stands on a disk: paths, "/" left out; a file's bytes, or nothing for a folder.
    using Image = std::map<std::string, std::optional<std::string>>;

    // All of it safe. Folders come before what is in them, as they do in an Image.
    explicit MemoryDisk(const Image& image = {});
    ~MemoryDisk() override;

    // Called after every call that changes something or makes it safe.
    std::function<void()> onChange;

    // Each different image that a power failure at this moment may leave.
    void EachImage(const std::function<void(const Image&)>& visit) const;
    // A file's bytes as programs see them; nothing where there is no such file.
    std::optional<std::string> BytesOf(const std::string& path) const;
    // The paths of all files, as programs see them.
    std::vector<std::string> Files() const;

    int Open(const char* path, int flags, mode_t mode) override;
    int Close(int descriptor) override;
    int Stat(int descriptor, struct stat& info) override;
    ssize_t Read(int descriptor, void* bytes, size_t count) override;
    ssize_t Write(int descriptor, const iovec* parts, int count) override;
    int Sync(int descriptor) override;
    int Rename(const char* from, const char* to) override;
    int RenameWithoutReplacing(const char* from, const char* to) override;
    int Unlink(const char* path) override;
    int MakeFolder(const char* path, mode_t mode) override;

private:
    struct Node;
    struct Place;
    struct Opened;
    class Survivors;
    using NodePointer = std::shared_ptr<Node>;

    NodePointer Find(const std::string& path) const;
    Place PlaceOf(const std::string& path) const;
    int Changed();

    const NodePointer root;
    std::map<int, Opened> opened;
    int nextDescriptor = 1000;  // no descriptor of the system's
};
