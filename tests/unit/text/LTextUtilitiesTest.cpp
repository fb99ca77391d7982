#include "text/LTextUtilities.h"
#include "text/LStringParser.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

struct Row {
    const char *input, *result;
};

std::string Stripped(void (*strip)(char*, const char*), const char* text) {
    char out[64] = "untouched";
    strip(out, text);
    return out;
}

std::vector<std::string> Items(const char* line, unsigned long size, unsigned long& pos) {
    std::vector<std::string> items;
    std::string item(size, '?');
    for (unsigned long before = pos + 1; pos != before;) {
        before = pos;
        const bool isItem = GetCSVListItem(line, pos, item.data(), size);
        EXPECT_EQ(isItem, item[0] != '\0');
        if (pos != before) items.emplace_back(item.c_str());
    }
    return items;
}

std::vector<std::string> Arguments(const char* line) {
    std::vector<std::string> arguments;
    LCommandLineArgumentStringExpander expander(line);
    while (expander.NextArgument()) arguments.emplace_back(expander.Argument().Get());
    return arguments;
}

}  // namespace

TEST(LTextUtilities, HexAndCase) {
    for (const auto& [text, value] : {std::pair("1fZ", 31ul), std::pair("G", 0ul), std::pair("", 0ul),
                                      std::pair("aBcDeF9", 0xABCDEF9ul), std::pair("123456789", 0x23456789ul)}) {
        EXPECT_EQ(atoh(text), value) << text;
        EXPECT_EQ(wtoh(std::wstring(text, text + std::strlen(text)).c_str()), value) << text;
    }
    EXPECT_EQ(atoh(nullptr), 0ul);
    EXPECT_EQ(wtoh(L"\uFF11"), 0ul);  // a full-width digit is none
    char text[] = "aZ\xC3\x84 9";
    EXPECT_STREQ(strupr(text), "AZ\xC3\x84 9");
    EXPECT_STREQ(strlwr(text), "az\xC3\x84 9");
    EXPECT_STREQ(LStringReplaceChar(text, 'a', ' '), " z\xC3\x84 9");
    EXPECT_EQ(strlwr(nullptr), nullptr);
    EXPECT_EQ(wstrcmp(L"abc", L"ab"), 0);
    EXPECT_EQ(wstrcmp(L"abc", L"abd"), -1);
    EXPECT_EQ(wstrcmp(L"abd", L"abc"), -1);
    EXPECT_EQ(wstrcmp(nullptr, L"a"), 0);
}

TEST(LTextUtilities, FieldsBetweenMarkers) {
    const struct {
        const char *text, *start, *end, *field;
        unsigned long size;
        bool found;
    } rows[] = {
        {"name=<b>x</b>", "<b>", "</b>", "x", 10, true}, {"name=<b>x</b>", "<b>", "</i>", "x</b>", 10, true},
        {"name=<b>x</b>", "<i>", "</b>", "", 10, false}, {"<b></b>", "<b>", "</b>", "", 10, true},
        {"<b>12345</b>", "<b>", "</b>", "123", 4, true}, {"</b><b>1</b>", "<b>", "</b>", "1", 10, true},
        {nullptr, "<b>", "</b>", "", 10, false},         {"<b>1", "<b>", "<b>", "1", 10, true},
    };
    for (const auto& row : rows) {
        char field[10] = "untouch";
        EXPECT_EQ(LStringFindTextField(row.text, row.start, row.end, field, row.size), row.found);
        EXPECT_STREQ(field, row.field);
    }
}

TEST(LTextUtilities, CSVItems) {
    const struct {
        const char* line;
        unsigned long size;
        std::vector<std::string> items;
    } rows[] = {
        {"a, \"b,c\" ,d", 20, {"a", "b,c", "d"}},
        {"a,,b", 20, {"a", "", "b"}},
        {"  a b  ,c\r\nd", 20, {"a b", "c"}},
        {"\" a \"", 20, {" a "}},
        {"a \"\"\"b", 20, {"a b"}},
        {"abcdef,g", 4, {"abc", "g"}},
        {"ab cd", 4, {"ab"}},
        {"\"open, end", 20, {"open, end"}},
        {"", 20, {}},
    };
    for (const auto& row : rows) {
        unsigned long pos = 0;
        EXPECT_EQ(Items(row.line, row.size, pos), row.items) << row.line;
    }
    unsigned long pos = 0;
    const char* const lines = "a\nb";
    Items(lines, 20, pos);
    EXPECT_EQ(pos, 1ul);  // stays on the end of the line
}

