// Where the tools find the user's folders, the two applications and tables of zones. Main thread.
#pragma once

#include <optional>
#include <string>

namespace tools {

// The folder that the environment variable names when it is an absolute path, else `belowHome` in the home folder. No
// trailing slash.
std::string UserFolder(const char* variable, const char* belowHome);

// The bundle that the running program belongs to; for a bare executable the folder it lies in. No trailing slash.
std::string OwnBundle();

// The folder that a bundle or file lies in.
std::string FolderOf(const std::string& path);

// `path` from the root on, without "." and ".." and without a slash at its end: the form in which the helper keeps it.
std::string AbsolutePath(const std::string& path);

// The bundle of that file name: in the folder given, else beside the programs of the same installation, else where
// applications are installed. Nothing when there is none.
std::optional<std::string> FindBundle(const std::string& fileName, const std::string& firstFolder);

// Whether there is a table for the zone: of a name as in "Europe/Berlin", or at an absolute path. Folders and other
// files lie beside the tables; as a zone they would be UTC.
bool HasZoneTable(const std::string& zone);

}  // namespace tools
