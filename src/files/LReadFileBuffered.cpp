#include "files/LReadFileBuffered.h"

#include "files/LFileTransfer.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string_view>
#include <sys/stat.h>

namespace {

// From this many bytes on a read goes straight to the caller's memory.
constexpr unsigned long kDirectRead = 257;

size_t ReadSome(int fd, void* bytes, size_t count) {
    const ssize_t got = fd < 0 ? 0 : LReadOnce(fd, bytes, count);
    return got > 0 ? static_cast<size_t>(got) : 0;
}

}  // namespace

bool LReadFileBuffered::Refill() {
    position = 0;
    filled = static_cast<uint32_t>(ReadSome(descriptor, buffer, kBufferSize));
    return filled > 0;
}

unsigned long LReadFileBuffered::TakeBuffered(void* buf, unsigned long len) {
    const unsigned long taken = std::min<unsigned long>(Unread(), len);
    if (taken) std::memcpy(buf, buffer + position, taken);
    return taken;
}

unsigned long LReadFileBuffered::Read(void* buf, unsigned long len) {
    char* const to = static_cast<char*>(buf);
    unsigned long done = 0;
    while (done < len) {
        if (!Unread()) {
            if (len - done >= kDirectRead) return done + ReadSome(descriptor, to + done, len - done);
            if (!Refill()) break;
        }
        const unsigned long taken = TakeBuffered(to + done, len - done);
        position += static_cast<uint32_t>(taken);
        done += taken;
    }
    return done;
}

unsigned long LReadFileBuffered::Peek(void* buf, unsigned long len) {
    const auto start = static_cast<off_t>(Tell64());
    const bool wasEmpty = !Unread();
    const unsigned long buffered = TakeBuffered(buf, len);
    const unsigned long fromFile =
        buffered < len ? ReadSome(descriptor, static_cast<char*>(buf) + buffered, len - buffered) : 0;
    if (wasEmpty) {
        position = 0;
        filled = static_cast<uint32_t>(std::min<unsigned long>(fromFile, kBufferSize));
        if (filled) std::memcpy(buffer, buf, filled);
    }
    if (fromFile) ::lseek(descriptor, start + Unread(), SEEK_SET);
    return buffered + fromFile;
}

bool LReadFileBuffered::ReadLine(char* buf, unsigned long size) {
    if (size == 0) return false;
    unsigned long stored = 0;
    bool hasEnd = false;
    while (!hasEnd && (Unread() || Refill())) {
        const std::string_view rest(reinterpret_cast<const char*>(buffer) + position, Unread());
        const size_t length = std::min(rest.find_first_of("\r\n"), rest.size());
        const size_t kept = std::min(length, size - 1 - stored);
        std::memcpy(buf + stored, rest.data(), kept);
        stored += kept;
        position += static_cast<uint32_t>(length);
        hasEnd = length < rest.size();
    }
    buf[stored] = '\0';
    if (!hasEnd) return stored > 0;
    // The second byte of CR LF may only come with the next refill.
    const bool isCR = buffer[position++] == '\r';
    if (isCR && (Unread() || Refill()) && buffer[position] == '\n') position++;
    return true;
}

unsigned long long LReadFileBuffered::GetFileSizeBytes64() const {
    struct stat status {};
    return descriptor >= 0 && ::fstat(descriptor, &status) == 0 ? static_cast<unsigned long long>(status.st_size) : 0;
}

unsigned long long LReadFileBuffered::Tell64() const {
    const off_t end = descriptor < 0 ? 0 : ::lseek(descriptor, 0, SEEK_CUR);
    return static_cast<unsigned long long>(std::max<off_t>(end - Unread(), 0));
}

void LReadFileBuffered::Seek64(unsigned long long pos) {
    if (descriptor < 0 || pos > static_cast<unsigned long long>(std::numeric_limits<off_t>::max())) return;
    if (::lseek(descriptor, static_cast<off_t>(pos), SEEK_SET) >= 0) position = filled = 0;
}

void LReadFileBuffered::SeekOffset64(long long delta) {
    if (descriptor < 0 || delta < std::numeric_limits<long long>::min() + kBufferSize) return;
    if (::lseek(descriptor, delta - static_cast<off_t>(Unread()), SEEK_CUR) >= 0) position = filled = 0;
}
