// The disk that power failures are tried on must answer as a real one does: what it allows the store, the system
// allows.
#include "support/MemoryDisk.h"
#include "support/TempFolder.h"

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <sys/stat.h>

namespace {

using platform::FileCalls;

// A call's result and, of one that failed, why.
std::string Told(long result) {
    return result < 0 ? "error " + std::to_string(errno) : "done";
}

std::string OpenAndClose(FileCalls& calls, const std::string& path, int flags) {
    const int descriptor = calls.Open(path.c_str(), flags, 0600);
    std::string told = Told(descriptor);
    if (descriptor >= 0) calls.Close(descriptor);
    return told;
}

std::string WriteAll(FileCalls& calls, const std::string& path, int flags, const std::string& bytes) {
    const int descriptor = calls.Open(path.c_str(), O_WRONLY | flags, 0600);
    if (descriptor < 0) return Told(descriptor);
    const size_t half = bytes.size() / 2;
    char* const text = const_cast<char*>(bytes.data());
    const iovec parts[] = {{text, half}, {text + half, bytes.size() - half}};
    std::string told = Told(calls.Write(descriptor, parts, 2));
    told += Told(calls.Sync(descriptor));
    told += Told(calls.Close(descriptor));
    return told;
}

std::string ReadAll(FileCalls& calls, const std::string& path) {
    const int descriptor = calls.Open(path.c_str(), O_RDONLY, 0);
    if (descriptor < 0) return Told(descriptor);
    struct stat info {};
    calls.Stat(descriptor, info);
    std::string told = S_ISREG(info.st_mode) ? std::to_string(info.st_size) + " " + std::to_string(info.st_uid) : "";
    char bytes[4];
    for (ssize_t count; (count = calls.Read(descriptor, bytes, sizeof bytes)) > 0;)
        told += ":" + std::string(bytes, static_cast<size_t>(count));
    calls.Close(descriptor);
    return told;
}

}  // namespace

TEST(MemoryDisk, AnswersAsTheSystemDoes) {
    const TempFolder folder;
    const MemoryDisk::Image begin{{"/top", std::nullopt}};
    MemoryDisk disk(begin);
    using Step = std::function<std::string(FileCalls&, const std::string& top)>;
    const Step steps[] = {
        [](auto& calls, auto& top) { return Told(calls.MakeFolder((top + "/a/b").c_str(), 0700)); },
        [](auto& calls, auto& top) { return Told(calls.MakeFolder((top + "/a").c_str(), 0700)); },
        [](auto& calls, auto& top) { return Told(calls.MakeFolder((top + "/a").c_str(), 0700)); },
        [](auto& calls, auto& top) { return OpenAndClose(calls, top + "/a", O_RDONLY | O_DIRECTORY); },
        [](auto& calls, auto& top) { return OpenAndClose(calls, top + "/a", O_WRONLY); },
        [](auto& calls, auto& top) { return OpenAndClose(calls, top + "/none", O_RDONLY); },
        [](auto& calls, auto& top) { return OpenAndClose(calls, top + "/none/x", O_WRONLY | O_CREAT); },
        [](auto& calls, auto& top) { return WriteAll(calls, top + "/a/f", O_CREAT | O_EXCL, "first bytes"); },
        [](auto& calls, auto& top) { return WriteAll(calls, top + "/a/f", O_CREAT | O_EXCL, "x"); },
        [](auto& calls, auto& top) { return OpenAndClose(calls, top + "/a/f", O_RDONLY | O_DIRECTORY); },
        [](auto& calls, auto& top) { return OpenAndClose(calls, top + "/a/f/x", O_RDONLY); },
        [](auto& calls, auto& top) { return Told(calls.MakeFolder((top + "/a/f/x").c_str(), 0700)); },
        [](auto& calls, auto& top) { return ReadAll(calls, top + "/a/f"); },
        [](auto& calls, auto& top) { return WriteAll(calls, top + "/a/f", 0, "FIR"); },
        [](auto& calls, auto& top) { return ReadAll(calls, top + "/a/f"); },
        [](auto& calls, auto& top) { return WriteAll(calls, top + "/a/g", O_CREAT, "second"); },
        [](auto& calls, auto& top) {
            return Told(calls.RenameWithoutReplacing((top + "/a/g").c_str(), (top + "/a/f").c_str()));
        },
        [](auto& calls, auto& top) { return Told(calls.Rename((top + "/a/none").c_str(), (top + "/a/f").c_str())); },
        [](auto& calls, auto& top) { return Told(calls.Rename((top + "/a/g").c_str(), (top + "/none/f").c_str())); },
        [](auto& calls, auto& top) { return Told(calls.Rename((top + "/a/g").c_str(), (top + "/a/f").c_str())); },
        [](auto& calls, auto& top) { return ReadAll(calls, top + "/a/g"); },
        [](auto& calls, auto& top) { return ReadAll(calls, top + "/a/f"); },
        [](auto& calls, auto& top) { return WriteAll(calls, top + "/a/f", O_TRUNC, "3"); },
        [](auto& calls, auto& top) { return ReadAll(calls, top + "/a/f"); },
        [](auto& calls, auto& top) { return Told(calls.Unlink((top + "/a/f").c_str())); },
        [](auto& calls, auto& top) { return Told(calls.Unlink((top + "/a/f").c_str())); },
        [](auto& calls, auto& top) { return ReadAll(calls, top + "/a/f"); },
    };
    int number = 0;
    for (const Step& step : steps) {
        const std::string expected = step(FileCalls::System(), folder.Path());
        EXPECT_EQ(step(disk, "/top"), expected) << "step " << number;
        number++;
    }
}

// What may be there after a power failure, by the promises that are kept.
TEST(MemoryDisk, LosesWhatIsNotSafe) {
    const MemoryDisk::Image begin{{"/old", "1"}};
    MemoryDisk disk(begin);
    const auto images = [&] {
        std::set<MemoryDisk::Image> all;
        disk.EachImage([&](const MemoryDisk::Image& image) { all.insert(image); });
        return all;
    };
    using Images = std::set<MemoryDisk::Image>;
    const int file = disk.Open("/new", O_WRONLY | O_CREAT | O_EXCL, 0600);
    char written[] = "23";
    const iovec part{written, 2};
    disk.Write(file, &part, 1);
    const std::string nothing(1, '\0');
    const Images unsafe{{{"/old", "1"}},
                        {{"/old", "1"}, {"/new", ""}},
                        {{"/old", "1"}, {"/new", "2"}},
                        {{"/old", "1"}, {"/new", "2" + nothing}},
                        {{"/old", "1"}, {"/new", nothing + "3"}},
                        {{"/old", "1"}, {"/new", nothing + nothing}},
                        {{"/old", "1"}, {"/new", "23"}}};
    EXPECT_EQ(images(), unsafe);
    disk.Sync(file);
    EXPECT_EQ(images(), (Images{{{"/old", "1"}}, {{"/old", "1"}, {"/new", "23"}}})) << "its name isn't safe";
    disk.Rename("/new", "/old");
    EXPECT_EQ(
        images(),
        (Images{{{"/old", "1"}}, {{"/old", "1"}, {"/new", "23"}}, {{"/old", "23"}}, {{"/old", "23"}, {"/new", "23"}}}));
    disk.Sync(disk.Open("/", O_RDONLY | O_DIRECTORY, 0));
    EXPECT_EQ(images(), (Images{{{"/old", "23"}}}));
}
