#include "MountTable.h"

#include <bsd/mount.h>
#include <gtest/gtest.h>

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
        EXPECT_EQ(platform::FindMountPoint(kTable, c.path, device), c.mountPoint) << c.path;
    }
    EXPECT_FALSE(platform::FindMountPoint("", "/", makedev(8, 1)));
}

TEST(MountTable, APathIsAskedAfterItsLinksAreFollowed) {
    EXPECT_EQ(mount_point_of("/proc/self/fd"), "/proc");
    EXPECT_FALSE(mount_point_of("/no such path"));
    EXPECT_FALSE(mount_point_of(nullptr));
    platform::SetMountTable("1 1 0:0 / / x\n");
    EXPECT_EQ(mount_point_of("/proc/self/fd"), "/");
    platform::SetMountTable(std::nullopt);
}

}  // namespace
