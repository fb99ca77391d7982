// LReadFileBuffered: reading a regular file through a buffer, with a look ahead. The descriptor belongs to whoever
// opened it; -1: nothing is read. While the reader is used nobody else may move the descriptor's position, which is at
// the end of the buffered bytes. One thread at a time.
#pragma once

#include <cstdint>

class LReadFileBuffered {
public:
    explicit LReadFileBuffered(int openDescriptor = -1) : descriptor(openDescriptor) {}
    LReadFileBuffered(const LReadFileBuffered&) = delete;
    LReadFileBuffered& operator=(const LReadFileBuffered&) = delete;

    // Bytes delivered; fewer than wanted at the end of the file and on errors.
    unsigned long Read(void* buf, unsigned long len);
    // What Read would deliver, without consuming it.
    unsigned long Peek(void* buf, unsigned long len);
    // One line, without its end: LF, CR or CR LF (unlike LReadFileRef's, an LF CR ends two). At most size - 1 bytes,
    // the rest of the line is dropped. False when there was nothing more to read, and for size 0, which reads nothing.
    bool ReadLine(char* buf, unsigned long size);

    unsigned long long GetFileSizeBytes64() const;  // 0 if it can't be told
    unsigned long long Tell64() const;              // of the next byte to be delivered

    // From the start, and from the next byte. They discard the buffer. Positions that no file has are ignored.
    void Seek(unsigned int pos) { Seek64(pos); }
    void Seek64(unsigned long long pos);
    void SeekOffset64(long long delta);

private:
    static constexpr uint32_t kBufferSize = 8192;

    uint32_t Unread() const { return filled - position; }
    bool Refill();
    unsigned long TakeBuffered(void* buf, unsigned long len);

    int descriptor;
    unsigned char buffer[kBufferSize];
    uint32_t position = 0;  // of the next byte in the buffer
    uint32_t filled = 0;    // bytes in the buffer
};