TEST(LTextUtilities, QueryItems) {
    for (const auto& [name, query, rest] :
         {std::tuple("a", "a=1&b=2", "&b=2"), std::tuple("b", "a=1&b=2", "a=1"),
          std::tuple("b", "a=1&b=2&c=3", "a=1&c=3"), std::tuple("a", "ba=1&c=2", "b&c=2"),
          std::tuple("d", "a=1", "a=1"), std::tuple("", "=1&a=2", "&a=2")}) {
        std::string text = query;
        LRemoveHTTPItem(name, text.data());
        EXPECT_STREQ(text.c_str(), rest) << query;
    }
    std::string longName(300, 'a'), query = longName + "=1";
    LRemoveHTTPItem(longName.c_str(), query.data());
    EXPECT_EQ(query, longName + "=1");  // a name that was cut matches nothing
}

TEST(LTextUtilities, Passwords) {
    char text[40];
    EXPECT_EQ(LStringGenerateRandomPassword(text, 30), 30ul);
    EXPECT_EQ(std::strlen(text), 30u);
    EXPECT_EQ(std::string(text).find_first_not_of("abcdefghijklmnopqrstuvwxyz"), std::string::npos);
    EXPECT_NE(std::string(text), std::string(30, text[0]));
}

TEST(LTextUtilities, MenuTexts) {
    for (const Row& row : {Row{"&File && Edit", "File & Edit"}, {"a&", "a"}, {"&&&x", "&x"}, {"", ""}, {nullptr, ""}})
        EXPECT_EQ(Stripped(LStripAmpersand, row.input), row.result);
    for (const Row& row : {Row{"File(&F)", "File"}, {"File(&F)...", "File..."}, {"a(b)(&c", "a(b)"}, {nullptr, ""}})
        EXPECT_EQ(Stripped(LStripJPStyleAmpersand, row.input), row.result);
    char text[] = "&Open\tCmd+O";
    EXPECT_EQ(LPrepareForMenuItem(text, text), text);
    EXPECT_STREQ(text, "Open");
    char shown[] = "a\tb\tc";
    EXPECT_EQ(LStripFromFirstTabToEnd(shown), shown + 1);
    EXPECT_STREQ(shown, "a");
    EXPECT_EQ(LStripFromFirstTabToEnd(shown), nullptr);
    EXPECT_EQ(Stripped(LPrepareForDisplay, "&a\tb"), "a\tb");
    const std::string longText(300, 'x');
    for (void (*strip)(char*, const char*) : {LStripAmpersand, LStripJPStyleAmpersand, LPrepareForDisplay}) {
        std::string place(400, '#');
        strip(place.data(), longText.c_str());
        EXPECT_EQ(place, longText.substr(0, 259) + '\0' + std::string(140, '#'));
    }
}

TEST(LStringParser, CommandLines) {
    const struct {
        const char* line;
        std::vector<std::string> arguments;
    } rows[] = {
        {"prog \"a b\" c\\ d e", {"prog", "a b", "c d", "e"}},
        {" \t prog\n x", {"prog\n", "x"}},
        {"a\"b c\"d", {"ab c", "d"}},
        {"a \"\" b", {"a"}},  // an empty one ends the list
        {"C:\\dir\\file \\\"x", {"C:\\dir\\file", "\\x"}},
        {"\"open end", {"open end"}},
        {"\xC3\xA4 b", {"\xC3\xA4", "b"}},
        {"", {}},
    };
    for (const auto& row : rows) EXPECT_EQ(Arguments(row.line), row.arguments) << row.line;
    EXPECT_TRUE(Arguments(nullptr).empty());
    EXPECT_EQ(LCommandLineArgumentStringExpander(nullptr).GetArgumentCount("prog \"a b\" c\\ d e"), 3ul);
}

TEST(LStringParser, UpToDelimiters) {
    char out[260];
    LStringParserTemplate<char> parser("key=value;rest");
    for (const Row& row : {Row{"=", "key"}, {";", "value"}, {";=", "rest"}, {";", ""}}) {
        parser.GetToCharacterAndSkip(row.input, out);
        EXPECT_STREQ(out, row.result);
    }
    const std::string text(300, 'x');
    EXPECT_EQ(LParseGetToCharacters((text + ",").c_str(), ",", out), 300ul);
    EXPECT_EQ(std::strlen(out), 259u);
    EXPECT_EQ(LParseGetToCharacters<char>(nullptr, nullptr, out), 0ul);
}
