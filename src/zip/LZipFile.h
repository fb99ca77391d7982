// LZipFile: changes to a zip archive, gathered and then made by the system's tools: one command line of /usr/bin/zip or
// /usr/bin/unzip, run through the shell. Only an empty archive is written here.
//
// Names are plain names, whatever characters they hold: quotes, $, back quotes and back slashes are escaped for the
// shell, wildcards of removed and extracted entries for the tools, and a name that begins with "-" is handed over as
// "./-…". Paths and names live in 260 bytes; one that doesn't fit is refused. Archives are given by absolute paths.
//
// Save changes the process's working folder for the time of the command and a second after it: savers wait for each
// other, other threads must not depend on the folder meanwhile. One thread per object.
#pragma once

#include "text/LCopyBounded.h"
#include "text/LList.h"

#include <string>

class LProcessInterface;

struct LZipFileNode {
    char path[LTextBufferSize];
    LZipFileNode* pNext = nullptr;
};

class LZipFile {
public:
    // Removals are relative to the base folder, by default the archive's. With `freshen` only entries that are in the
    // archive and older than their files are replaced. Nothing is run for an archive whose path doesn't fit.
    LZipFile(const char* archive, bool freshen);
    LZipFile(const char* archive, const char* baseFolder, bool freshen);
    virtual ~LZipFile() = default;
    LZipFile(const LZipFile&) = delete;
    LZipFile& operator=(const LZipFile&) = delete;

    // Forgets all that is pending.
    void Clear();

    // Pending until Save; false for a path that doesn't fit. Added files lie in one folder, the one of the file added
    // last, and are named without it.
    bool AddFile(const char* path);
    bool AddFolder(const char* path);
    bool RemoveFile(const char* entry);
    bool RemoveFolder(const char* folder);
    // The names of the pending folder and removal, and where relative names begin; false, and nothing changes, for one
    // that doesn't fit. A folder below the temporary folder is named by its last component; removing one removes what
    // lies in it.
    bool SetFolder(const char* folder) { return Set(folderPath, folder); }
    bool SetRemovePath(const char* entry) { return Set(removePath, entry); }
    bool SetWorkingFolder(const char* folder) { return Set(workingFolder, folder); }
    // By default "*.DS_Store*", "*.svn*" and "*.git*" are left out of all that is added and removed. The list of them
    // is a file in the temporary folder, which stays there.
    void SetExclusionsOff(bool isOff) { exclusionsOff = isOff; }

    // Runs the command for what is pending, in the working folder. A folder removal goes alone. True, and nothing
    // pending, when the tool ended well; else everything stays pending. Takes a second at least.
    bool Save();

    // Into a folder whose parent exists, replacing what is there; all, or one entry. False also for the tool's
    // warnings.
    bool ExtractAllFiles(const char* folder) { return Extract(archivePath, folder, nullptr); }
    bool Extract(const char* archive, const char* folder, const char* entry);

    // Writes an archive without entries, 24 bytes, in the place of one that is there: zip adds to it, unzip warns of
    // it.
    static bool CreateEmptyZipFile(const char* path);

    // These inspect nothing yet: an archive has no details, holds every entry, with size 0, and is not whole.
    static bool GetZipFileDetails(const char* archive, const char* entry, bool& exists, unsigned long long& size);
    static bool TestZipFileExists(const char* archive, const char* entry);
    static unsigned long long GetZipFileSizeBytes64(const char* archive, const char* entry);
    static bool VerifyZipFileIntegrity(const char* archive);

protected:
    // Runs a command line; a seam for tests.
    virtual bool RunCommand(const std::string& command) const;
    virtual void PauseAfterCommand() const;

private:
    static bool Set(char (&field)[LTextBufferSize], const char* path);
    bool AddTo(LList<LZipFileNode>& list, const char* path);
    bool RemoveFrom(LList<LZipFileNode>& list, const char* path);
    std::string Command();
    std::string AddedNames() const;
    std::string AddedFolder() const;
    bool RemoveFolderContents();

    char removePath[LTextBufferSize] = {};
    char folderPath[LTextBufferSize] = {};
    char workingFolder[LTextBufferSize] = {};
    bool exclusionsOff = false;
    bool hasApplication = false;  // an added name is a bundle's, which is a folder
    bool freshen;
    char archivePath[LTextBufferSize] = {};  // "": it didn't fit
    char baseFolder[LTextBufferSize] = {};
    LList<LZipFileNode> filesToAdd, foldersToAdd, filesToRemove, foldersToRemove;
};

// The common uses in one call each. The process interface and the level ('0' to '9') change nothing.
bool LZipFileCreate(const char* archive);
bool LZipFileAdd(const char* archive, const char* file, const char* baseFolder, bool exclusionsOff, char level,
                 LProcessInterface* process, bool freshen);
bool LZipFileAddFolder(const char* archive, const char* folder, const char* baseFolder, bool exclusionsOff,
                       LProcessInterface* process);
bool LZipFileAddFolder(const char* archive, const char* folder, const char* baseFolder, bool exclusionsOff);
bool LZipFileDelete(const char* archive, const char* entry);
bool LZipFileDeleteFolder(const char* archive, const char* folder);
bool LZipFileExtractAllFiles(const char* archive, const char* folder);
bool LZipFileExtract(const char* archive, const char* entry, const char* folder);
bool LZipFileExtractToFile(const char* archive, const char* entry, const char* folder, int& result);  // unused result
bool LZipFileGetFileDetails(const char* archive, const char* entry, bool& exists, unsigned long long& size);
bool LZipFileTestFileExists(const char* archive, const char* entry);
unsigned long long LZipFileGetFileSizeBytes64(const char* archive, const char* entry);
bool LZipFileVerifyIntegrity(const char* archive);

// Lists nothing yet: every archive opens as one without entries, which is false.
class LZipFileIterator {
public:
    LZipFileIterator() = default;
    explicit LZipFileIterator(const char* archive) { Open(archive); }
    bool Open(const char* archive);
    const LZipFileNode* Current() const { return pCurrent; }

private:
    LList<LZipFileNode> entries;
    const LZipFileNode* pCurrent = nullptr;
};
