#include "text/LPrintf.h"

#include "text/LAscii.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <langinfo.h>
#include <optional>
#include <string_view>

namespace {

constexpr size_t cScratchSize = 260;  // one conversion's output, and what it hands to the system
constexpr size_t cRunLimit = 257;     // digits and points that are kept of one

// A va_list that can be handed on by reference, and that leaves its origin alone.
class Arguments {
public:
    explicit Arguments(va_list origin) { va_copy(list, origin); }
    ~Arguments() { va_end(list); }
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    const char* NextText() { return va_arg(list, const char*); }
    const void* NextPointer() { return va_arg(list, const void*); }
    double NextReal() { return va_arg(list, double); }
    unsigned NextWord() { return va_arg(list, unsigned); }

private:
    va_list list;
};

enum class ArgumentKind { none, text, real, pointer, word };

constexpr ArgumentKind KindOf(char conversion) {
    switch (conversion) {
    case '%':
        return ArgumentKind::none;
    case 's':
        return ArgumentKind::text;
    case 'p':
        return ArgumentKind::pointer;
    case 'e':
    case 'f':
    case 'g':
    case 'a':
    case 'E':
    case 'F':
    case 'G':
    case 'A':
        return ArgumentKind::real;
    default:
        return ArgumentKind::word;
    }
}

struct Conversion {
    std::string_view run;  // the digits and points as the format has them
    char kind;
};

// Moves `p`, just behind a percent sign, to just behind the conversion; nothing (and p on the terminator) where the
// format ends before that.
std::optional<Conversion> ReadConversion(const char*& p) {
    const char* const begin = p;
    while (LIsAsciiDigit(*p) || *p == '.') p++;
    if (!*p) return {};
    const std::string_view run(begin, static_cast<size_t>(p - begin));
    return Conversion{run.substr(0, cRunLimit), *p++};
}

// Conversion characters that the system's formatter must not see alone: it would write through the argument (n), read a
// wide text through it (S), or take further arguments (*, and $, which makes a number count them). The flags and length
// modifiers print nothing with it either.
constexpr bool IsWithheld(char conversion) {
    return std::string_view("nS*$lhqjzZtLI-+ #'").find(conversion) != std::string_view::npos;
}

// %d %i %u %x %o %c, plain or with a width below 100 that may begin with a 0: as the system's formatter, whose general
// way through locale and stream costs ten times as much. Empty when this is not such a conversion.
std::string_view FormatWord(const Conversion& conversion, unsigned word, char (&scratch)[cScratchSize]) {
    const bool isSigned = conversion.kind == 'd' || conversion.kind == 'i';
    const int base = isSigned || conversion.kind == 'u' ? 10
                     : conversion.kind == 'x'           ? 16
                     : conversion.kind == 'o'           ? 8
                                                        : 0;
    std::string_view run = conversion.run;
    if (conversion.kind == 'c' && run.empty()) {
        scratch[0] = static_cast<char>(word);
        return {scratch, size_t{scratch[0] != 0}};
    }
    if (!base) return {};
    const bool zeros = run.starts_with('0');
    if (zeros) run.remove_prefix(1);
    if (run.size() > 2 || run.starts_with('0') || run.find('.') != run.npos || (zeros && run.empty())) return {};
    size_t width = 0;
    for (char digit : run) width = width * 10 + static_cast<size_t>(digit - '0');

    char digits[16];
    const bool isNegative = isSigned && static_cast<int>(word) < 0;
    const auto [end, error] = std::to_chars(digits, std::end(digits), isNegative ? 0 - word : word, base);
    const size_t count = static_cast<size_t>(end - digits), used = count + isNegative;
    const size_t padding = width > used ? width - used : 0;
    char* p = scratch;
    if (!zeros) p = std::fill_n(p, padding, ' ');
    if (isNegative) *p++ = '-';
    if (zeros) p = std::fill_n(p, padding, '0');
    p = std::copy_n(digits, count, p);
    return {scratch, static_cast<size_t>(p - scratch)};
}

// A percent sign, the run, the conversion character. Widths and precisions that no 259 characters can show are brought
// down to ones that print the same 259, since the system's formatter works for as long as the number is big. (A double
// has at most 1,074 decimals; a conversion with that precision at most 1,500 characters.)
class SystemFormat {
public:
    explicit SystemFormat(const Conversion& conversion) {
        const std::string_view run = conversion.run;
        const size_t digits = std::min(run.find_first_not_of('0'), run.size());
        const size_t point = std::min(run.find('.'), run.size());
        const bool isOdd = run.find('.', point + 1) != run.npos;  // a second point: not for us to understand
        if (run.size() <= 3 || isOdd || !HasWidth(conversion.kind)) {
            Set(run, conversion.kind);
            return;
        }
        const uint64_t width = Number(run.substr(std::min(digits, point), point - std::min(digits, point)));
        const uint64_t precision = point < run.size() ? Number(run.substr(point + 1)) : 0;
        refused = width > INT_MAX || precision > INT_MAX;
        // Up to cShown each; the difference of the two is what padding depends on, so it is kept (up to cShown as
        // well).
        const uint64_t shownPrecision = std::min(precision, cShown);
        const uint64_t shownWidth =
            width <= precision ? std::min(width, shownPrecision) : shownPrecision + std::min(width - precision, cShown);
        char shown[32];
        char* p = shown;
        if (digits && digits <= point) *p++ = '0';
        if (shownWidth) p = std::to_chars(p, std::end(shown), shownWidth).ptr;
        if (point < run.size()) {
            *p++ = '.';
            p = std::to_chars(p, std::end(shown), shownPrecision).ptr;
        }
        Set({shown, static_cast<size_t>(p - shown)}, conversion.kind);
    }

