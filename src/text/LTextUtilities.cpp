#include "text/LTextUtilities.h"

#include "text/LAscii.h"
#include "text/LCopyBounded.h"
#include "text/LPrintf.h"
#include "text/LStringWriters.h"

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/time.h>

namespace {

const char* OrEmpty(const char* text) {
    return text ? text : "";
}

template <class T>
unsigned long ParseHex(const T* s) {
    uint32_t value = 0;
    for (; s && *s; s++) {
        uint32_t digit;
        if (*s >= '0' && *s <= '9')
            digit = static_cast<uint32_t>(*s - '0');
        else if (*s >= 'a' && *s <= 'f')
            digit = static_cast<uint32_t>(*s - 'a' + 10);
        else if (*s >= 'A' && *s <= 'F')
            digit = static_cast<uint32_t>(*s - 'A' + 10);
        else
            break;
        value = value * 16 + digit;
    }
    return value;
}

char* ConvertEach(char* s, int (*convert)(int)) {
    for (char* p = s; p && *p; p++) *p = static_cast<char>(convert(static_cast<unsigned char>(*p)));
    return s;
}

}  // namespace

unsigned long atoh(const char* s) {
    return ParseHex(s);
}

unsigned long wtoh(const wchar_t* s) {
    return ParseHex(s);
}

char* strlwr(char* s) {
    return ConvertEach(s, std::tolower);
}

char* strupr(char* s) {
    return ConvertEach(s, std::toupper);
}

int wstrcmp(const wchar_t* a, const wchar_t* b) {
    for (; a && b && *a && *b; a++, b++)
        if (*a != *b) return -1;
    return 0;
}

bool LStringFindTextField(const char* text, const char* start, const char* end, char* field, unsigned long size) {
    return LStringFindTextFieldTemplate<char>(text, start, end, field, size);
}

bool GetCSVListItem(const char* list, unsigned long& pos, char* item, unsigned long size) {
    bool isQuoted = false;
    unsigned long stored = 0, kept = 0;  // kept: up to the last one that isn't a blank outside quotes
    for (const char* p = OrEmpty(list) + pos; *p && *p != '\r' && *p != '\n'; p++) {
        pos++;
        if (*p == '"') {
            isQuoted = !isQuoted;
            continue;
        }
        if (*p == ',' && !isQuoted) break;
        const bool isBlank = *p == ' ' && !isQuoted;
        if ((isBlank && stored == 0) || stored + 1 >= size) continue;
        item[stored++] = *p;
        if (!isBlank) kept = stored;
    }
    if (size) item[kept] = '\0';
    return kept > 0;
}

void LRemoveHTTPItem(const char* name, char* query) {
    char searched[LTextBufferSize + 2];
    const unsigned long length = tplsnprintf(searched, sizeof searched, "%s=", OrEmpty(name));
    if (!query || searched[length - 1] != '=') return;  // a name that was cut matches nothing
    char* begin = std::strstr(query, searched);
    if (!begin) return;
    const char* const end = begin + std::strcspn(begin, "&");
    if (begin > query && begin[-1] == '&') begin--;
    std::memmove(begin, end, std::strlen(end) + 1);
}

void randomize() {
    timeval now;
    ::gettimeofday(&now, nullptr);
    std::srand(static_cast<unsigned>(now.tv_sec * 1000 + now.tv_usec / 1000));
    std::srand(static_cast<unsigned>(std::rand()) ^ static_cast<unsigned>(std::time(nullptr)));
}

unsigned long LStringGenerateRandomPassword(char* dst, unsigned long n) {
    randomize();
    for (unsigned long i = 0; i < n; i++) dst[i] = static_cast<char>('a' + std::rand() % 26);
    dst[n] = '\0';
    return n;
}

void LStripAmpersand(char* dst, const char* src) {
    LFixedLengthStringWriterTemplate<char> writer(dst, LTextBufferSize - 1);
    for (src = OrEmpty(src); *src; src++) {
        if (*src == '&' && *++src != '&') {
            src--;
            continue;
        }
        writer.AddChar(*src);
    }
    dst[writer.Result()] = '\0';
}

void LStripJPStyleAmpersand(char* dst, const char* src) {
    LFixedLengthStringWriterTemplate<char> writer(dst, LTextBufferSize - 1);
    for (src = OrEmpty(src); *src; src++) {
        if (src[0] == '(' && src[1] == '&') {
            src = std::strchr(src, ')');
            if (!src) break;
            continue;
        }
        writer.AddChar(*src);
    }
    dst[writer.Result()] = '\0';
}

char* LStripFromFirstTabToEnd(char* s) {
    char* const tab = s ? std::strchr(s, '\t') : nullptr;
    if (tab) *tab = '\0';
    return tab;
}

char* LPrepareForMenuItem(char* dst, const char* src) {
    LStripAmpersand(dst, src);
    LStripFromFirstTabToEnd(dst);
    return dst;
}

void LPrepareForDisplay(char* dst, const char* src) {
    LStripAmpersand(dst, src);
}
