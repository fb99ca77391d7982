#include "MountTable.h"
#include "UserDirs.h"
#include "VolumeDevice.h"
#include "support/TempFolder.h"

#include <bsd/mount.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <sys/sysmacros.h>

namespace {

constexpr const char* kTable = R"(22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw
30 22 8:2 / /media/My\040Disk rw - vfat /dev/sdb1 rw
31 22 8:3 / /media/My\040Disk rw - ext4 /dev/sdc1 rw
32 22 8:4 / /media/My\040Disk/in rw - ext4 /dev/sdd1 rw
33 22 0:40 / /btrfs rw - btrfs /dev/sde1 rw
34 22 8:5 / /odd\134name\04 rw - ext4 /dev/sdf1 rw
35 22 8:2 / /mnt rw - vfat /dev/sdb1 rw
cut line
)";

TEST(MountTable, TheLongestMountPointOfTheDevice) {
    const struct {
        const char* path;
        unsigned minorNumber;
        const char* mountPoint;
    } cases[] = {
        {"/", 1, "/"},
        {"/home/x", 1, "/"},
        {"/media/My Disk", 3, "/media/My Disk"},
        {"/media/My Disk/a", 3, "/media/My Disk"},  // the later of two
        {"/media/My Disk/a", 2, "/media/My Disk"},  // still open below the later one
        {"/media/My Disks", 1, "/"},                // no separator
        {"/media/My Disk/in/a", 4, "/media/My Disk/in"},
        {"/media/My Disk/in/a", 3, "/media/My Disk"},  // covered, but the device tells
        {"/btrfs/a", 77, "/btrfs"},                    // a device that the table doesn't have
        {"/odd\\name\\04/a", 5, "/odd\\name\\04"},
        {"/mnt/a", 2, "/mnt"},
    };
    for (const auto& c : cases) {
        const dev_t device = makedev(c.minorNumber == 77 ? 0 : 8, c.minorNumber);
        EXPECT_EQ(platform::FindMountInTable(kTable, c.path, device).value_or(platform::Mount()).point, c.mountPoint)
            << c.path;
    }
    EXPECT_FALSE(platform::FindMountInTable("", "/", makedev(8, 1)));
}

TEST(MountTable, APathIsAskedAfterItsLinksAreFollowed) {
    EXPECT_EQ(mount_point_of("/proc/self/fd"), "/proc");
    EXPECT_FALSE(mount_point_of("/no such path"));
    EXPECT_FALSE(mount_point_of(nullptr));
    platform::SetMountTable("1 1 0:0 / / x\n");
    EXPECT_EQ(mount_point_of("/proc/self/fd"), "/");
    platform::SetMountTable(std::nullopt);
}

// A disk with two partitions behind USB, a plain one inside, and a stick.
TEST(VolumeDevice, APartitionIsAttachedAsItsDiskIs) {
    const TempFolder folder;
    folder.Write("devices/usb1/sda/removable", "0\n");
    folder.Write("devices/usb1/sda/sda1/partition", "1\n");
    folder.Write("devices/pci/sdb/removable", "0\n");
    folder.Write("devices/usb2/sdc/removable", "1\n");
    folder.MakeFolder("block");
    const auto link = [&](const char* number, const char* device) {
        std::filesystem::create_symlink("../devices/" + std::string(device), folder.Join("block/") + number);
    };
    link("8:1", "usb1/sda/sda1");
    link("8:16", "pci/sdb");
    link("8:32", "usb2/sdc");
    platform::SetBlockDevicesFolder(folder.Join("block"));
    const auto find = [](const char* device) {
        const platform::BlockDevice found = platform::FindBlockDevice({"/", device, "ext4", "/no/such/device"});
        return (found.isRemovable ? 1 : 0) + (found.isExternal ? 2 : 0);
    };
    EXPECT_EQ(find("8:1"), 2);
    EXPECT_EQ(find("8:16"), 0);
    EXPECT_EQ(find("8:32"), 3);
    EXPECT_EQ(find("0:40"), 0);
    platform::SetBlockDevicesFolder("/sys/dev/block");
}

TEST(UserDirs, TheDesktopsSetting) {
    const char* const text = R"(# comment
XDG_MUSIC_DIR="$HOME/My \"Music\""
  XDG_VIDEOS_DIR="/media/videos/"
XDG_DESKTOP_DIR="$HOME/"
XDG_PICTURES_DIR="$HOMER/x"
XDG_DOWNLOAD_DIR=$HOME/unquoted
XDG_DOCUMENTS_DIR="$HOME/old"
XDG_DOCUMENTS_DIR="$HOME/new"
XDG_PUBLICSHARE_DIR="relative)";
    const auto find = [&](const char* name) { return platform::FindUserDir(text, name, "/home/x/").value_or("none"); };
    EXPECT_EQ(find("XDG_MUSIC_DIR"), "/home/x/My \"Music\"");
    EXPECT_EQ(find("XDG_VIDEOS_DIR"), "/media/videos");
    EXPECT_EQ(find("XDG_DOCUMENTS_DIR"), "/home/x/new");
    for (const char* none : {"XDG_DESKTOP_DIR", "XDG_PICTURES_DIR", "XDG_DOWNLOAD_DIR", "XDG_PUBLICSHARE_DIR", "X"})
        EXPECT_EQ(find(none), "none") << none;
}

}  // namespace
