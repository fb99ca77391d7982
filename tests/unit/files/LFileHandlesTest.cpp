#include "files/LFile.h"
#include "files/LLockFile.h"
#include "files/LProcessFile.h"
#include "files/LReadFileBuffered.h"
#include "support/FolderTree.h"
#include "support/TempFolder.h"

#include <bsd/LDescriptor.h>
#include <bsd/exlock.h>

#include <gtest/gtest.h>

#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tuple>
#include <vector>

namespace {

using std::string_literals::operator""s;

LDescriptor Open(const std::string& path, int flags = O_RDONLY) {
    return LDescriptor(::open(path.c_str(), flags | O_CLOEXEC, 0600));
}

std::vector<std::string> UnbufferedLines(int fd, unsigned long size) {
    std::vector<std::string> lines;
    std::vector<char> buf(size);
    LReadFileRef file{fd};
    while (file.ReadLine(buf.data(), size)) lines.emplace_back(buf.data());
    EXPECT_EQ(buf[0], '\0');
    return lines;
}

std::vector<std::string> LongLines(int fd) {
    std::vector<std::string> lines;
    LStringLongTemplate<char> line;
    LReadFileRef file{fd};
    while (file.ReadLine(line)) lines.emplace_back(line.Get(), line.Length());
    return lines;
}

std::vector<std::string> BufferedLines(int fd, unsigned long size) {
    std::vector<std::string> lines;
    std::vector<char> buf(size);
    LReadFileBuffered file(fd);
    while (file.ReadLine(buf.data(), size)) lines.emplace_back(buf.data());
    EXPECT_EQ(buf[0], '\0');
    return lines;
}

class Watch : public LProcessInterfaceVoid {
public:
    bool IsToStop() override { return progress.size() >= stopAfter; }
    void SetProgress(double fraction) override { progress.push_back(fraction); }

    std::vector<double> progress;
    size_t stopAfter = 1'000;
};

}  // namespace

