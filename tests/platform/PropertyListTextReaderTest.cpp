// The reader of the layer's own form against libplist: whatever it reads, libplist reads the same.
#include "PropertyListTextReader.h"
#include "PropertyListReader.h"
#include "PropertyListText.h"

#include <Foundation/Foundation.h>

#include <gtest/gtest.h>
#include <random>
#include <string>

namespace {

using Random = std::mt19937;

size_t Below(Random& random, size_t end) {
    return std::uniform_int_distribution<size_t>(0, end - 1)(random);
}

NSString RandomText(Random& random) {
    static constexpr std::string_view pieces[] = {"LGCDSCHEDULER_",
                                                  "&",
                                                  "<",
                                                  ">",
                                                  "\"",
                                                  "]]>",
                                                  " ",
                                                  "\t",
                                                  "\n",
                                                  "0",
                                                  "<!--",
                                                  "&amp;",
                                                  "\xC3\xBC",
                                                  "\xF0\x9F\x95\x90",
                                                  "Evening concert"};
    std::string text;
    for (size_t left = Below(random, 5); left > 0; left--) text += pieces[Below(random, std::size(pieces))];
    return NSString(text);
}

NSDictionary RandomDictionary(Random& random, int depth);

NSObject RandomValue(Random& random, int depth) {
    switch (Below(random, depth > 0 ? 6 : 4)) {
    case 0:
        return NSNumber::numberWithBool(Below(random, 2) == 1);
    case 1:
        return NSNumber::numberWithLong(static_cast<long>(random()) * static_cast<int>(random() >> Below(random, 32)));
    case 4: {
        NSMutableArray array;
        for (size_t left = Below(random, 4); left > 0; left--) array.addObject(RandomValue(random, depth - 1));
        return array;
    }
    case 5:
        return RandomDictionary(random, depth - 1);
    default:
        return RandomText(random);
    }
}

NSDictionary RandomDictionary(Random& random, int depth) {
    NSMutableDictionary dictionary;
    for (size_t left = Below(random, 6); left > 0; left--)
        dictionary.setValueForKey(RandomValue(random, depth), RandomText(random));
    return dictionary;
}

// Tells true from 1, which as values are equal.
std::string TextOf(const NSDictionary& content) {
    std::string text(platform::kPropertyListHead);
    for (const auto& [key, value] : content) platform::AppendPropertyListEntry(text, key, value);
    return text.append(platform::kPropertyListTail);
}

std::string TextOf(const std::optional<NSDictionary>& content) {
    return content ? TextOf(*content) : "nothing";
}

// One thing about the text becomes another.
void Mutate(std::string& text, Random& random) {
    static constexpr std::string_view pieces[] = {"\t",        "\n",        " ",     "<",      ">",        "/",
                                                  "&",         ";",         "0",     "-",      "a",        "<dict>",
                                                  "</dict>\n", "<array>\n", "<key>", "</key>", "<string>", "<integer>",
                                                  "<true/>\n", "<!-- -->",  "&#13;", "\r",     "\xC3",     "]]>"};
    const size_t at = Below(random, text.size());
    const size_t length = Below(random, 12);
    switch (Below(random, 4)) {
    case 0:
        text.erase(at, 1 + length);
        break;
    case 1:
        text.insert(at, pieces[Below(random, std::size(pieces))]);
        break;
    case 2:
        text.replace(at, 1, pieces[Below(random, std::size(pieces))]);
        break;
    default: {  // a line comes twice, or moves
        const size_t begin = text.rfind('\n', at) + 1, end = text.find('\n', at);
        const std::string line = text.substr(begin, end - begin + 1);
        if (Below(random, 2)) text.erase(begin, line.size());
        text.insert(text.find('\n', Below(random, text.size())) + 1, line);
    }
    }
}

}  // namespace

TEST(PropertyListTextReader, ReadsWhatIsWritten) {
    Random random(1);
    for (int i = 0; i < 2000; i++) {
        const std::string text = TextOf(RandomDictionary(random, 3));
        EXPECT_EQ(TextOf(platform::ReadPropertyListText(text)), text);
        EXPECT_EQ(TextOf(platform::ParseAnyPropertyList(text)), text);
    }
}

TEST(PropertyListTextReader, ReadsNothingThatOthersReadAnotherWay) {
    Random random(2);
    int taken = 0, left = 0;
    for (int i = 0; i < 20'000; i++) {
        std::string text = TextOf(RandomDictionary(random, 2));
        for (size_t changes = 1 + Below(random, 2); changes > 0; changes--) Mutate(text, random);
        const auto content = platform::ReadPropertyListText(text);
        (content ? taken : left)++;
        if (content) {
            ASSERT_EQ(TextOf(content), TextOf(platform::ParseAnyPropertyList(text))) << text;
        }
    }
    EXPECT_GT(taken, 300);
    EXPECT_GT(left, 1000);
}

// What is no fault, but not the writer's.
TEST(PropertyListTextReader, LeavesOtherSpellingsToTheParser) {
    const auto fileOf = [](std::string_view content) {
        return std::string(platform::kPropertyListHead).append(content).append(platform::kPropertyListTail);
    };
    EXPECT_TRUE(platform::ReadPropertyListText(fileOf("\t<key>a</key>\n\t<integer>-7</integer>\n")));
    for (const char* content :
         {"\t<key>a</key>\n\t<integer>007</integer>\n", "\t<key>a</key>\n\t<integer>-0</integer>\n",
          "\t<key>a</key>\n\t<integer>9223372036854775808</integer>\n", "\t<key>a</key>\n\t<integer> 7</integer>\n",
          "\t<key>b</key>\n\t<true/>\n\t<key>a</key>\n\t<true/>\n",
          "\t<key>a</key>\n\t<true/>\n\t<key>a</key>\n\t<true/>\n", "<key>a</key>\n<true/>\n",
          "\t<key>a</key>\n\t<string>\r</string>\n", "\t<key>a</key>\n\t<data>AA==</data>\n",
          "\t<key>a</key>\n\t<string>&#1;</string>\n", "\t<key>a</key>\n\t<string>\xFF</string>\n", "\t<key>a</key>\n"})
        EXPECT_FALSE(platform::ReadPropertyListText(fileOf(content))) << content;
    std::string deep;
    for (size_t depth = 1; depth <= 1000; depth++) deep.append(depth, '\t').append("<array>\n");
    EXPECT_FALSE(platform::ReadPropertyListText(fileOf("\t<key>a</key>\n" + deep)));
}
