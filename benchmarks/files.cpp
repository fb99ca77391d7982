// Copy jobs beside a bare loop and cp, folder walks beside readdir and find, wildcards beside fnmatch. Everything is
// warm in the page cache.
#include "Bench.h"

#include "files/LFile.h"
#include "files/LFolderIterator.h"
#include "files/LProcessCopy.h"

#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <fstream>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

using bench::IsQuick;
using bench::Samples;

constexpr size_t kChunk = 32'768;

[[noreturn]] void Die(const char* what) {
    perror(what);
    exit(1);
}

void Run(std::vector<const char*> words) {
    words.push_back(nullptr);
    pid_t child;
    int status = 0;
    if (posix_spawnp(&child, words[0], nullptr, nullptr, const_cast<char**>(words.data()), environ) != 0 ||
        waitpid(child, &status, 0) < 0 || status != 0)
        Die(words[0]);
}

template <class F>
void AddRate(Samples& samples, double items, F f) {
    const uint64_t start = bench::NowNs();
    f();
    samples.Add(items * 1e9 / static_cast<double>(bench::NowNs() - start));
}

// --- copying ---------------------------------------------------------------------------------------------------------

void CopyBare(const std::string& from, const std::string& to) {
    static char buffer[kChunk];
    const int in = open(from.c_str(), O_RDONLY | O_CLOEXEC);
    const int out = open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (in < 0 || out < 0) Die("open");
    for (ssize_t got; (got = read(in, buffer, sizeof buffer)) > 0;)
        if (write(out, buffer, static_cast<size_t>(got)) != got) Die("write");
    close(in);
    close(out);
}

template <class Job>
void CopyByJob(const std::string& from, const std::string& to) {
    LProcessInterfaceVoid process;
    if (Process(process, Job{from.c_str(), to.c_str()}) != processDone) Die("the job failed");
}

void CopyLargeFile(const std::string& folder) {
    const double megabytes = IsQuick() ? 64 : 512;
    const std::string from = folder + "/large", to = folder + "/copy";
    {
        std::string block(1'000'000, ' ');
        for (size_t i = 0; i < block.size(); i++) block[i] = static_cast<char>(i * 31 + i / 251);
        std::ofstream file(from, std::ios::binary);
        for (int i = 0; i < static_cast<int>(megabytes); i++)
            file.write(block.data(), static_cast<std::streamsize>(block.size()));
        if (!file.flush()) Die(from.c_str());
    }
    sync();
    // In turn: who comes first meets memory that wasn't used before, who comes later the disk's business.
    Samples bare, job;
    for (int i = 0; i < (IsQuick() ? 3 : 8); i++) {
        const auto loop = [&] { AddRate(bare, megabytes, [&] { CopyBare(from, to); }); };
        const auto process = [&] { AddRate(job, megabytes, [&] { CopyByJob<LProcessCopyFile>(from, to); }); };
        i % 2 ? loop() : process();
        unlink(to.c_str());
        i % 2 ? process() : loop();
        unlink(to.c_str());
    }
    unlink(from.c_str());
    bare.Print("copy.large.loop", "MB/s");
    job.Print("copy.large", "MB/s", "copy.large.loop");
}

int MakeTree(const std::string& root, int folders, int files, size_t size) {
    const std::string data(size, 'x');
    mkdir(root.c_str(), 0755);
    for (int i = 0; i < folders; i++) {
        const std::string folder = root + "/folder" + std::to_string(i);
        mkdir(folder.c_str(), 0755);
        for (int j = 0; j < files; j++) {
            std::ofstream file(folder + "/take " + std::to_string(j) + (j % 5 ? ".wav" : ".txt"), std::ios::binary);
            file.write(data.data(), static_cast<std::streamsize>(data.size() * static_cast<size_t>(1 + j % 8) / 8));
        }
    }
    return folders * files;
}

