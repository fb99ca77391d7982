// What the kernel writes about processes and mounts: lines that hold names of anybody's choice. The input is one name,
// which must come out as it went in, and is read as a whole line and table, too.
#include "Fuzz.h"

#include "MountTable.h"
#include "ProcessList.h"

#include <sys/sysmacros.h>

namespace {

// As the kernel writes names into the table.
std::string Escaped(std::string_view name) {
    std::string escaped;
    for (const char c : name) {
        char octal[5];
        snprintf(octal, sizeof octal, "\\%03o", static_cast<unsigned char>(c));
        escaped += std::string_view(" \t\n\\#").find(c) == std::string_view::npos ? std::string(1, c) : octal;
    }
    return escaped;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    if (const auto stat = platform::ParseProcessStat(input))
        Require(stat->name.size() + 2 < input.size(), "a name is a part of its line");
    platform::FindMountInTable(input, "/home/ann", makedev(8, 1));

    std::string name(input.substr(0, input.find('\0')));
    const std::string line = "12 (" + name + ") S 1 1 1 0 -1 4194560 1 2 3 4 5 6 7 8 20 0 1 0 4711 9";
    const auto stat = platform::ParseProcessStat(line);
    Require(stat && stat->isProgram && stat->name == name, "a process has its name");

    std::replace(name.begin(), name.end(), '/', '_');
    if (name.empty()) return 0;
    const std::string point = "/media/" + name;
    const std::string table = "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n2 1 8:2 / /media/" + Escaped(name) +
                              " rw,noatime shared:1 - vfat /dev/sdb1 rw\n";
    const auto mount = platform::FindMountInTable(table, point + "/file", makedev(8, 2));
    Require(mount && mount->point == point && mount->type == "vfat", "a mount has its place");
    return 0;
}