    const char* Get() const { return text; }
    bool IsRefused() const { return refused; }  // as the system's formatter does with numbers that are no int

private:
    static constexpr uint64_t cShown = 4000;

    // The others the system's formatter prints as they stand, number and all.
    static bool HasWidth(char kind) {
        return std::string_view("diouxXbBcCmpeEfFgGaA").find(kind) != std::string_view::npos;
    }

    static uint64_t Number(std::string_view digits) {
        uint64_t number = 0;
        for (char digit : digits)
            number = std::min<uint64_t>(number * 10 + static_cast<uint64_t>(digit - '0'), 1ull << 40);
        return number;
    }

    void Set(std::string_view run, char kind) {
        text[0] = '%';
        char* const end = std::copy(run.begin(), run.end(), text + 1);
        end[0] = kind;
        end[1] = 0;
    }

    char text[cScratchSize];
    bool refused = false;
};

// One value by the system's formatter: the scratch up to its terminator, if it printed at all.
template <class V>
std::string_view FormatBySystem(const Conversion& conversion, V value, char (&scratch)[cScratchSize]) {
    const SystemFormat format(conversion);
    if (format.IsRefused() || ::snprintf(scratch, sizeof scratch, format.Get(), value) < 0) return {};
    return scratch;
}

// %f of a number, plain or with a precision below 100, where the decimal point is a point: as the system's formatter,
// which takes three times as long. Empty when this is not such a conversion, or doesn't fit.
std::string_view FormatReal(const Conversion& conversion, double value, char (&scratch)[cScratchSize]) {
    std::string_view run = conversion.run;
    if (conversion.kind != 'f' || run.size() > 3 || !std::isfinite(value)) return {};
    int precision = 6;
    if (!run.empty()) {
        if (run[0] != '.') return {};
        precision = 0;
        for (const char digit : run.substr(1)) {
            if (digit == '.') return {};
            precision = precision * 10 + (digit - '0');
        }
    }
    if (std::strcmp(::nl_langinfo(RADIXCHAR), ".") != 0) return {};
    const auto [end, error] = std::to_chars(scratch, std::end(scratch) - 1, value, std::chars_format::fixed, precision);
    return error == std::errc() ? std::string_view(scratch, static_cast<size_t>(end - scratch)) : std::string_view();
}

std::string_view Format(const Conversion& conversion, Arguments& arguments, char (&scratch)[cScratchSize]) {
    switch (KindOf(conversion.kind)) {
    case ArgumentKind::none:
        return "%";
    case ArgumentKind::text: {
        const char* const text = arguments.NextText();
        return text ? text : std::string_view();
    }
    case ArgumentKind::real: {
        const double value = arguments.NextReal();
        const std::string_view fast = FormatReal(conversion, value, scratch);
        return fast.empty() ? FormatBySystem(conversion, value, scratch) : fast;
    }
    case ArgumentKind::pointer:
        return FormatBySystem(conversion, arguments.NextPointer(), scratch);
    case ArgumentKind::word:
        break;
    }
    const unsigned word = arguments.NextWord();
    if (IsWithheld(conversion.kind)) return {};
    const std::string_view fast = FormatWord(conversion, word, scratch);
    return fast.empty() ? FormatBySystem(conversion, word, scratch) : fast;
}

}  // namespace

