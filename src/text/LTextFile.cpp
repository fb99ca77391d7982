#include "text/LTextFile.h"

#include "files/LFile.h"
#include "files/LFileTransfer.h"
#include "files/LLockFile.h"
#include "text/LAllocate.h"
#include "text/LCharsetsUnicode.h"

#include <bsd/LDescriptor.h>
#include <bsd/fileflags.h>

#include <cstring>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>

namespace {

constexpr std::string_view kEncodingName = "com.apple.TextEncoding";
constexpr std::string_view kEncodingUTF8 = "utf-8;134217984";

constexpr std::string_view kMarkLittleEndian = "\xFF\xFE", kMarkBigEndian = "\xFE\xFF", kMarkUTF8 = "\xEF\xBB\xBF";
constexpr unsigned short kMark = 0xFEFF;

// Not waiting for the other end, should the path be a pipe's.
LDescriptor Open(const char* path, int flags, int lock, unsigned int lockMs) {
    LDescriptor file(path ? ::open(path, flags | O_NONBLOCK | O_CLOEXEC, 0666) : -1);
    if (file) flocktimed(file.Get(), lock | LOCK_NB, lockMs);
    return file;
}

LDescriptor OpenToRead(const char* path) {
    return Open(path, O_RDONLY, LOCK_SH, LReadLockMs);
}

LDescriptor OpenToWrite(const char* path) {
    return Open(path, O_RDWR | O_CREAT, LOCK_EX, LWriteLockMs);
}

// What a text can hold with its terminator; 0 for larger files and for what is none.
uint32_t SizeOf(int fd) {
    struct stat status {};
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return 0;
    return static_cast<uint64_t>(status.st_size) < LMaxAllocationBytes ? static_cast<uint32_t>(status.st_size) : 0;
}

// UTF-16 units and a terminator.
class Units {
public:
    explicit Units(size_t unitCount) : count(unitCount), units(LNewArray<unsigned short>(unitCount + 1)) {
        units[count] = 0;
    }

    unsigned short* Get() { return units.get(); }
    void SetCount(size_t unitCount) { units[count = unitCount] = 0; }
    void SwapFrom(size_t first) {
        for (size_t i = first; i < count; i++) units[i] = __builtin_bswap16(units[i]);
    }
    // Obeys a mark; gives where the text begins.
    const unsigned short* TextBehindMark() {
        if (units[0] == __builtin_bswap16(kMark)) SwapFrom(0);
        return units[0] == kMark ? units.get() + 1 : units.get();
    }

private:
    size_t count;
    std::unique_ptr<unsigned short[]> units;
};

// An odd byte at the end is left out. Nothing when the file doesn't open.
std::unique_ptr<Units> LoadUnits(const char* path) {
    const LDescriptor file = OpenToRead(path);
    if (!file) return nullptr;
    const size_t count = SizeOf(file.Get()) / 2;
    auto units = std::make_unique<Units>(count);
    units->SetCount(LReadAll(file.Get(), units->Get(), count * 2) / 2);
    return units;
}

enum class Place { Start, End };

int Save(const char* path, std::string_view text, Place place) {
    LDescriptor file = OpenToWrite(path);
    const bool isReady =
        file && (place == Place::Start ? ::ftruncate(file.Get(), 0) == 0 : ::lseek(file.Get(), 0, SEEK_END) >= 0);
    if (isReady) LWriteAll(file.Get(), text.data(), text.size());
    file.Close();
    return LFile::SetFileAttributeTextEncodingUTF8(path);
}

std::string_view ViewOf(const char* text) {
    return text ? text : std::string_view();
}
std::string_view ViewOf(const LStringLongTemplate<char>& text) {
    return {text.Get(), text.Length()};
}

}  // namespace

bool LLoadText(const char* path, LStringLongTemplate<char>& text) {
    const LDescriptor file = OpenToRead(path);
    if (!file) return false;
    const uint32_t size = SizeOf(file.Get());
    text.GrowToSize(uint64_t{size} + 1);
    text.SetLength(LReadAll(file.Get(), text.Buffer(), size));
    return true;
}

bool LLoadTextAsUTF16(const char* path, LStringLongTemplate<char>& text) {
    const auto units = LoadUnits(path);
    if (units) LCopyFromUnicode(text, units->Get());
    return units != nullptr;
}

bool LLoadTextUnicode(const char* path, LStringLongTemplate<char>& text) {
    const auto units = LoadUnits(path);
    if (units) LCopyFromUnicode(text, units->TextBehindMark());
    return units != nullptr;
}

bool LLoadTextAutoChar(const char* path, LStringLongTemplate<char>& text) {
    LStringLongTemplate<char> loaded;
    if (!LLoadText(path, loaded)) return false;
    const std::string_view bytes = ViewOf(loaded);
    if (bytes.starts_with(kMarkLittleEndian) || bytes.starts_with(kMarkBigEndian)) {
        Units units(bytes.size() / 2);
        std::memcpy(units.Get(), bytes.data(), bytes.size() / 2 * 2);
        LCopyFromUnicode(text, units.TextBehindMark());
    } else if (bytes.starts_with(kMarkUTF8)) {
        const size_t length = bytes.size() - kMarkUTF8.size();
        std::memmove(loaded.Buffer(), loaded.Buffer() + kMarkUTF8.size(), length);
        loaded.SetLength(length);
        text.Assign(loaded);
    } else {
        text.Assign(loaded);
    }
    return true;
}

int LSaveText(const char* path, const char* text) {
    return Save(path, ViewOf(text), Place::Start);
}
int LSaveText(const char* path, const LStringLongTemplate<char>& text) {
    return Save(path, ViewOf(text), Place::Start);
}
int LSaveAppendText(const char* path, const char* text) {
    return Save(path, ViewOf(text), Place::End);
}
int LSaveAppendText(const char* path, const LStringLongTemplate<char>& text) {
    return Save(path, ViewOf(text), Place::End);
}

void LSaveTextAsUnicodeBOM(const char* path, const LStringLongTemplate<char>& text) {
    const size_t size = std::strlen(text.Get()) + 1;
    Units units(size);
    units.Get()[0] = kMark;
    LCopyUnicodeFromUTF8(units.Get() + 1, text.Get(), size);
    const LDescriptor file = OpenToWrite(path);
    if (!file || ::ftruncate(file.Get(), 0) != 0) return;
    LWriteAll(file.Get(), units.Get(), (1 + lstrlen(units.Get() + 1)) * sizeof kMark);
}

int LFile::SetFileAttributeTextEncodingUTF8(const char* path) {
    return ::set_extended_attribute(path, kEncodingName.data(), kEncodingUTF8.data(), kEncodingUTF8.size());
}
