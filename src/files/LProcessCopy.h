// Copying a file or a folder tree as an operation that tells its status and progress and can be stopped after every
// 32 KB. Gives an LProcessResult. The jobs' texts belong to the caller. Runs on the caller's thread.
#pragma once

#include "threads/LProcessInterface.h"

// Copies the bytes of a regular file and its modification time (whole seconds) into a file of a folder that exists;
// what stands there is overwritten, a link replaced. The source is locked shared and the target exclusively, each with
// a wait of a second at most, and without a lock where that can't be had. A copy that fails or is stopped leaves no
// target, also where there was one before. A file onto itself fails, and stays. Progress: the first report is 0, then
// after each 32 KB what was reached before them.
struct LProcessCopyFile {
    const char* source;
    const char* destination;
};

// Copies all that lies in a folder, hidden files too, into another one, folder by folder; each entry is a step of equal
// size. Links to files are copied as files, links to folders as links. The first entry that fails or is stopped ends
// the job; what was copied stays. A folder into itself or below fails, and so does an entry whose path would have more
// than 259 bytes.
struct LProcessCopyFolder {
    const char* source;
    const char* destination;
};

int Process(LProcessInterface& process, const LProcessCopyFile& job);
int Process(LProcessInterface& process, const LProcessCopyFolder& job);
