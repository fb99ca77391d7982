#include "SystemVersion.h"

#include "support/TempFolder.h"

#include <Carbon/Carbon.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

namespace {

const UInt8* Bytes(const std::string& text) {
    return reinterpret_cast<const UInt8*>(text.c_str());
}

std::string NameOf(const FSSpec& spec) {
    return {spec.name + 1, spec.name + 1 + spec.name[0]};
}

TEST(Gestalt, TellsTheVersionOnly) {
    SInt32 value = 7;
    EXPECT_EQ(Gestalt(0x73797333, &value), gestaltUndefSelectorErr);
    EXPECT_EQ(value, 7);
    EXPECT_EQ(Gestalt(gestaltSystemVersionMajor, &value), noErr);
    EXPECT_EQ(value, 10);
    EXPECT_EQ(Gestalt(gestaltSystemVersionMinor, &value), noErr);
    EXPECT_EQ(value, 15);
    platform::SetSystemVersion(11, 0);
    Gestalt(gestaltSystemVersionMajor, &value);
    EXPECT_EQ(value, 11);
    platform::SetSystemVersion(10, 15);
}

TEST(FileManager, RecordsHoldTheFolderAndTheName) {
    const TempFolder temp;
    const std::string name63(63, 'n');
    temp.Write("folder/" + name63, "");
    temp.Write("folder/" + name63 + "n", "");
    ASSERT_EQ(::symlink("folder", temp.Join("link").c_str()), 0);

    FSRef ref;
    bool isDirectory = true;
    ASSERT_EQ(FSPathMakeRef(Bytes(temp.Join("link/" + name63)), &ref, &isDirectory), noErr);
    EXPECT_FALSE(isDirectory);
    FSCatalogInfo info;
    FSSpec spec;
    ASSERT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoVolume | kFSCatInfoNodeID, &info, &spec), noErr);
    EXPECT_EQ(info.nodeFlags, 0);
    EXPECT_EQ(NameOf(spec), name63);
    EXPECT_EQ(spec.parID.path, temp.Join("folder"));
    struct stat status {};
    ASSERT_EQ(::stat(temp.Join("folder").c_str(), &status), 0);
    EXPECT_EQ(spec.parID.number, status.st_ino);

    ASSERT_EQ(FSPathMakeRef(Bytes(temp.Join("folder/" + name63 + "n")), &ref, nullptr), noErr);
    EXPECT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoNone, &info, nullptr), noErr);
    EXPECT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoNone, nullptr, &spec), fnfErr);
    EXPECT_EQ(FSPathMakeRef(Bytes(temp.Join("missing")), &ref, nullptr), fnfErr);
    ::unlink(ref.path.c_str());
    EXPECT_EQ(FSGetCatalogInfo(&ref, kFSCatInfoNone, &info, nullptr), fnfErr);
}

TEST(FileManager, FoldersLeadUpToTheRoot) {
    const TempFolder temp;
    CInfoPBRec block;
    block.ioFDirIndex = -1;
    block.ioDrDirID = {0, temp.Path()};
    std::string path;
    int steps = 0;
    for (; steps < 100; ++steps) {
        ASSERT_EQ(PBGetCatInfoSync(&block), noErr);
        if (block.ioName.empty()) break;
        path = "/" + block.ioName + path;
        block.ioDrDirID = block.ioDrParID;
    }
    EXPECT_EQ(path, temp.Path());
    EXPECT_EQ(block.ioDrDirID.number, fsRtDirID);
    EXPECT_EQ(block.ioDrParID.number, fsRtParID);
    block.ioFDirIndex = 1;
    EXPECT_EQ(PBGetCatInfoSync(&block), paramErr);
    block.ioFDirIndex = -1;
    block.ioDrDirID.path = temp.Write("file", "");
    EXPECT_EQ(PBGetCatInfoSync(&block), fnfErr);
}

}  // namespace
