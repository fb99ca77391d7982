#include "files/LWriteFileRef.h"

#include "files/LFileTransfer.h"
#include "text/LCopyBounded.h"
#include "text/LPrintf.h"
#include "text/LStringLong.h"

#include <cstdarg>
#include <cstdint>
#include <string_view>

namespace {

constexpr size_t kFirstLongLength = 255;

std::string_view ViewOf(const char* s) {
    return s ? s : std::string_view();
}

ssize_t Write(int fd, std::string_view bytes) {
    return fd < 0 ? 0 : LWriteOnce(fd, bytes.data(), bytes.size());
}

}  // namespace

bool LWriteFileRef::WriteString(const char* s) {
    const std::string_view text = ViewOf(s);
    return Write(descriptor, text) == static_cast<ssize_t>(text.size());
}

void LWriteFileRef::WriteLineCRLF(const char* s) {
    WriteString(s);
    WriteString("\r\n");
}

void LWriteFileRef::WriteLineLF(const char* s) {
    WriteString(s);
    WriteString("\n");
}

int LWriteFileRef::WriteStringLenUTF8(const char* s) {
    const std::string_view text = ViewOf(s);
    const auto length = static_cast<uint32_t>(text.size());
    const auto byte = [&](int shift) { return static_cast<char>(length >> shift); };
    const char prefix[] = {'\xFF', byte(0), byte(8), byte(16), byte(24)};
    const char shortPrefix[] = {byte(0)};
    Write(descriptor, length < kFirstLongLength ? std::string_view(shortPrefix, 1) : std::string_view(prefix, 5));
    return static_cast<int>(Write(descriptor, text));
}

unsigned long fprintf(LWriteFileRef file, const char* format, ...) {
    LStringLongTemplate<char> text;
    text.GrowToSize(LTextBufferSize);
    va_list args;
    va_start(args, format);
    const unsigned long length = text.vsprintf(format, args);
    va_end(args);
    Write(file.descriptor, {text.Get(), length});
    return length;
}
