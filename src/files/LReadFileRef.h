// LReadFileRef: reading from an open descriptor, a byte at a time where it looks for an end, so that the descriptor's
// position is always behind what was read. LReadFileBuffered is the fast one.
//
// A small value: the descriptor belongs to whoever opened it. -1: nothing is read. For regular files: where a file
// can't step back (a pipe), the byte behind a line break is lost. One thread at a time.
#pragma once

#include "text/LCopyBounded.h"
#include "text/LStringLong.h"

struct LReadFileRef {
    int descriptor = -1;

    // One line, without its end: CR, LF, CR LF or LF CR. False when there was nothing more to read. The buffer form
    // stores size - 1 bytes and drops the rest of the line; with size 0 it reads nothing and gives false. NUL bytes are
    // stored like others. Throws only where the long string can't grow; the string is terminated then, too.
    bool ReadLine(char* buf, unsigned long size);
    bool ReadLine(LStringLongTemplate<char>& line);

    // One text with its length in front (LWriteFileRef) into 260 bytes: at most 259 of it, the rest is skipped. Of a
    // file that ends too early, what is there.
    void ReadStringLenUTF8(char* buf);

    // One read of `len` bytes into a buffer of len + 1, terminated. Gives read's result, -1 without a descriptor.
    int ReadStringUTF8(char* buf, unsigned long len);
};
