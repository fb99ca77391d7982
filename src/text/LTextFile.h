// Whole text files: loading as UTF-8, with or without a look at the byte order mark, and saving.
//
// Loads take a shared lock of the file (flock) and saves an exclusive one, each with a bounded wait, and go on without
// one. A load is true when the file opened: a file of 4 GiB or more, a folder and a pipe load as an empty text. Of a
// file that shrinks meanwhile, what was there. Texts are cut at a first NUL only where they are converted. Only
// allocation throws (std::bad_alloc). Any thread; callers of one process keep apart by themselves.
#pragma once

#include "text/LStringLong.h"

bool LLoadText(const char* path, LStringLongTemplate<char>& text);  // the bytes as they are
bool LLoadTextAsUTF16(const char* path,
                      LStringLongTemplate<char>& text);  // little-endian UTF-16; a mark is a character
bool LLoadTextUnicode(const char* path, LStringLongTemplate<char>& text);  // UTF-16 as its mark says, or little-endian
// UTF-16 or UTF-8 as the mark says, which is left out; without one the bytes as they are.
bool LLoadTextAutoChar(const char* path, LStringLongTemplate<char>& text);

// Replace the file's text or add to it, making the file where it is missing, and mark it as UTF-8. Give the marking's
// result: 0 says that the file is there and marked, -1 that it isn't, or that its file system keeps no marks. A text
// that couldn't be written whole (a full disk) isn't told. Null texts are "".
int LSaveText(const char* path, const char* text);
int LSaveText(const char* path, const LStringLongTemplate<char>& text);
int LSaveAppendText(const char* path, const char* text);
int LSaveAppendText(const char* path, const LStringLongTemplate<char>& text);

// As little-endian UTF-16 behind its mark, unmarked as a file. Of characters above U+FFFF 16 bits are kept.
void LSaveTextAsUnicodeBOM(const char* path, const LStringLongTemplate<char>& text);
