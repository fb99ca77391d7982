#include "InfoPlist.h"

#include "support/TempFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <plist/plist.h>
#include <sys/stat.h>

namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

const std::string kXml = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict>
  <key>CFBundleIdentifier</key><string>com.example.app</string>
  <key>CFBundleName</key><string>Gr&#xF6;&amp;&#x1F600;</string>
  <key>CFBundleVersion</key><string>2.14</string>
  <key>LSRequiresNativeExecution</key><true/>
  <key>Size</key><integer>3</integer>
  <key>MachServices</key><dict><key>a.service</key><true/><key>b.service</key><dict/></dict>
</dict></plist>)";

std::string BinaryOf(const std::string& xml) {
    plist_t root = nullptr;
    plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &root);
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    std::string result(bytes, length);
    std::free(bytes);
    plist_free(root);
    return result;
}

std::string BigEndian(uint64_t value, unsigned size) {
    std::string bytes;
    for (unsigned i = size; i > 0; --i) bytes += static_cast<char>(value >> (8 * (i - 1)));
    return bytes;
}

// A binary list out of ready-made objects, with references of two bytes; the first object is the top.
std::string BinaryList(const std::vector<std::string>& objects) {
    std::string bytes = "bplist00";
    std::string table;
    for (const std::string& object : objects) {
        table += BigEndian(bytes.size(), 4);
        bytes += object;
    }
    const uint64_t tablePosition = bytes.size();
    return bytes + table + std::string(6, '\0') + BigEndian(4, 1) + BigEndian(2, 1) + BigEndian(objects.size(), 8) +
           BigEndian(0, 8) + BigEndian(tablePosition, 8);
}

void ExpectTheExample(const std::optional<platform::InfoPlist>& info) {
    ASSERT_TRUE(info);
    EXPECT_THAT(info->strings, ElementsAre(std::pair("CFBundleIdentifier", "com.example.app"),
                                           std::pair("CFBundleName", "Gr\xC3\xB6&\xF0\x9F\x98\x80"),
                                           std::pair("CFBundleVersion", "2.14")));
    EXPECT_THAT(info->machServices, UnorderedElementsAre("a.service", "b.service"));
    EXPECT_EQ(*info->String("CFBundleVersion"), "2.14");
    EXPECT_EQ(info->String("Size"), nullptr);
}

TEST(InfoPlist, XmlAndBinaryReadAlike) {
    ExpectTheExample(platform::ParseInfoPlist(kXml));
    ExpectTheExample(platform::ParseInfoPlist("\xEF\xBB\xBF\n" + kXml));
    ExpectTheExample(platform::ParseInfoPlist(BinaryOf(kXml)));
}

TEST(InfoPlist, WhatIsOutOfBoundsIsNoDictionary) {
    const std::string entity = R"(<!DOCTYPE plist [<!ENTITY a "b">]><plist><dict/></plist>)";
    std::string nested = "<plist><dict><key>a</key>";
    for (int i = 0; i < 5000; ++i) nested += "<array>";
    for (int i = 0; i < 5000; ++i) nested += "</array>";
    nested += "</dict></plist>";
    std::string wide = "<plist><dict>";
    for (int i = 0; i < 1025; ++i) wide += "<key>k" + std::to_string(i) + "</key><string/>";
    std::string references = "<plist><dict><key>k</key><string>";
    while (references.size() < 1'000'000) references += "&amp;";
    references += "</string></dict></plist>";
    for (const std::string& bytes :
         {std::string(), std::string(" \n"), std::string("<plist>"), std::string("<plist><array/></plist>"),
          std::string("{ CFBundleName = old; }"), entity, nested, wide + "</dict></plist>", references,
          kXml + std::string(1024 * 1024, ' ')}) {
        EXPECT_FALSE(platform::ParseInfoPlist(bytes)) << bytes.substr(0, 60);
    }
}

