// Formatted printing: any format with up to four conversions and arguments of the kinds that it asks for, through every
// entry point, against a plain model that hands each conversion to the system's formatter. The input is the format and
// a text, each ended by 0, and numbers.
#include "Fuzz.h"

#include "text/LPrintf.h"
#include "text/LStringShort.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <vector>

namespace {

constexpr size_t kMaxConversions = 4, kMaxRun = 257, kScratch = 260;
// Where the system would work for as long as a width is big, the model doesn't ask it.
constexpr size_t kMaxDigits = 4;

enum class Kind { Text, Real, Pointer, Word };

Kind KindOf(char conversion) {
    if (conversion == 's') return Kind::Text;
    if (conversion == 'p') return Kind::Pointer;
    return std::string_view("eEfFgGaA").find(conversion) != std::string_view::npos ? Kind::Real : Kind::Word;
}

// Conversions that print nothing here, since they need or store more than one word.
bool IsWithheld(char conversion) {
    return std::string_view("nS*$lhqjzZtLI-+ #'").find(conversion) != std::string_view::npos;
}

struct Values {
    std::string text;
    double real = 0;
    unsigned word = 0;
    const void* pointer = nullptr;
};

struct Format {
    std::string text;  // cut before the conversion that would be one too many
    std::vector<Kind> kinds;
};

Format ReadFormat(const std::string& input) {
    Format format;
    for (size_t at = 0; at < input.size(); at++) {
        if (input[at] != '%') continue;
        const size_t begin = at;
        at = input.find_first_not_of("0123456789.", at + 1);
        if (at == input.npos) break;
        if (input[at] == '%') continue;
        if (format.kinds.size() == kMaxConversions) {
            format.text = input.substr(0, begin);
            return format;
        }
        format.kinds.push_back(KindOf(input[at]));
    }
    format.text = input;
    return format;
}

template <class V>
std::string PrintOne(const std::string& conversion, V value) {
    std::array<char, kScratch> scratch{};
    return snprintf(scratch.data(), scratch.size(), conversion.c_str(), value) < 0 ? "" : scratch.data();
}

// What the format prints; nothing where the model can't tell cheaply.
bool Expect(const std::string& format, const Values& values, std::string& printed) {
    for (size_t at = 0; at < format.size(); at++) {
        if (format[at] != '%') {
            printed += format[at];
            continue;
        }
        const size_t run = at + 1;
        at = format.find_first_not_of("0123456789.", run);
        if (at == format.npos) return true;
        const char kind = format[at];
        const std::string digits = format.substr(run, std::min(at - run, kMaxRun));
        if (kind == '%') printed += '%';
        if (kind == 's') printed += values.text;
        if (kind == '%' || kind == 's' || IsWithheld(kind)) continue;
        for (size_t i = 0, length = 0; i < digits.size(); i++)
            if ((length = digits[i] == '.' ? 0 : length + 1) > kMaxDigits) return false;
        const std::string conversion = "%" + digits + kind;
        printed += KindOf(kind) == Kind::Real      ? PrintOne(conversion, values.real)
                   : KindOf(kind) == Kind::Pointer ? PrintOne(conversion, values.pointer)
                                                   : PrintOne(conversion, values.word);
    }
    return true;
}

// The three kinds of targets. The text argument may be what one of them holds already: that one is printed into last.
struct Outputs {
    enum Target { Fixed, Printed, Appended, None };

    GuardedBuffer<char> fixed;
    size_t stored = 0, printedLength = 0, appendedLength = 0;
    LStringLongTemplate<char> printed, appended;
    Target aliased = None;
};

void PrintInto(Outputs& outputs, Outputs::Target target, const char* format, va_list args) {
    errno = 0;  // %m tells what it is
    if (target == Outputs::Fixed)
        outputs.stored = tplvsnprintf(outputs.fixed.Get(), outputs.fixed.Size(), format, args);
    else if (target == Outputs::Printed)
        outputs.printedLength = outputs.printed.vsprintf(format, args);
    else if (target == Outputs::Appended)
        outputs.appendedLength = outputs.appended.tvsprintfappend(format, args);
}

void PrintAll(Outputs& outputs, const char* format, ...) {
    va_list args;
    va_start(args, format);
    for (const auto target : {Outputs::Fixed, Outputs::Printed, Outputs::Appended})
        if (target != outputs.aliased) PrintInto(outputs, target, format, args);
    PrintInto(outputs, outputs.aliased, format, args);
    va_end(args);
}

// Calls PrintAll with an argument of each kind in turn.
template <class... Args>
void Call(Outputs& outputs, const Format& format, const char* text, const Values& values, Args... args) {
    const size_t index = sizeof...(args);
    if (index == format.kinds.size()) return PrintAll(outputs, format.text.c_str(), args...);
    if constexpr (sizeof...(args) < kMaxConversions) {
        switch (format.kinds[index]) {
        case Kind::Text:
            return Call(outputs, format, text, values, args..., text);
        case Kind::Real:
            return Call(outputs, format, text, values, args..., values.real);
        case Kind::Pointer:
            return Call(outputs, format, text, values, args..., values.pointer);
        case Kind::Word:
            return Call(outputs, format, text, values, args..., values.word);
        }
    }
}

void CheckOutputs(const Outputs& outputs, const std::string& before) {
    const std::string printed = outputs.printed.Get();
    Require(outputs.printedLength == printed.size() && outputs.printed.Length() == printed.size(), "lengths are true");
    Require(outputs.appended.Get() == before + printed, "appending keeps what was there");
    Require(outputs.appendedLength == before.size() + printed.size(), "the total length is told");
    const size_t size = outputs.fixed.Size();
    if (!size) return Require(outputs.stored == 0, "no room, no text");
    Require(outputs.fixed.Text() == printed.substr(0, size - 1), "a fixed buffer holds the begin");
    Require(outputs.stored == std::min(printed.size(), size - 1), "what is stored is counted");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const Format format = ReadFormat(input.Text());
    Values values;
    values.text = input.Text();
    values.real = input.Number<double>();
    values.word = input.Number<uint32_t>();
    values.pointer = reinterpret_cast<const void*>(input.Number<uintptr_t>());
    const uint8_t aliased = input.Byte();
    Outputs outputs{.fixed = GuardedBuffer<char>(input.Byte()), .printed = {}, .appended = {}};
    outputs.printed = values.text.c_str();
    outputs.appended = values.text.c_str();
    const bool fits = outputs.fixed.Size() > values.text.size();
    if (fits) std::strcpy(outputs.fixed.Get(), values.text.c_str());

    const ExactText<char> apart(values.text);
    outputs.aliased = static_cast<Outputs::Target>(aliased % 4);
    if (outputs.aliased == Outputs::Fixed && !fits) outputs.aliased = Outputs::None;
    const char* const text = outputs.aliased == Outputs::Fixed      ? outputs.fixed.Get()
                             : outputs.aliased == Outputs::Printed  ? outputs.printed.Get()
                             : outputs.aliased == Outputs::Appended ? outputs.appended.Get()
                                                                    : apart.Get();
    Call(outputs, format, text, values);
    CheckOutputs(outputs, values.text);
    std::string expected;
    errno = 0;
    if (Expect(format.text, values, expected))
        Require(outputs.printed.Get() == expected, "each conversion prints as the system's");
    return 0;
}
