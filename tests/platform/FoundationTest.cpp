#include <Foundation/Foundation.h>

#include <cstring>
#include <gtest/gtest.h>
#include <thread>

TEST(NSString, IsNullForWhatIsNoText) {
    const char* const bad[] = {nullptr,        "\x80",           "\xC0\xAF",         "\xC3",
                               "\xE0\x9F\xBF", "\xED\xA0\x80",   "\xF0\x8F\x80\x80", "\xF4\x90\x80\x80",
                               "aaaaaaaa\xFF", "aaaaaaa\xE4\xB8"};
    for (const char* text : bad) EXPECT_FALSE(NSString::initWithCString(text, NSUTF8StringEncoding));
    const char* const good[] = {"",
                                "a",
                                "\xC2\x80",
                                "\xE0\xA0\x80",
                                "\xED\x9F\xBF",
                                "\xF4\x8F\xBF\xBF",
                                "\xEF\xBF\xBF",
                                "aaaaaaaaaaaaaaaaaa\xC3\xBC"};
    for (const char* text : good)
        EXPECT_STREQ(NSString::initWithCString(text, NSUTF8StringEncoding).UTF8String(), text);
    EXPECT_FALSE(NSString::initWithCString("a", 5));
    EXPECT_FALSE(NSString(std::string_view("a\0b", 3)));
}

TEST(NSString, FailsRatherThanCuts) {
    const NSString text(std::string(259, 'x'));
    char buffer[261] = "untouched";
    EXPECT_FALSE(text.getCString(buffer, 259, NSUTF8StringEncoding));
    EXPECT_STREQ(buffer, "untouched");
    EXPECT_TRUE(text.getCString(buffer, 260, NSUTF8StringEncoding));
    EXPECT_EQ(strlen(buffer), 259u);
    EXPECT_FALSE(text.stringByAppendingString(NSString("y")).getCString(buffer, 260, NSUTF8StringEncoding));
    EXPECT_FALSE(NSString().getCString(buffer, 260, NSUTF8StringEncoding));
    EXPECT_FALSE(NSString("").getCString(buffer, 0, NSUTF8StringEncoding));
}

TEST(NSString, NullAnswersNothing) {
    const NSString null, text("abcab");
    EXPECT_FALSE(null.isEqualToString(null));
    EXPECT_TRUE(null == NSString());
    EXPECT_FALSE(null == NSString(""));
    EXPECT_FALSE(text.stringByAppendingString(null) || null.stringByAppendingString(text));
    EXPECT_EQ(text.rangeOfString(NSString("ab")).location, 0u);
    EXPECT_EQ(text.rangeOfString(NSString("ca")).location, 2u);
    EXPECT_EQ(text.rangeOfString(NSString("ca")).length, 2u);
    for (const NSString& absent : {null, NSString(""), NSString("AB"), NSString("abcabc")})
        EXPECT_EQ(text.rangeOfString(absent).location, NSNotFound);
}

TEST(NSMutableArray, RemovesAllEqualOnesAndLeavesSnapshotsAlone) {
    NSMutableArray array;
    for (const char* text : {"a", "b", "a", "c", "a"}) array.addObject(NSString(text));
    array.addObject(NSNumber::numberWithBool(true));
    array.addObject(NSObject());
    const NSArray snapshot = array;
    array.removeObject(array[0]);
    EXPECT_EQ(array.count(), 3u);
    EXPECT_EQ(snapshot.count(), 6u);
    EXPECT_FALSE(array.containsObject(NSString("a")));
    EXPECT_TRUE(snapshot.containsObject(NSString("a")));
    EXPECT_TRUE(array.containsObject(NSNumber::numberWithLong(1)));
    array.addObjectsFromArray(array);
    EXPECT_EQ(array.count(), 6u);
    array.removeAllObjects();
    EXPECT_TRUE(array && array.count() == 0 && array.begin() == array.end());
    array.addObjectsFromArray(snapshot);
    EXPECT_EQ(array, snapshot);
    EXPECT_EQ(NSMutableArray(NSArray()), NSMutableArray());
}

TEST(NSDictionary, KeepsTheLastOfEqualKeys) {
    const NSDictionary made({{NSString("b"), NSString("1")},
                             {NSString("a"), NSString("2")},
                             {NSString("b"), NSString("3")},
                             {NSString(), NSString("4")},
                             {NSString("c"), NSObject()}});
    NSMutableDictionary set = NSMutableDictionary::initWithCapacity(7);
    set.setValueForKey(NSString("3"), NSString("b"));
    set.setValueForKey(NSString("1"), NSString("a"));
    set.setValueForKey(NSString("2"), NSString("a"));
    set.setValueForKey(NSString("4"), NSString());
    set.setValueForKey(NSObject(), NSString("c"));
    EXPECT_EQ(made, set);
    const NSDictionary snapshot = set;
    set.setValueForKey(NSObject(), NSString("a"));
    EXPECT_FALSE(set.valueForKey(NSString("a")));
    EXPECT_EQ(snapshot, made);
    EXPECT_FALSE(made.valueForKey(NSString()) || NSDictionary().valueForKey(NSString("a")));
    // A value of another type reads as none.
    EXPECT_FALSE(made.valueForKey(NSString("a")).Number() || made.valueForKey(NSString("a")).Array());
}

TEST(NSPayload, SharedAmongThreads) {
    NSMutableArray original;
    for (int i = 0; i < 100; i++) original.addObject(NSNumber::numberWithLong(i));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++)
        threads.emplace_back([copy = original]() mutable {
            for (int i = 0; i < 200; i++) {
                NSMutableArray mine(copy);
                mine.addObject(NSNumber::numberWithLong(i));
                copy.removeObject(NSNumber::numberWithLong(i));
            }
            EXPECT_EQ(copy.count(), 0u);
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(original.count(), 100u);
}
