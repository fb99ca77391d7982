// LFile: the library's file operations, static members only. Its members are grouped by subject, one source file each.
//
// Paths are UTF-8. Both "/" and "\" separate when a path is read, although Linux allows "\" in a name; "/" is written.
// Every `dst` is a buffer of 260 bytes (LTextBufferSize): results hold at most 259 bytes, are cut silently and always
// terminated. A `dst` may be the same buffer as an argument. Null texts count as "". Any thread.
#pragma once

class LFile {
public:
    LFile() = delete;

    // Paths (LFilePath.cpp): texts only, but for the file system's answers where a comment says so.

    // folder (at most 258 bytes of it), a "/" unless it is empty or ends with a separator, name, ext.
    static void _MakeFilePath(char* dst, const char* folder, const char* name, const char* ext);
    // Up to, not including, the last separator; "/" if that is the first character of an absolute path; "" without one.
    static void _GetFolderFromPath(char* dst, const char* path);
    // Up to, not including, the first separator at index 2 or later ("/Volumes" of "/Volumes/Disk/a", "C:" of "C:\a");
    // the whole path without one.
    static void _GetBaseFolderFromPath(char* dst, const char* path);
    // What follows the last separator. A component that fills the buffer ends the search.
    static void _GetFileFromPath(char* dst, const char* path);
    // From the last component's last point on; "" without one. Here a leading point counts: ".profile" of ".profile".
    static void _GetFileExtensionFromPath(char* dst, const char* path);
    // The last component up to its last point. A leading point starts no extension: ".profile" of ".profile".
    static void _GetFileNameFromPath(char* dst, const char* path);
    // Replaces the extension or adds it. Only a point at the start of the whole path starts no extension: ".profile"
    // gets ".profile.lck", "/tmp/.profile" becomes "/tmp/.lck".
    static void _ApplyNewFileExtension(char* dst, const char* path, const char* ext);

    // The mount point of the volume that holds an existing path. Else by the text: "C:\" for one that begins with the
    // letters and digits "C", "/" for an absolute one, "" for any other.
    static void GetHumanReadableDriveFromPath(char* dst, const char* path);

    // `path` as seen from `folder`, with "../" steps (in the separator that the two share); as it is when the two share
    // nothing. False, and an empty result, when it would have more than 260 bytes.
    static bool GetRelativePathFromAbsolutePath(char* dst, const char* folder, const char* path);
    // `relPath` + `ext` as seen from `folder`; alone when it begins with a separator or has a colon in its first
    // component. Leading "./" are dropped, leading "../" take a component off the folder. Folders of two bytes lose
    // none and swallow the step, shorter ones leave it in the result.
    static void MakeAbsoluteFilePath(char* dst, const char* folder, const char* relPath, const char* ext);
    // `target` as seen from `base` with "../" steps; `target` itself for an empty base. Looks at "/" only. Always true.
    static bool MakeRelativeFolder(char* dst, const char* base, const char* target);
    static bool MakeRelativeFilePath(char* dst, const char* base, const char* target);
    // The first of folder/name+ext, folder/name_0+ext, folder/name_1+ext … that doesn't exist. The last one tried,
    // which exists, when the numbers fall victim to the cut at 259 bytes.
    static void MakeUniqueOrderedFilePath(char* dst, const char* folder, const char* name, const char* ext);

    // Whether a name is not empty and holds none of the characters that some file system refuses: 0x01 to 0x1F and
    // : * ? " < > | \ /
    static bool IsFileValid(const char* name);
    // Leave those characters out, PreprocessPath all but the separators. Note the order of the arguments. True when
    // something is left, for a path something besides blanks.
    static bool PreprocessName(const char* src, char* dst);
    static bool PreprocessPath(const char* src, char* dst);
    // Puts a back slash before every double quote and back quote; ends before a pair that doesn't fit whole.
    static void EscapeFilePath(const char* src, char* dst);

    // Folders (LFolderIterator.h, LFolderTrees.cpp, LFileCopy.cpp). Names are bytes: nothing in them is special but "/"
    // and NUL. Links are never followed below the path that was given, and where something is deleted or opened to
    // everyone not there either. An entry whose path has more than 259 bytes is left alone. Failures of single entries
    // are passed over.
    class FolderIterator;
    class FolderIteratorAllFiles;

    // LWildcard.h, for char and wchar_t.
    template <class T>
    static bool IsMatch(const T* pattern, const T* name);

