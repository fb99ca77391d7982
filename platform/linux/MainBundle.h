// Which bundle a program belongs to, and where the running program's own bundle lies. Any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

// The "<name>.app" folder whose Contents/Linux or Contents/MacOS holds the program, as text: nothing is looked up.
// Of bundles inside bundles this is the innermost. Nothing for a program outside a bundle.
std::optional<std::string> BundleOfProgram(std::string_view programPath);

// The program that a link such as /proc/<pid>/exe names, without the " (deleted)" that the kernel adds once the file
// was replaced or removed. Nothing when the link can't be read.
std::optional<std::string> ProgramOfLink(const std::string& link);

// The running program's bundle; for a bare executable its folder; "" (errno) when the system doesn't tell now. No
// trailing slash.
std::string MainBundleRoot();

// Test seam: what MainBundleRoot answers from now on ("": the program's own again).
void SetMainBundleRoot(std::string root);

}  // namespace platform
