#include "files/LReadFileRef.h"

#include "files/LFileTransfer.h"
#include "text/LStringWriters.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

constexpr unsigned char kLongLength = 0xFF;

bool IsLineBreak(char c) {
    return c == '\n' || c == '\r';
}

bool ReadByte(int fd, char& byte) {
    return fd >= 0 && LReadOnce(fd, &byte, 1) == 1;
}

// The second byte of a line break, if it has one; another byte belongs to the next line.
void SkipRestOfLineBreak(int fd, char first) {
    char next;
    if (!ReadByte(fd, next)) return;
    if (!IsLineBreak(next) || next == first) ::lseek(fd, -1, SEEK_CUR);
}

// Gives add(byte) each byte of a line. True when the line had an end.
template <class Add>
bool ReadLineInto(int fd, Add add) {
    char byte;
    while (ReadByte(fd, byte)) {
        if (IsLineBreak(byte)) {
            SkipRestOfLineBreak(fd, byte);
            return true;
        }
        add(byte);
    }
    return false;
}

}  // namespace

bool LReadFileRef::ReadLine(char* buf, unsigned long size) {
    if (size == 0) return false;
    unsigned long stored = 0;
    const bool hasEnd = ReadLineInto(descriptor, [&](char byte) {
        if (stored < size - 1) buf[stored++] = byte;
    });
    buf[stored] = '\0';
    return hasEnd || stored > 0;
}

bool LReadFileRef::ReadLine(LStringLongTemplate<char>& line) {
    line.GrowToSize(LTextBufferSize);
    line.Clear();
    // The writer doesn't terminate, and may throw.
    struct Terminator {
        LStringLongTemplate<char>& text;
        ~Terminator() { text.SetLength(text.Length()); }
    } terminator{line};
    LStringLongTemplateWriter<char> writer(line);
    return ReadLineInto(descriptor, [&](char byte) { writer.AddChar(byte); }) || line.Length() > 0;
}

void LReadFileRef::ReadStringLenUTF8(char* buf) {
    unsigned char first = 0;
    unsigned char number[4] = {};
    uint32_t length = 0;
    if (descriptor >= 0 && LReadOnce(descriptor, &first, 1) == 1) length = first;
    if (first == kLongLength) {
        length = 0;
        if (LReadAll(descriptor, number, sizeof number) == sizeof number)
            for (int i = 3; i >= 0; i--) length = length << 8 | number[i];
    }
    const size_t wanted = std::min<size_t>(length, LTextBufferSize - 1);
    const size_t got = wanted ? LReadAll(descriptor, buf, wanted) : 0;
    buf[got] = '\0';
    if (length > got) ::lseek(descriptor, static_cast<off_t>(length - got), SEEK_CUR);
}

int LReadFileRef::ReadStringUTF8(char* buf, unsigned long len) {
    const ssize_t got = descriptor < 0 ? -1 : LReadOnce(descriptor, buf, len);
    buf[std::max<ssize_t>(got, 0)] = '\0';
    return static_cast<int>(got);
}
