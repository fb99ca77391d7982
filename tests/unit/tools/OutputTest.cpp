#include "schedulectl/Output.h"
#include "schedulectl/CommandParts.h"
#include "schedulectl/JournalLine.h"

#include <gtest/gtest.h>
#include <sstream>

namespace tools {
namespace {

TEST(DisplayWidth, CountsColumns) {
    const struct {
        const char* text;
        size_t width;
    } cases[] = {
        {"", 0},       {"abc", 3}, {"für", 3},  {"u\u0308ber", 4},  // a combining mark
        {"日本語", 6}, {"😀", 2},   {"שלום", 4}, {"a\u200Bb", 2},    // nothing between
        {"\xFF", 1},
    };
    for (const auto& c : cases) EXPECT_EQ(DisplayWidth(c.text), c.width) << c.text;
}

TEST(Printable, KeepsNamesFromSteeringTheTerminal) {
    using namespace std::string_literals;
    const struct {
        std::string text;
        const char* printable;
    } cases[] = {
        {"Abend \"news\"", "Abend \"news\""},
        {"\x1b[2J", "\\x1b[2J"},
        {"a\nb\tc\x7F", "a\\x0ab\\x09c\\x7f"},
        {"a\0b"s, "a\\x00b"},
        {"\xC2\x9B", "\\u{009b}"},
        {"\xFF\xC3", "\\xff\\xc3"},
        {"x\u202Egnp.exe", "x\\u{202e}gnp.exe"},
        {"\u2066שלום\u2069", "\\u{2066}שלום\\u{2069}"},
        {"שלום 😀 日本", "שלום 😀 日本"},
    };
    for (const auto& c : cases) EXPECT_EQ(Printable(c.text), c.printable);
}

TEST(Tables, LineUpWhateverTheNames) {
    const Output output({false, false, "never"});
    std::vector<Row> rows;
    for (const char* name : {"plain", "日本語", "👍 yes", "עברית", "e\u0301", "\x1b[31m", ""})
        rows.push_back({{{name}, {"|"}}, {}});
    std::istringstream lines(output.TableText({"NAME", "END"}, rows));
    std::string line;
    std::getline(lines, line);
    const size_t column = line.find("END");
    size_t count = 0;
    for (; std::getline(lines, line); count++) EXPECT_EQ(DisplayWidth(line.substr(0, line.rfind('|'))), column) << line;
    EXPECT_EQ(count, rows.size());
}

TEST(Tables, AreColouredAroundTheTextOnly) {
    const std::string text =
        Output({false, false, "always"}).TableText({"A", "B"}, {{{{"x", Tone::Bad}, {"y", Tone::Plain}}, {}}});
    EXPECT_EQ(text, "\033[1mA\033[0m  \033[1mB\033[0m\n\033[31mx\033[0m  y\n");
}

TEST(NearestName, IsTheOneThatWasMeant) {
    const std::vector<std::string> names = {"Evening news", "Weekend film", "x"};
    const struct {
        const char* wanted;
        const char* nearest;
    } cases[] = {{"evening news", "Evening news"},
                 {"Evening nws", "Evening news"},
                 {"Weekendfilm", "Weekend film"},
                 {"y", "x"},
                 {"Morning show", ""},
                 {"Evening", ""}};
    for (const auto& c : cases) EXPECT_EQ(NearestName(c.wanted, names), c.nearest) << c.wanted;
}

TEST(JournalLines, AreReadOrLeft) {
    const auto line = ParseJournalLine(
        R"({"__REALTIME_TIMESTAMP":"1795447934123456","SYSLOG_IDENTIFIER":"schedulehelper","_PID":"12","MESSAGE":"a \"b\""})");
    ASSERT_TRUE(line);
    EXPECT_EQ(line->moment, 1'795'447'934);
    EXPECT_EQ(line->program + line->pid + line->message, "schedulehelper12a \"b\"");
    EXPECT_EQ(ParseJournalLine(R"({"MESSAGE":[97,255]})")->message, "a\xFF") << "what is no UTF-8 comes as numbers";
    for (const char* text : {"", "-- No entries --", "[1]", "{\"MESSAGE\""})
        EXPECT_FALSE(ParseJournalLine(text)) << text;
}

}  // namespace
}  // namespace tools