    // Makes the folder and those above it that are missing, mode 0777 but for the mask. True if it wasn't there before.
    static bool CreateFolderTree(const char* path);
    // Deletes all that lies below the folder, then the folder. True if it is gone. Nothing else than a folder is
    // deleted.
    static bool DeleteFolderTree(const char* path);
    static bool DeleteFolderTreeAlways(const char* path);  // also files that are flagged as not to be deleted
    // Deletes what lies in the folder but for folders, then the folder, which fails while there are any.
    static bool DeleteFolderAndFiles(const char* path);
    // Deletes the matching files that were made more than `days` times 24 hours ago; hidden ones stay. 0 days: nothing.
    static void DeleteOldFiles(const char* folder, const char* pattern, int days);
    // Copies what lies in a folder, hidden files too, into another one, which is made where it is missing. Files are
    // replaced, links copied as links. A folder isn't copied into itself or below.
    static void CopyFolderFiles(const char* src, const char* dst);
    // Copies a regular file with its permissions, or a link as a link. What stands at `dst` is replaced when the copy
    // is whole, and stays when it fails. False for a file onto itself. A link is put into `dst` where that is a folder.
    static bool CopyFile(const char* src, const char* dst);
    // Lets everybody read, write and execute the path and all below it.
    static void SetFolderSecurityAllAccess(const char* path);

    static char* GetCurrentDirectory(char* buf);       // null when it has more than 259 bytes or can't be told
    static int SetCurrentDirectory(const char* path);  // chdir's result

    // Locks and errors (LLockFile.cpp). Whether somebody else holds a lock of the file; both are the same question.
    static bool TestFileShareWriteBlocked(const char* path);
    static bool TestFileShareReadBlocked(const char* path);
    static bool TestFileLocked(const char* path);  // flagged as not to be changed
    // Of the call that failed last (errno).
    static bool IsErrorSharingViolation();
    static bool IsErrorAlreadyExists();
    static bool IsErrorPermissionDenied();
    static bool IsErrorFileNotFound();

    // Folders that the system knows (LSpecialFolders.cpp); those that belong to the user or the program are made where
    // they are missing, unless their path would have to be cut. "" where the platform tells nothing.
    static void GetUserDocumentsFolder(char* dst);
    static void GetUserDesktopFolder(char* dst);
    static void GetUserMusicFolder(char* dst);
    static void GetUserVideoFolder(char* dst);
    static void GetUserPicturesFolder(char* dst);
    static void GetUserDownloadFolder(char* dst);
    static void GetUserApplicationsFolder(char* dst);
    static void GetTempFolder(char* dst);        // the user's caches
    static void GetUserDataFolder(char* dst);    // what applications keep
    static void GetSharedDataFolder(char* dst);  // the same
    // This program's folder below the data folder, in it "Shared", and in these two a folder `name`; the shared one's
    // is open to everyone if this call made it.
    static void GetUserDataFolderApp(char* dst);
    static void GetSharedDataFolderApp(char* dst);
    static void GetUserDataFolderAppSubFolder(const char* name, char* dst);
    static void GetSharedDataFolderAppSubFolder(const char* name, char* dst);
    static void GetApplicationsFolder(char* dst);  // where applications for all users are
    // `name` in the user's application folder if it is there, else in the one for all: true if it exists.
    static bool GetInstalledApplicationExePath(char* dst, const char* name);
    static void GetProgramExecutablePath(char* dst);   // the main bundle's folder
    static void GetHelpFolder(char* dst);              // in the main bundle
    static void GetUserFolder(char* dst);              // the home folder
    static void GetUserFolderNonSandboxed(char* dst);  // the password entry's; "" without one
    static void GetMountedDrivesFolder(char* dst);     // where volumes are mounted
    static void GetNetworkSharesFolder(char* dst);     // the same

    // A sandbox's container (LSandboxPaths.cpp), which is then the home folder: whether the path's text begins with it,
    // in either case of letters; and the path outside that a path inside really leads to, through links, also when its
    // end doesn't exist yet. False, and "", when it leads nowhere outside.
    static bool IsPathInSandbox(const char* path);
    static bool MakeNonSandboxedFilePath(char* dst, const char* path);
    // Folders of the password entry's home, whether they are there or not.
    static void GetUserDownloadFolderNonSandboxed(char* dst);
    static void GetUserVideoFolderNonSandboxed(char* dst);
    static void GetUserMusicFolderNonSandboxed(char* dst);
    static void GetUserPicturesFolderNonSandboxed(char* dst);

    // Volumes (LVolumes.cpp), by a path that lies on one.
    static unsigned short GetVolumeFileSystemID(const char* path);  // 0xFFFF: unknown
    static unsigned long GetVolumeAttributes(const char* path);     // 0: unknown
    // A path that doesn't exist counts as all of them.
    static bool IsOnExternalDrive(const char* path);
    static bool IsOnRemovableMedia(const char* path);
    static bool IsNetworkPath(const char* path);
    static bool IsOnLocalDrive(const char* path);
    // How large a file may be there: 0 up to 2 GiB, 1 up to 4 GiB, 2 without such a limit or unknown.
    static int GetVolumeFileSizeLimit(const char* path);
    // A size in whole Bytes, KB, MB, GB or TB of 1,024 each. Gives the number of characters.
    static int GetSizeFormattedBytes(unsigned long long bytes, char* dst);

    // Marks a text file as UTF-8 for other applications (LTextFile.cpp). 0, or -1 and errno where the file system keeps
    // no such marks.
    static int SetFileAttributeTextEncodingUTF8(const char* path);
};
