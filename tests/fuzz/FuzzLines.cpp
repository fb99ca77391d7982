// Readers of files: lines by the three readers beside plain splits, texts with their length in front, and the buffered
// reader's reads, looks ahead and seeks in any order. The input is a choice, a size, and the file's bytes; or, for the
// last, commands in front of them.
#include "Fuzz.h"

#include "files/LReadFileBuffered.h"
#include "files/LReadFileRef.h"
#include "files/LWriteFileRef.h"

#include <sys/mman.h>
#include <vector>

namespace {

// One file in memory, used again for each input.
int FileOf(std::string_view bytes) {
    static const int file = memfd_create("fuzz", MFD_CLOEXEC);
    Require(ftruncate(file, 0) == 0 &&
                pwrite(file, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
            "the file can be written");
    lseek(file, 0, SEEK_SET);
    return file;
}

std::vector<std::string> Split(std::string_view bytes, std::initializer_list<std::string_view> pairs) {
    std::vector<std::string> lines;
    while (!bytes.empty()) {
        const size_t end = std::min(bytes.find_first_of("\r\n"), bytes.size());
        lines.emplace_back(bytes.substr(0, end));
        bytes.remove_prefix(end);
        size_t taken = bytes.empty() ? 0 : 1;
        for (const std::string_view pair : pairs)
            if (bytes.starts_with(pair)) taken = 2;
        bytes.remove_prefix(taken);
    }
    return lines;
}

template <class ReadLine>
void CheckLines(const std::vector<std::string>& expected, size_t size, ReadLine readLine) {
    for (const std::string& line : expected) {
        const GuardedBuffer<char> buffer(size);
        Require(readLine(buffer.Get()), "a line is there");
        Require(buffer.Text() == std::string(line.substr(0, size - 1).c_str()), "a line is cut only");
    }
    const GuardedBuffer<char> buffer(size);
    Require(!readLine(buffer.Get()) && buffer.Text().empty(), "no line is there");
}

void CheckAllLines(std::string_view bytes, size_t size) {
    const auto both = Split(bytes, {"\r\n", "\n\r"}), windows = Split(bytes, {"\r\n"});
    LReadFileRef file{FileOf(bytes)};
    CheckLines(both, size, [&](char* buf) { return file.ReadLine(buf, size); });
    LReadFileBuffered buffered(FileOf(bytes));
    CheckLines(windows, size, [&](char* buf) { return buffered.ReadLine(buf, size); });
    LStringLongTemplate<char> text;
    FileOf(bytes);
    for (const std::string& line : both)
        Require(file.ReadLine(text) && line == std::string(text.Get(), text.Length()), "a long line is whole");
    Require(!file.ReadLine(text) && text.Length() == 0, "no long line is there");
}

void CheckTexts(std::string_view bytes) {
    LReadFileRef file{FileOf(bytes)};
    size_t at = 0;
    while (at < bytes.size()) {
        const std::string_view rest = bytes.substr(at);
        size_t head = 1, length = static_cast<unsigned char>(rest[0]);
        if (length == 0xFF) {
            uint32_t number = 0;
            if (rest.size() >= 5) std::memcpy(&number, rest.data() + 1, sizeof number);
            head = std::min<size_t>(5, rest.size());
            length = number;
        }
        GuardedBuffer<char> buffer(LTextBufferSize);
        file.ReadStringLenUTF8(buffer.Get());
        const std::string expected(rest.substr(head, std::min<size_t>(length, LTextBufferSize - 1)));
        Require(buffer.Text() == expected.c_str(), "a text is read");
        at += head + length;
        Require(lseek(file.descriptor, 0, SEEK_CUR) == static_cast<off_t>(at), "the next one begins behind it");
    }
    const std::string written(bytes.substr(0, bytes.find('\0')));
    const int target = FileOf("");
    LWriteFileRef{target}.WriteStringLenUTF8(written.c_str());
    lseek(target, 0, SEEK_SET);
    GuardedBuffer<char> buffer(LTextBufferSize);
    LReadFileRef{target}.ReadStringLenUTF8(buffer.Get());
    Require(buffer.Text() == written.substr(0, LTextBufferSize - 1), "what is written is read");
}

// What the reader gives is what stands in the file at that place.
void CheckBuffered(FuzzInput commands, std::string_view bytes) {
    LReadFileBuffered file(FileOf(bytes));
    size_t at = 0;
    while (!commands.IsEmpty()) {
        const uint8_t command = commands.Byte();
        const size_t wanted = commands.Number<uint16_t>() % 10'000;
        const size_t there = std::min(wanted, bytes.size() - std::min(at, bytes.size()));
        const GuardedBuffer<char> buffer(wanted + 1);
        if (command % 4 == 0) {
            file.Seek64(at = wanted);
        } else if (command % 4 == 1) {
            const size_t back = std::min(wanted, at);
            file.SeekOffset64(-static_cast<long long>(back));
            at -= back;
        } else {
            const bool isPeek = command % 4 == 2;
            const unsigned long got = isPeek ? file.Peek(buffer.Get(), wanted) : file.Read(buffer.Get(), wanted);
            Require(got == there, "all that is there comes");
            Require(bytes.substr(std::min(at, bytes.size()), got) == std::string_view(buffer.Get(), got),
                    "as it stands there");
            buffer.Get()[wanted] = '\0';
            buffer.Text();
            if (!isPeek) at += got;
        }
        Require(file.Tell64() == at, "the place is known");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const uint8_t choice = input.Byte();
    const size_t number = input.Byte();
    if (choice % 3 == 0) {
        CheckAllLines(input.Rest(), number + 2);
    } else if (choice % 3 == 1) {
        CheckTexts(input.Rest());
    } else {
        const std::string_view commands = input.Bytes(number);
        std::string bytes(input.Rest());
        // Files that go over the buffer's size, without inputs that do.
        while (!bytes.empty() && bytes.size() < 20'000) bytes += bytes;
        CheckBuffered({reinterpret_cast<const uint8_t*>(commands.data()), commands.size()}, bytes);
    }
    return 0;
}