// Nothing is removed in between: ext4 is slow to make files while it avoids the inodes of files removed lately.
void CopySmallFiles(const std::string& folder) {
    const std::string from = folder + "/small";
    const int count = MakeTree(from, IsQuick() ? 10 : 50, 100, 8'192);
    Samples command, job;
    for (int i = 0; i < (IsQuick() ? 2 : 6); i++) {
        const std::string to = folder + "/small." + std::to_string(i);
        const auto cp = [&] { AddRate(command, count, [&] { Run({"cp", "-r", from.c_str(), (to + "a").c_str()}); }); };
        const auto process = [&] { AddRate(job, count, [&] { CopyByJob<LProcessCopyFolder>(from, to + "b"); }); };
        i % 2 ? cp() : process();
        i % 2 ? process() : cp();
    }
    command.Print("copy.small.cp", "files/s");
    job.Print("copy.small", "files/s", "copy.small.cp");
}

// --- walking ---------------------------------------------------------------------------------------------------------

size_t WalkBare(const std::string& root) {
    size_t found = 0;
    DIR* const top = opendir(root.c_str());
    while (const dirent* folder = readdir(top)) {
        if (folder->d_name[0] == '.') continue;
        DIR* const sub = opendir((root + "/" + folder->d_name).c_str());
        while (const dirent* entry = readdir(sub)) found += !fnmatch("*.txt", entry->d_name, 0);
        closedir(sub);
    }
    closedir(top);
    return found;
}

size_t WalkByIterator(const std::string& root) {
    size_t found = 0;
    char path[LTextBufferSize];
    LFile::FolderIterator folders, files;
    for (bool more = folders.Open(root.c_str(), "*"); more; more = folders.Next()) {
        folders.GetCurrentPath(path);
        for (bool one = files.Open(path, "*.txt"); one; one = files.Next()) found++;
    }
    return found;
}

void WalkFolders(const std::string& folder) {
    const std::string root = folder + "/wide";
    const int count = MakeTree(root, IsQuick() ? 20 : 100, 500, 0);
    Samples bare, find, walk;
    for (int i = 0; i < 15; i++) {
        size_t byReaddir = 0, byIterator = 0;
        AddRate(bare, count, [&] { byReaddir = WalkBare(root); });
        AddRate(find, count, [&] { Run({"find", root.c_str(), "-name", "*.txt", "-false"}); });
        AddRate(walk, count, [&] { byIterator = WalkByIterator(root); });
        if (byReaddir != byIterator || byReaddir == 0) Die("not the same files");
    }
    bare.Print("walk.readdir", "files/s");
    find.Print("walk.find", "files/s");
    walk.Print("walk", "files/s", "walk.readdir");
    walk.Print("walk_beside_find", "files/s", "walk.find");
}

// --- wildcards -------------------------------------------------------------------------------------------------------

void MatchWildcards() {
    const std::string bad(80, 'a'), veryBad(40, 'a');
    const struct {
        const char *name, *pattern, *text;
        int count;
    } rows[] = {{"plain", "take*.wav", "take 0123 evening.wav", 1'000},
                {"bad", "a*a*a*b", bad.c_str(), 10},
                {"very_bad", "a*a*a*a*a*b", veryBad.c_str(), 1}};
    for (const auto& row : rows) {
        const std::string name = std::string("wildcard.") + row.name;
        // Every other length, so that no answer is known before.
        const auto each = [&](auto match) {
            for (int i = 0; i < row.count; i++) bench::Keep(static_cast<size_t>(match(row.pattern, row.text + i % 2)));
        };
        bench::Timed(name + ".fnmatch", "ns", 30, row.count,
                     [&] { each([](const char* p, const char* t) { return fnmatch(p, t, 0) == 0; }); });
        bench::Timed(
            name, "ns", 100, row.count, [&] { each(LFile::IsMatch<char>); }, name + ".fnmatch");
    }
}

}  // namespace

int main() {
    const bench::Folder folder;
    MatchWildcards();
    WalkFolders(folder.path);
    CopySmallFiles(folder.path);
    CopyLargeFile(folder.path);  // last: the disk may be busy with it for a while
}
