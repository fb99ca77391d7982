// Free functions on file names and paths beside those of LFile. Null texts count as "". Any thread.
#pragma once

// Whether something is at the path, links followed. What access() doesn't find is looked for once more as a file URL,
// whose escaped text is a relative name ("%2Fa%20b"): so the second look only finds such a name in the working folder.
bool LFileExists(const char* path);

// Whether `ext` equals one of the texts of a list that null ends, ASCII letters in either case. A null list is empty.
bool LIsFileExtensionInList(const char* const* list, const char* ext);

bool LFileIsLetterOrNumber(char c);  // ASCII

// -1 when `suffix` is longer than `s`; else strcmp of the end of `s` with `suffix`: 0 when `s` ends with it.
int tstrcmpend(const char* s, const char* suffix);
