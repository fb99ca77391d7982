// The text forms of LDateTime.
#include "datetime/LDateFormatOrder.h"
#include "datetime/LDateTime.h"
#include "text/LAscii.h"
#include "text/LCopyBounded.h"
#include "text/LPrintf.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

constexpr int kMaxNumber = 99'999'999;  // longer runs of digits stand for this
constexpr size_t kTimeStart = 11;       // of the time behind the date in a composed text

void AppendDigit(int& number, char digit) {
    number = std::min(number * 10 + (digit - '0'), kMaxNumber);
}

bool IsBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Scans numbers as scanf does with "%d": blanks before them are skipped, a sign is taken.
class Scanner {
public:
    explicit Scanner(const char* scanned) : text(scanned ? scanned : "") {}

    bool Number(int& number) {
        const char* p = text;
        while (IsBlank(*p)) p++;
        const bool isNegative = *p == '-';
        if (isNegative || *p == '+') p++;
        if (!LIsAsciiDigit(*p)) return false;
        number = 0;
        while (LIsAsciiDigit(*p)) AppendDigit(number, *p++);
        if (isNegative) number = -number;
        text = p;
        return true;
    }
    bool Literal(char c) {
        if (*text != c) return false;
        text++;
        return true;
    }

private:
    const char* text;
};

// What the scan doesn't reach keeps its value.
bool ScanThree(Scanner& scanner, char separator, int& first, int& second, int& third) {
    return scanner.Number(first) && scanner.Literal(separator) && scanner.Number(second) &&
           scanner.Literal(separator) && scanner.Number(third);
}

// The fields of a count that has texts: false for no date, and for years that the forms have no room for.
bool GetPrintedFields(long t, std::tm& fields) {
    return t != 0 && LDateTime::GetLocalFields(t, fields) && fields.tm_year >= -1900 && fields.tm_year <= 9999 - 1900;
}

char* PutNumber(char* out, int number, int digits) {
    for (int i = digits - 1; i >= 0; i--, number /= 10) out[i] = static_cast<char>('0' + number % 10);
    return out + digits;
}
// Two digits each, with `separator` between them; terminated.
void PutPairs(char* out, char separator, std::initializer_list<int> numbers) {
    const char* const begin = out;
    for (const int number : numbers) {
        if (out != begin) *out++ = separator;
        out = PutNumber(out, number, 2);
    }
    *out = '\0';
}
void PutDate(char* out, const std::tm& fields) {
    out = PutNumber(out, fields.tm_year + 1900, 4);
    *out++ = '-';
    PutPairs(out, '-', {fields.tm_mon + 1, fields.tm_mday});
}

void PutComposed(char* out, const char* date, const char* time) {
    tplsnprintf(out, LTextBufferSize, *date ? "%s %s" : "", date, time);
}

bool IsDate(int year, int month, int day) {
    return year >= 1970 && year <= 2038 && month >= 1 && month <= 12 && day >= 1 &&
           day <= LDateTime::GetNumberOfDaysInMonth(year, month);
}

}  // namespace

void LDateTime::GetDateTime(long t, char* date, char* time) {
    *date = *time = '\0';
    std::tm fields;
    if (!GetPrintedFields(t, fields)) return;
    PutDate(date, fields);
    PutPairs(time, ':', {fields.tm_hour, fields.tm_min, fields.tm_sec});
}

void LDateTime::GetDateYYYYHMMHDDTimeHHCMM(long t, char* date, char* time) {
    *date = '\0';
    GetTimeHHCMM(t, time);
    std::tm fields;
    if (GetPrintedFields(t, fields)) PutDate(date, fields);
}

void LDateTime::GetTimeHHCMM(long t, char* out) {
    *out = '\0';
    std::tm fields;
    if (GetPrintedFields(t, fields)) PutPairs(out, ':', {fields.tm_hour, fields.tm_min});
}

void LDateTime::GetTimeHHHMMHSS(long t, char* out) {
    *out = '\0';
    std::tm fields;
    if (GetPrintedFields(t, fields)) PutPairs(out, '-', {fields.tm_hour, fields.tm_min, fields.tm_sec});
}

void LDateTime::GetDateTime(char* out) const {
    char date[kDateSize], time[kTimeSize];
    GetDateTime(seconds, date, time);
    PutComposed(out, date, time);
}

void LDateTime::GetDateTimeInLocalFormat(char* out) const {
    GetDateTime(out);
}

void LDateTime::GetDateYYYYHMMHDDTimeHHCMM(char* out) const {
    char date[kDateSize], time[kTimeSize];
    GetDateYYYYHMMHDDTimeHHCMM(seconds, date, time);
    PutComposed(out, date, time);
}

