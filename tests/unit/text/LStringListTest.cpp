#include "text/LStringList.h"

#include <gtest/gtest.h>
#include <new>
#include <string>

namespace {

TEST(LStringList, StaysTerminatedWhileItGrows) {
    LStringListTemplate<char> list;
    EXPECT_EQ(list.Items()[0], nullptr);
    for (unsigned i = 0; i < 2048; i++) {
        ASSERT_EQ(list.Capacity(), i <= 255 ? 255u : 2047u);
        list.AddText(std::to_string(i).c_str());
        ASSERT_EQ(list.Items()[list.Count()], nullptr);
    }
    EXPECT_EQ(list.Capacity(), 16383u);
    for (unsigned i = 0; i < 2048; i++) ASSERT_EQ(list[i], std::to_string(i));
}

TEST(LStringList, AddsRoomOrACutCopy) {
    LStringListTemplate<char> list;
    char* const room = list.Add(4);
    EXPECT_STREQ(room, "");
    std::char_traits<char>::copy(room, "abc", 4);
    EXPECT_STREQ(list.Add(0), "");
    const std::string text(300, 'x');
    EXPECT_EQ(list.AddText(text.c_str()), text.substr(0, 259));
    EXPECT_EQ(list.AddText(text.c_str() + 41), text.substr(41));
    EXPECT_STREQ(list.AddText(nullptr), "");
    EXPECT_THROW(list.Add(0x100000000), std::bad_alloc);
    EXPECT_EQ(list.Count(), 5u);
    EXPECT_STREQ(list[0], "abc");
    EXPECT_EQ(list.Items()[5], nullptr);
}

TEST(LStringList, DeletesInOrderAndKeepsItsArray) {
    LStringListTemplate<char> list;
    for (const char* text : {"a", "b", "c"}) list.AddText(text);
    list.Delete(3);
    list.Delete(~0ul);
    EXPECT_EQ(list.Count(), 3u);
    list.Delete(0);
    EXPECT_STREQ(list[0], "b");
    EXPECT_STREQ(list[1], "c");
    EXPECT_EQ(list.Items()[2], nullptr);
    list.Delete(1);
    EXPECT_EQ(list.Items()[1], nullptr);
    char* const* const items = list.Items();
    list.Clear();
    EXPECT_EQ(list.Items()[0], nullptr);
    list.AddText("d");
    EXPECT_EQ(list.Items(), items);
    EXPECT_STREQ(list[0], "d");
}

}  // namespace