// A megabyte of texts with as many references as the longest one that is read can hold.
TEST(InfoPlist, ManyReferencesAreRead) {
    std::string text, xml = "<plist><dict>";
    for (int i = 0; i < 4096; i++) text += "&amp;";
    for (int i = 0; xml.size() < 1'000'000; i++)
        xml += "<key>" + std::to_string(i) + "</key><string>" + text.substr(0, i == 0 ? text.npos : 4000) + "</string>";
    const auto info = platform::ParseInfoPlist(xml + "</dict></plist>");
    ASSERT_TRUE(info);
    EXPECT_EQ(*info->String("0"), std::string(4096, '&'));
    EXPECT_EQ(*info->String("1"), std::string(800, '&'));
}

TEST(InfoPlist, TextsOverTheLimitAreLeftOut) {
    const auto xml = [](size_t length) {
        return "<plist><dict><key>k</key><string>" + std::string(length, 'x') + "</string></dict></plist>";
    };
    for (const bool binary : {false, true}) {
        for (const size_t length : {4096u, 4097u}) {
            const auto info = platform::ParseInfoPlist(binary ? BinaryOf(xml(length)) : xml(length));
            ASSERT_TRUE(info);
            EXPECT_EQ(info->String("k") != nullptr, length == 4096) << binary;
        }
    }
}

// Every prefix and every single damaged byte of a good binary file: any answer will do, if it comes without a fault.
TEST(InfoPlist, DamagedBinaryFilesDoNoHarm) {
    const std::string good = BinaryOf(kXml);
    for (size_t length = 0; length < good.size(); ++length) platform::ParseInfoPlist(good.substr(0, length));
    for (size_t i = 0; i < good.size(); ++i) {
        for (const int value : {0x00, 0x01, 0x0F, 0x13, 0x5F, 0x6F, 0xD1, 0xDF, 0xFF}) {
            std::string damaged = good;
            damaged[i] = static_cast<char>(value);
            platform::ParseInfoPlist(damaged);
        }
    }
}

TEST(InfoPlist, BinaryObjectsThatNameEachOtherCostNothing) {
    // { "a": [[…2^30 arrays…]], "b": itself, "c": "x" }
    std::vector<std::string> objects = {"\xD3" + BigEndian(1, 2) + BigEndian(2, 2) + BigEndian(3, 2) + BigEndian(5, 2) +
                                            BigEndian(0, 2) + BigEndian(4, 2),
                                        "\x51"
                                        "a",
                                        "\x51"
                                        "b",
                                        "\x51"
                                        "c",
                                        "\x51"
                                        "x"};
    for (uint64_t next = 6; next < 36; ++next) objects.push_back("\xA2" + BigEndian(next, 2) + BigEndian(next, 2));
    objects.push_back("\x09");
    const auto info = platform::ParseInfoPlist(BinaryList(objects));
    ASSERT_TRUE(info);
    EXPECT_THAT(info->strings, ElementsAre(std::pair("c", "x")));
}

TEST(InfoPlist, BinaryCountsThatPassTheFileAreRefused) {
    const std::string hugeCount = "\x13" + BigEndian(UINT64_MAX, 8);
    EXPECT_FALSE(platform::ParseInfoPlist(BinaryList({"\xDF" + hugeCount})));
    const auto hugeText = platform::ParseInfoPlist(BinaryList({"\xD1" + BigEndian(1, 2) + BigEndian(2, 2),
                                                               "\x51"
                                                               "k",
                                                               "\x6F" + hugeCount}));
    ASSERT_TRUE(hugeText);
    EXPECT_EQ(hugeText->String("k"), nullptr);
}

TEST(InfoPlist, OnlyARegularFileInsideTheBundleIsRead) {
    const TempFolder folder;
    EXPECT_FALSE(platform::ReadInfoPlist(folder.Path()));
    folder.Write("A.app/Contents/Info.plist", kXml);
    ExpectTheExample(platform::ReadInfoPlist(folder.Join("A.app")));
    folder.MakeFolder("B.app/Contents/Info.plist");
    EXPECT_FALSE(platform::ReadInfoPlist(folder.Join("B.app")));
    folder.MakeFolder("C.app/Contents");
    ASSERT_EQ(::mkfifo(folder.Join("C.app/Contents/Info.plist").c_str(), 0600), 0);
    EXPECT_FALSE(platform::ReadInfoPlist(folder.Join("C.app")));
}

}  // namespace