void LDateTime::GetDateInLocalFormat(char* out) const {
    char time[kTimeSize];
    GetDateTime(seconds, out, time);
}

void LDateTime::GetTimeInLocalFormat(char* out) const {
    char date[kDateSize];
    GetDateTime(seconds, date, out);
}

void LDateTime::_GetTextTime(char* out) const {
    GetTimeInLocalFormat(out);
}

void LDateTime::GetDateLocalFormat(char* out) const {
    _GetDateInOrder(out, DateFormatOrder());
}

void LDateTime::_GetDateInOrder(char* out, int order) const {
    *out = '\0';
    std::tm fields;
    if (!GetPrintedFields(seconds, fields)) return;
    const int year = (fields.tm_year + 1900) % 100, month = fields.tm_mon + 1, day = fields.tm_mday;
    if (order == 0)
        PutPairs(out, '/', {month, day, year});
    else if (order == 1)
        PutPairs(out, '/', {day, month, year});
    else
        PutPairs(out, '/', {year, month, day});
}

void LDateTime::SetDateTime(long& t, const char* date, const char* time) {
    if (!date || !*date) {
        t = 0;
        return;
    }
    int year = 0, month = 1, day = 1, hour = 0, minute = 0, second = 0;
    Scanner dateScanner(date), timeScanner(time);
    ScanThree(dateScanner, '-', year, month, day);
    ScanThree(timeScanner, ':', hour, minute, second);
    SetDateTime(t, year, month, day, hour, minute, second);
}

void LDateTime::SetDateYYYYHMMHDDTimeHHCMMCSS(long& t, const char* text) {
    const bool hasTime = text && std::strlen(text) >= kTimeStart;
    SetDateTime(t, text, hasTime ? text + kTimeStart : "");
}

bool LDateTime::ValidateDateYYYYHMMHDD(const char* text) {
    if (!text || !*text) return true;
    int year = 0, month = 0, day = 0;
    Scanner scanner(text);
    ScanThree(scanner, '-', year, month, day);
    return IsDate(year, month, day);
}

bool LDateTime::ValidateDateTimeYYYYHMMHDDHHCMMCSS(const char* text) {
    int year = 0, month = 0, day = 0, hour = -1, minute = -1, second = -1;
    Scanner scanner(text);
    if (ScanThree(scanner, '-', year, month, day)) ScanThree(scanner, ':', hour, minute, second);
    return IsDate(year, month, day) && hour >= 0 && hour <= 23 && minute >= 0 && minute <= 59 && second >= 0 &&
           second <= 59;
}

void LDateTime::_SetTextDate(const char* text) {
    _SetTextDateInOrder(text, DateFormatOrder());
}

void LDateTime::_SetTextDateInOrder(const char* text, int order) {
    int fields[3] = {0, 0, 0};
    bool typed[3] = {false, false, false};
    // Even: waits for the first digit of field state / 2; odd: inside it; 6 and more: the date has ended.
    int state = 0;
    constexpr int kEnded = 6;
    for (const char c : std::string_view(text ? text : "")) {
        if (c == '-') {
            state = kEnded;
        } else if (c == '.' || c == '/' || c == ':' || c == '\\') {
            state = std::min((state & ~1) + 2, kEnded);
        } else if (LIsAsciiDigit(c) && state < kEnded) {
            state |= 1;
            typed[state / 2] = true;
            AppendDigit(fields[state / 2], c);
        }
    }
    if (state == 0) {
        seconds = 0;
        return;
    }
    static constexpr int kPlaces[3][3] = {{2, 0, 1}, {2, 1, 0}, {0, 1, 2}};  // of year, month, day, by order
    const int* const places = kPlaces[order];
    const int day = typed[places[2]] ? fields[places[2]] : 1;
    SetDateTime(seconds, fields[places[0]], fields[places[1]], day, 0, 0, 0);
}

void LDateTime::_SetTextTime(const char* text) {
    std::tm fields;
    if (!seconds || !GetLocalFields(seconds, fields)) return;
    int numbers[3] = {0, 0, 0};
    size_t field = 0;
    for (const char c : std::string_view(text ? text : "")) {
        if (c == ':')
            field++;
        else if (LIsAsciiDigit(c) && field < std::size(numbers))
            AppendDigit(numbers[field], c);
    }
    fields.tm_hour = numbers[0];
    fields.tm_min = numbers[1];
    fields.tm_sec = numbers[2];
    const long count = ::mktime(&fields);  // with the flag of the old time: across a change of summer time an hour off
    if (count != -1) seconds = count;
}

int LDateTime::DateFormatOrder() {
    static const int iOrder = LGetLocaleDateFormatOrder();
    return iOrder;
}