TEST(LFileLines, EveryKindOfEnd) {
    const TempFolder folder;
    using Lines = std::vector<std::string>;
    const struct {
        std::string bytes;
        Lines unbuffered, buffered;
    } rows[] = {
        {"a\r\nb\n\rc", {"a", "b", "c"}, {"a", "b", "", "c"}},
        {"a\n\nb\r\rc\n", {"a", "", "b", "", "c"}, {"a", "", "b", "", "c"}},
        {"", {}, {}},
        {"\n", {""}, {""}},
        {"last", {"last"}, {"last"}},
        {"\r", {""}, {""}},
        {std::string(8'191, 'x') + "\r\ny", {std::string(8'191, 'x'), "y"}, {std::string(8'191, 'x'), "y"}},
        {std::string(8'192, 'x') + "\ny", {std::string(8'192, 'x'), "y"}, {std::string(8'192, 'x'), "y"}},
        {std::string(30'000, 'x') + "\n", {std::string(30'000, 'x')}, {std::string(30'000, 'x')}},
    };
    for (const auto& row : rows) {
        const std::string path = folder.Write("file", row.bytes);
        EXPECT_EQ(UnbufferedLines(Open(path).Get(), 40'000), row.unbuffered) << row.bytes;
        EXPECT_EQ(LongLines(Open(path).Get()), row.unbuffered) << row.bytes;
        EXPECT_EQ(BufferedLines(Open(path).Get(), 40'000), row.buffered) << row.bytes;
    }
    // The rest of a long line is dropped; NUL bytes are characters.
    const std::string path = folder.Write("file", "12345\n6\0007\n"s);
    EXPECT_EQ(UnbufferedLines(Open(path).Get(), 4), (Lines{"123", "6"}));
    EXPECT_EQ(BufferedLines(Open(path).Get(), 4), (Lines{"123", "6"}));
    EXPECT_EQ(LongLines(Open(path).Get()), (Lines{"12345", "6\0007"s}));
    // No size, no descriptor, no file.
    char untouched = 'u';
    const LDescriptor file = Open(path), noFile = Open(folder.Path());
    EXPECT_FALSE(LReadFileRef{file.Get()}.ReadLine(&untouched, 0));
    EXPECT_FALSE(LReadFileBuffered(file.Get()).ReadLine(&untouched, 0));
    EXPECT_EQ(untouched, 'u');
    EXPECT_EQ(UnbufferedLines(file.Get(), 100).size(), 2u);
    for (const int fd : {-1, noFile.Get()}) {
        EXPECT_EQ(UnbufferedLines(fd, 10), Lines());
        EXPECT_EQ(LongLines(fd), Lines());
        EXPECT_EQ(BufferedLines(fd, 10), Lines());
    }
}

TEST(LFileLines, AHundredMegabytesInOne) {
    const TempFolder folder;
    const std::string path = folder.Write("file", "");
    {
        const LDescriptor file = Open(path, O_RDWR);
        ASSERT_EQ(::ftruncate(file.Get(), 100'000'000), 0);  // NUL bytes, which are characters, too
        ASSERT_EQ(::pwrite(file.Get(), "\nend", 4, 100'000'000), 4);
    }
    EXPECT_EQ(BufferedLines(Open(path).Get(), 10), (std::vector<std::string>{"", "end"}));
}

TEST(LFileTexts, WithTheirLengthInFront) {
    const TempFolder folder;
    const auto written = [&](const std::string& text) {
        const LDescriptor file = Open(folder.Join("one"), O_RDWR | O_CREAT | O_TRUNC);
        EXPECT_EQ(LWriteFileRef{file.Get()}.WriteStringLenUTF8(text.c_str()), static_cast<int>(text.size()));
        return Content(folder.Join("one"));
    };
    const std::string x254(254, 'x'), x255(255, 'x'), x300(300, 'x');
    EXPECT_EQ(written(""), "\0"s);
    EXPECT_EQ(written("abc"), "\3abc");
    EXPECT_EQ(written(x254), "\xFE" + x254);
    EXPECT_EQ(written(x255), "\xFF\xFF\0\0\0"s + x255);
    EXPECT_EQ(written(x300), "\xFF\x2C\1\0\0"s + x300);

    const auto read = [&](const std::string& bytes, size_t count) {
        const LDescriptor file = Open(folder.Write("all", bytes));
        std::vector<std::string> texts;
        for (size_t i = 0; i < count; i++) {
            char buf[LTextBufferSize];
            LReadFileRef{file.Get()}.ReadStringLenUTF8(buf);
            texts.emplace_back(buf);
        }
        return texts;
    };
    using Texts = std::vector<std::string>;
    EXPECT_EQ(read(written(x300) + "\3abc" + written(x254), 3), (Texts{std::string(259, 'x'), "abc", x254}));
    EXPECT_EQ(read("\5ab", 2), (Texts{"ab", ""}));                    // ends too early
    EXPECT_EQ(read("\xFF\x01\0"s, 2), (Texts{"", ""}));               // amid the length
    EXPECT_EQ(read("\xFF\xFF\xFF\xFF\xFFzz", 2), (Texts{"zz", ""}));  // 4 GB that aren't there
    char buf[LTextBufferSize] = "x", small[4] = "xxx";
    LReadFileRef().ReadStringLenUTF8(buf);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(LReadFileRef().ReadStringUTF8(small, 3), -1);
    EXPECT_STREQ(small, "");
    const LDescriptor file = Open(folder.Write("all", "ab"));
    EXPECT_EQ(LReadFileRef{file.Get()}.ReadStringUTF8(small, 3), 2);
    EXPECT_STREQ(small, "ab");
}

TEST(LWriteFileRef, WritesAllOrSaysSo) {
    const TempFolder folder;
    const std::string path = folder.Join("file");
    {
        const LDescriptor file = Open(path, O_RDWR | O_CREAT);
        LWriteFileRef out{file.Get()};
        EXPECT_TRUE(out.WriteString("a"));
        EXPECT_TRUE(out.WriteStringUTF8(nullptr));
        out.WriteLineCRLF("b");
        out.WriteLineLF("c");
        EXPECT_EQ(fprintf(out, "%s-%05u", std::string(1'000, 'd').c_str(), 7u), 1'006u);
    }
    EXPECT_EQ(Content(path), "ab\r\nc\n" + std::string(1'000, 'd') + "-00007");
    LWriteFileRef none;
    EXPECT_TRUE(none.WriteString(""));
    EXPECT_FALSE(none.WriteString("a"));
    EXPECT_EQ(fprintf(none, "%u", 12u), 2u);
    EXPECT_EQ(none.WriteStringLenUTF8("a"), 0);
    const LDescriptor full = Open("/dev/full", O_WRONLY);
    EXPECT_FALSE(LWriteFileRef{full.Get()}.WriteString("a"));
}

TEST(LProcessFile, StepsOf10KBUntilDoneStoppedOrShort) {
    const TempFolder folder;
    const std::string bytes(25'000, 'b');
    const LDescriptor file = Open(folder.Write("file", bytes), O_RDWR);
    LReadFileRef in{file.Get()}, noIn;
    LWriteFileRef out{file.Get()}, noOut;
    std::string buf(30'000, ' ');
    Watch watch;
    EXPECT_EQ(LProcessFileRead(watch, in, buf.data(), 25'000), processDone);
    EXPECT_EQ(buf.substr(0, 25'000), bytes);
    EXPECT_EQ(watch.progress, (std::vector<double>{10'240.0 / 25'000, 20'480.0 / 25'000, 1.0}));
    EXPECT_EQ(LProcessFileRead(watch, in, buf.data(), 1), processFailed);  // the end of the file
    EXPECT_EQ(LProcessFileWrite(watch, out, bytes.data(), 25'000), processDone);
    watch = Watch();
    watch.stopAfter = 1;
    EXPECT_EQ(LProcessFileWrite(watch, out, bytes.data(), 25'000), processStopped);
    EXPECT_EQ(LProcessFileRead(watch, noIn, buf.data(), 0), processDone);
    watch = Watch();
    EXPECT_EQ(LProcessFileRead(watch, noIn, buf.data(), 1), processFailed);
    EXPECT_EQ(LProcessFileWrite(watch, noOut, buf.data(), 1), processFailed);
    EXPECT_EQ(Content(folder.Join("file")).size(), 60'240u);
}

// Every way of reading gives the bytes that stand at that place, whatever came before.
TEST(LReadFileBuffered, ReadsPeeksAndSeeksAgree) {
    const TempFolder folder;
    std::string bytes(50'000, ' ');
    for (size_t i = 0; i < bytes.size(); i++) bytes[i] = static_cast<char>(i * 7919 >> 3);
    const LDescriptor file = Open(folder.Write("file", bytes));
    LReadFileBuffered in(file.Get());
    std::string buf(60'000, ' ');
    EXPECT_EQ(in.GetFileSizeBytes64(), bytes.size());
    unsigned long long at = 0;
    unsigned random = 1;
    for (int i = 0; i < 3'000; i++) {
        random = random * 1'664'525 + 1'013'904'223;
        static constexpr unsigned long kSizes[] = {0, 1, 10, 256, 257, 300, 8'191, 8'192, 8'193, 20'000};
        const unsigned long wanted = kSizes[random >> 16 & 7] + (random >> 28);
        const unsigned long there =
            std::min<unsigned long long>(wanted, bytes.size() - std::min<size_t>(at, bytes.size()));
        switch (random >> 24 & 7) {
        case 0:
            in.Seek(static_cast<unsigned>(at = random >> 8 & 0x7FFF));
            break;
        case 1:
            in.Seek64(at = bytes.size() - wanted);
            break;
        case 2:
            if (at < wanted) break;
            in.SeekOffset64(-static_cast<long long>(wanted));
            at -= wanted;
            break;
        case 3:
        case 4:
            ASSERT_EQ(in.Peek(buf.data(), wanted), there);
            ASSERT_EQ(buf.compare(0, there, bytes, at, there), 0);
            break;
        default:
            ASSERT_EQ(in.Read(buf.data(), wanted), there);
            ASSERT_EQ(buf.compare(0, there, bytes, at, there), 0);
            at += there;
        }
        ASSERT_EQ(in.Tell64(), at);
    }
    in.Seek64(~0ull);
    in.SeekOffset64(-1'000'000);
    EXPECT_EQ(in.Tell64(), at);  // places that no file has
    LReadFileBuffered none;
    EXPECT_EQ(none.Read(buf.data(), 10) + none.Peek(buf.data(), 10) + none.Tell64() + none.GetFileSizeBytes64(), 0u);
}

TEST(LReadFileBuffered, FilesOfMoreThan4GiB) {
    const TempFolder folder;
    constexpr unsigned long long kFar = 5ull << 30;
    const LDescriptor file = Open(folder.Write("file", ""), O_RDWR);
    ASSERT_EQ(::pwrite(file.Get(), "far\nend", 7, kFar), 7);
    LReadFileBuffered in(file.Get());
    char line[10];
    in.Seek64(kFar);
    EXPECT_TRUE(in.ReadLine(line, sizeof line));
    EXPECT_STREQ(line, "far");
    EXPECT_EQ(in.Tell64(), kFar + 4);
    EXPECT_EQ(in.GetFileSizeBytes64(), kFar + 7);
    in.SeekOffset64(-static_cast<long long>(kFar));
    EXPECT_EQ(in.Tell64(), 4u);
}

TEST(LLockFile, KeepsOthersOutUntilItsHolderIsGone) {
    const TempFolder folder;
    const std::string movie = folder.Join("a.mov"), lockPath = folder.Join("a.lck");
    LLockFile first, second;
    folder.Write("a.lck", "left by a crash");
    EXPECT_TRUE(first.Lock(movie.c_str()));
    EXPECT_EQ(Content(lockPath), "");
    folder.Write("a.lck", "the holder's");
    EXPECT_FALSE(second.Lock(movie.c_str()));
    EXPECT_EQ(Content(lockPath), "the holder's");
    EXPECT_TRUE(first.Lock(folder.Join("b").c_str()));
    EXPECT_FALSE(std::filesystem::exists(lockPath));
    EXPECT_TRUE(second.Lock(movie.c_str()));
    second.Release();
    EXPECT_EQ(Tree(folder.Path()), std::vector<std::string>{"b.lck="});
    // A killed holder's lock is free at once.
    int ready[2];
    ASSERT_EQ(::pipe2(ready, O_CLOEXEC), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        const int held = ::open_exlock(lockPath.c_str(), O_RDWR | O_CREAT, 0777);
        const ssize_t told = ::write(ready[1], held >= 0 ? "1" : "0", 1);
        for (;;) ::pause();
        ::_exit(told == 1 ? 0 : 1);
    }
    char said = 0;
    ASSERT_EQ(::read(ready[0], &said, 1), 1);
    EXPECT_EQ(said, '1');
    EXPECT_FALSE(second.Lock(movie.c_str()));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    EXPECT_TRUE(second.Lock(movie.c_str()));
    // What can't be made blocks nobody, and nothing is lost behind links or under cut names.
    const std::string precious = folder.Write("precious", "1");
    std::filesystem::create_symlink(precious, folder.Join("link.lck"));
    for (const std::string& path : {folder.Join("link.mov"), folder.Join("none/x"), std::string(300, 'x')}) {
        LLockFile lock;
        EXPECT_TRUE(lock.Lock(path.c_str())) << path;
        EXPECT_FALSE(lock.IsHeld()) << path;
    }
    EXPECT_EQ(Content(precious), "1");
    for (const int fd : ready) ::close(fd);
}

TEST(LFileLocks, AreAskedAboutAndWaitedForABoundedTime) {
    const TempFolder folder;
    const std::string path = folder.Write("file", "");
    EXPECT_FALSE(LFile::TestFileShareWriteBlocked(path.c_str()));
    const LDescriptor holder = Open(path), other = Open(path);
    ASSERT_EQ(::flock(holder.Get(), LOCK_SH), 0);
    EXPECT_TRUE(LFile::TestFileShareWriteBlocked(path.c_str()));
    EXPECT_TRUE(LFile::TestFileShareReadBlocked(path.c_str()));
    EXPECT_FALSE(LFile::TestFileShareWriteBlocked(folder.Join("none").c_str()));
    EXPECT_TRUE(LFile::IsErrorFileNotFound());
    EXPECT_FALSE(LFile::IsErrorSharingViolation() || LFile::IsErrorAlreadyExists() || LFile::IsErrorPermissionDenied());
    EXPECT_FALSE(LFile::TestFileShareWriteBlocked(nullptr));
    EXPECT_FALSE(LFile::TestFileLocked(path.c_str()));
    EXPECT_FALSE(LFile::TestFileLocked(nullptr));
    flocktimed(other.Get(), LOCK_EX | LOCK_NB, 10);  // gives up
    EXPECT_EQ(::flock(holder.Get(), LOCK_EX | LOCK_NB), 0);
    ::flock(holder.Get(), LOCK_UN);
    flocktimed(other.Get(), LOCK_EX | LOCK_NB, 0);
    EXPECT_NE(::flock(holder.Get(), LOCK_EX | LOCK_NB), 0);
}