template <class W, class C>
unsigned long tplprintf(W& writer, const C* format, va_list args) {
    if (!format) return 0;
    Arguments arguments(args);
    char scratch[cScratchSize];
    for (const C* p = format;;) {
        const size_t plain = strcspn(p, "%");
        writer.AddText(p, plain);
        p += plain;
        if (!*p++) break;
        const std::optional<Conversion> conversion = ReadConversion(p);
        if (!conversion) break;
        const std::string_view text = Format(*conversion, arguments, scratch);
        writer.AddText(text.data(), text.size());
    }
    return writer.Result();
}

template unsigned long tplprintf(LStringLongTemplateWriter<char>&, const char*, va_list);
template unsigned long tplprintf(LStringLongTemplateAppender<char>&, const char*, va_list);
template unsigned long tplprintf(LFixedLengthStringWriterTemplate<char>&, const char*, va_list);

bool LFormatReadsFrom(const char* begin, const char* end, const char* format, va_list args) {
    const auto isInside = [&](const char* p) { return p >= begin && p < end; };
    if (!format || begin == end) return false;
    if (isInside(format)) return true;
    Arguments arguments(args);
    for (const char* p = format; (p = strchr(p, '%'));) {
        const std::optional<Conversion> conversion = ReadConversion(++p);
        if (!conversion) break;
        switch (KindOf(conversion->kind)) {
        case ArgumentKind::none:
            break;
        case ArgumentKind::text:
            if (isInside(arguments.NextText())) return true;
            break;
        case ArgumentKind::real:
            arguments.NextReal();
            break;
        case ArgumentKind::pointer:
            arguments.NextPointer();
            break;
        case ArgumentKind::word:
            arguments.NextWord();
            break;
        }
    }
    return false;
}

namespace {

unsigned long PrintFixed(LFixedLengthStringWriterTemplate<char>& writer, const char* format, va_list args) {
    const char* const target = writer.Destination();
    if (!LFormatReadsFrom(target, target + writer.Limit() + size_t{1}, format, args))
        return tplprintf(writer, format, args);
    LStringLongTemplate<char> aside;
    aside.vsprintf(format, args);
    writer.AddText(aside.Get(), aside.Length());
    return writer.Result();
}

}  // namespace

unsigned long tplvsnprintf(char* buf, unsigned long size, const char* format, va_list args) {
    if (!size) return 0;
    const auto limit = static_cast<uint32_t>(std::min<unsigned long>(size - 1, UINT32_MAX));
    LFixedLengthStringWriterTemplate<char> writer(buf, limit);
    const unsigned long stored = PrintFixed(writer, format, args);
    buf[stored] = 0;
    return stored;
}

unsigned long tplsnprintf(char* buf, unsigned long size, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const unsigned long stored = tplvsnprintf(buf, size, format, args);
    va_end(args);
    return stored;
}

unsigned long sprintf(LFixedLengthStringWriterTemplate<char>& writer, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const unsigned long position = PrintFixed(writer, format, args);
    va_end(args);
    return position;
}

unsigned long sprintf(LStringLongTemplate<char>& string, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const unsigned long length = string.vsprintf(format, args);
    va_end(args);
    return length;
}

unsigned long tsprintfappend(LStringLongTemplate<char>& string, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const unsigned long length = string.tvsprintfappend(format, args);
    va_end(args);
    return length;
}

void tprintf(const char* format, ...) {
    if (!format) return;
    va_list args;
    va_start(args, format);
    vprintf(format, args);
    va_end(args);
}
