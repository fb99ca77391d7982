// Property list files (XML) as values. The file may hold anything: what could harm the parser is found before libplist
// sees it. Any thread.
#pragma once

#include "FileCalls.h"

#include <Foundation/NSObject.h>

#include <optional>
#include <string>
#include <string_view>

namespace platform {

inline constexpr size_t kMaxPropertyListFile = size_t{64} * 1024 * 1024;
inline constexpr int kMaxPropertyListDepth = 64;  // of arrays and dictionaries; libplist recurses to free them

// The dictionary that an XML property list holds. Nothing when it is none, is nested too deep or defines entities.
// Values of types that NSObject does not know are left out.
std::optional<NSDictionary> ParsePropertyList(std::string_view xml);
// The same by libplist alone; files in the layer's own form take it longer.
std::optional<NSDictionary> ParseAnyPropertyList(std::string_view xml);

// Reads an opened file as a whole. Gives 0 or an errno: EINVAL for what is no regular file, EFBIG above maxBytes.
// `info` is the file's.
int ReadRegularFile(FileCalls& calls, int descriptor, const struct stat& info, size_t maxBytes, std::string& bytes);

// Reads a whole regular file of this user's, without following a link at its end. Gives 0 or an errno: ELOOP for a
// link, EFBIG above kMaxPropertyListFile, EPERM for another user's, EINVAL for what is no regular file.
int ReadOwnFile(FileCalls& calls, const std::string& path, std::string& bytes);

}  // namespace platform
