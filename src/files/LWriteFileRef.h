// LWriteFileRef: writing to an open descriptor. A small value: the descriptor belongs to whoever opened it. -1: nothing
// is written. Null texts count as "". One thread at a time.
#pragma once

struct LWriteFileRef {
    int descriptor = -1;

    // The characters without a terminator. True if all of them were written.
    bool WriteString(const char* s);
    bool WriteStringUTF8(const char* s) { return WriteString(s); }

    // The characters, then CR LF or LF.
    void WriteLineCRLF(const char* s);
    void WriteLineLF(const char* s);

    // The text with its length in front, as LReadFileRef::ReadStringLenUTF8 reads it: one byte for lengths below 255,
    // else FF and four bytes, little-endian. Gives the result of the last write: the text's length if all went well.
    int WriteStringLenUTF8(const char* s);
};

// Formatted text in the dialect of LPrintf.h, in one write. Gives the text's length, whether or not it was written.
// (Named as the C library's, which takes streams.)
unsigned long fprintf(LWriteFileRef file, const char* format, ...);
