// Adding files to an archive, and extracting one, as operations that report. Adding can be stopped between files,
// extracting, which is one command, can't. They give an LProcessResult; the reason for a failure goes to SetError. The
// records own their nodes. One thread per record; while one runs, no thread may depend on the process's working folder
// (LZipFile.h).
#pragma once

#include "text/LCopyBounded.h"
#include "text/LList.h"
#include "threads/LProcessInterface.h"
#include "zip/LZipFile.h"

// Adds the files in the list's order, each by a command of its own; nothing is left out, files without a path are
// passed over. Stops at the first that fails; what was added stays.
struct LProcessZipFileAdd {
    char archivePath[LTextBufferSize] = {};
    char baseFolder[LTextBufferSize] = {};
    LList<LZipFileNode> files;
};

// Extracts all, replacing what is there.
struct LProcessZipFileExtractAll {
    char archivePath[LTextBufferSize] = {};
    char destinationFolder[LTextBufferSize] = {};
};

int Process(LProcessInterface& process, LProcessZipFileAdd& job);
int Process(LProcessInterface& process, LProcessZipFileExtractAll& job);
