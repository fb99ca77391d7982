// Small texts that people and other programs write: comma-separated items, command lines, wildcards, dates and times.
// The input is a choice and two texts, each ended by 0.
#include "Fuzz.h"

#include "datetime/LDateTime.h"
#include "files/LFile.h"
#include "text/LStringParser.h"
#include "text/LTextUtilities.h"

#include <vector>

namespace {

// The items of a line, as one that reads it whole would take them.
void CheckItems(const std::string& line, size_t size) {
    const ExactText<char> text(line);
    const std::string whole = line.substr(0, line.find_first_of("\r\n"));
    unsigned long pos = 0;
    std::string joined;
    while (true) {
        const unsigned long before = pos;
        const GuardedBuffer<char> item(size);
        const bool isThere = GetCSVListItem(text.Get(), pos, item.Get(), size);
        const std::string found = item.Text();
        Require(isThere == !found.empty(), "an item is told");
        Require(pos >= before && pos <= whole.size(), "the position stays in the line");
        Require(found.find('"') == found.npos && found.size() < std::max<size_t>(size, 1),
                "an item fits, without quotes");
        joined += line.substr(before, pos - before);
        if (pos == before) break;
    }
    Require(joined == whole, "the items are the line");
}

void CheckCommandLine(const std::string& line) {
    const ExactText<char> text(line);
    LCommandLineArgumentStringExpander expander(text.Get());
    unsigned long count = 0;
    size_t length = 0;
    while (expander.NextArgument()) {
        const std::string argument = expander.Argument().Get();
        Require(!argument.empty() && argument.find('"') == argument.npos, "an argument is something without quotes");
        length += argument.size();
        count++;
    }
    Require(length <= line.size(), "arguments are parts of the line");
    Require(expander.GetArgumentCount(text.Get()) + 1 >= count, "the count is the arguments behind the first");
}

// By the definition, place by place.
bool Matches(std::string_view pattern, std::string_view name) {
    std::vector<bool> now(name.size() + 1), next(name.size() + 1);
    now[0] = true;
    for (const char p : pattern) {
        for (size_t i = 0; i <= name.size(); i++)
            next[i] =
                p == '*' ? now[i] || (i > 0 && next[i - 1]) : i > 0 && now[i - 1] && (p == '?' || p == name[i - 1]);
        now.swap(next);
    }
    return now[name.size()];
}

void CheckWildcard(const std::string& pattern, const std::string& name) {
    const ExactText<char> a(pattern), b(name);
    const bool matches = LFile::IsMatch(a.Get(), b.Get());
    if (pattern.size() * name.size() <= 100'000) Require(matches == Matches(pattern, name), "a match is one");
}

void CheckField(const std::string& text, const std::string& start) {
    const ExactText<char> a(text), b(start);
    const GuardedBuffer<char> field(20);
    const bool isThere = LStringFindTextField(a.Get(), b.Get(), ";", field.Get(), field.Size());
    Require(isThere == (text.find(start) != text.npos), "a field is found by its start");
    Require(text.find(start + field.Text()) != text.npos || !isThere, "a field follows its start");
    const GuardedBuffer<char> piece(LTextBufferSize);
    Require(LParseGetToCharacters(a.Get(), b.Get(), piece.Get()) == std::min(text.find_first_of(start), text.size()),
            "a piece ends at a stop");
    Require(text.starts_with(piece.Text()), "a piece is the begin");
}

// What is valid is read, what is read is written again.
void CheckDate(const std::string& date, const std::string& time, int order) {
    const ExactText<char> a(date), b(time), both(date + " " + time);
    long t = 4711;
    LDateTime::SetDateTime(t, a.Get(), b.Get());
    if (date.size() == 10 && LDateTime::ValidateDateYYYYHMMHDD(a.Get())) {
        const GuardedBuffer<char> dateText(LDateTime::kDateSize), timeText(LDateTime::kTimeSize);
        LDateTime::SetDateTime(t, a.Get(), "12:00:00");
        LDateTime::GetDateTime(t, dateText.Get(), timeText.Get());
        long again = 0;
        LDateTime::SetDateTime(again, dateText.Get(), timeText.Get());
        Require(again == t && timeText.Text() == "12:00:00", "a valid date comes back");
    }
    LDateTime::ValidateDateTimeYYYYHMMHDDHHCMMCSS(both.Get());
    LDateTime::SetDateYYYYHMMHDDTimeHHCMMCSS(t, both.Get());
    LDateTime value(4711);
    value._SetTextDateInOrder(a.Get(), order);
    value._SetTextTime(b.Get());
    const GuardedBuffer<char> local(LDateTime::kDateSize);
    value._GetDateInOrder(local.Get(), order);
    local.Text();
    LDateTime::GetDateFromBuildText(a.Get());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool isSet = setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1) == 0;
    FuzzInput input(data, size);
    const uint8_t choice = input.Byte();
    const std::string first = input.Text(), second = input.Text();
    CheckItems(first, choice % 32);
    CheckCommandLine(first);
    CheckWildcard(first, second);
    CheckField(first, second);
    if (isSet) CheckDate(first, second, choice % 3);
    return 0;
}
