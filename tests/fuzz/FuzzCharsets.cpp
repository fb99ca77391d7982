// Character sets: every conversion, at every size around the text's, against plain loops and, for what is legal, iconv.
// The input is a size and a text.
#include "Fuzz.h"

#include "text/LCharsetsAnsi.h"
#include "text/LCharsetsIconv.h"
#include "text/LCharsetsUTF8.h"
#include "text/LCharsetsUnicode.h"

#include <CoreFoundation/CoreFoundation.h>

#include <array>
#include <iconv.h>
#include <map>

namespace {

using Units = std::basic_string<unsigned short>;

constexpr unsigned long kDone = 0, kLimit = 1, kIllegal = 2;

size_t LengthOf(unsigned char lead) {
    return lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF8 ? 4 : lead < 0xFC ? 5 : 6;
}

struct Decoded {
    std::wstring text;
    unsigned long result = kDone;
};

// The decoder, from its rules, one byte at a time.
Decoded DecodePlainly(const std::string& text, size_t size) {
    Decoded decoded;
    for (size_t at = 0; at < text.size();) {
        const auto byte = [&](size_t i) {
            return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0u;
        };
        const unsigned lead = byte(0);
        const size_t length = LengthOf(static_cast<unsigned char>(lead));
        if (at + length >= size) return {decoded.text, kLimit};
        bool isLegal = lead < 0x80 || (lead >= 0xC2 && lead <= 0xF4);
        for (size_t i = 1; i < length; i++) isLegal &= byte(i) >= 0x80 && byte(i) <= 0xBF;
        isLegal &= !(lead == 0xE0 && byte(1) < 0xA0) && !(lead == 0xED && byte(1) > 0x9F);
        isLegal &= !(lead == 0xF0 && byte(1) < 0x90) && !(lead == 0xF4 && byte(1) > 0x8F);
        if (!isLegal) return {decoded.text, kIllegal};
        uint32_t value = length == 1 ? lead : lead & (0x7Fu >> length);
        for (size_t i = 1; i < length; i++) value = value << 6 | (byte(i) & 0x3F);
        decoded.text += static_cast<wchar_t>(value);
        at += length;
    }
    return decoded;
}

template <class T>
std::string EncodePlainly(const std::basic_string<T>& text, size_t size, unsigned long& result) {
    std::string encoded;
    result = kDone;
    for (const T c : text) {
        auto value = static_cast<uint32_t>(c);
        std::string bytes;
        if (value > 0x10FFFF) value = 0xFFFD;
        const bool isReplaced = value != static_cast<uint32_t>(c);
        if (value < 0x80) {
            bytes = {static_cast<char>(value)};
        } else {
            const int trails = value < 0x800 ? 1 : value < 0x10000 ? 2 : 3;
            bytes = {static_cast<char>((0xFF80u >> trails & 0xFF) | value >> 6 * trails)};
            for (int i = trails; i-- > 0;) bytes += static_cast<char>(0x80 | (value >> 6 * i & 0x3F));
        }
        if (encoded.size() + bytes.size() > size - 1) break;
        encoded += bytes;
        if (isReplaced) result = kIllegal;
    }
    return encoded;
}

// The whole text by iconv; nothing where it isn't legal as a whole.
bool ConvertBySystem(const char* to, const char* from, std::string text, std::string& converted) {
    static auto& converters = *new std::map<std::pair<std::string, std::string>, iconv_t>;  // opening one takes long
    iconv_t& converter = converters[{to, from}];
    if (!converter) converter = iconv_open(to, from);
    iconv(converter, nullptr, nullptr, nullptr, nullptr);
    std::string out(text.size() * 6 + 8, '\0');
    char *in = text.data(), *p = out.data();
    size_t inLeft = text.size(), outLeft = out.size();
    const bool isLegal = iconv(converter, &in, &inLeft, &p, &outLeft) == 0 && inLeft == 0;
    out.resize(out.size() - outLeft);
    converted = out;
    return isLegal;
}

std::wstring Cut(const std::wstring& text) {
    std::wstring cut;
    for (const wchar_t c : text) cut += static_cast<wchar_t>(static_cast<uint32_t>(c) & 0xFFFF);
    return cut.substr(0, cut.find(L'\0'));
}

Units ToUnits(const std::wstring& text) {
    Units units;
    for (const wchar_t c : text) units += static_cast<unsigned short>(c);
    return units.substr(0, units.find(static_cast<unsigned short>(0)));
}

void CheckDecoding(const std::string& text, size_t size) {
    const ExactText<char> source(text);
    const GuardedBuffer<wchar_t> wide(size);
    const GuardedBuffer<unsigned short> narrow(size);
    const unsigned long result = LCopyUTF32FromUTF8(wide.Get(), source.Get(), size);
    LCopyUnicodeFromUTF8(narrow.Get(), source.Get(), size);
    if (!size) {
        Require(result == kLimit && wide.Text().empty() && narrow.Text().empty(), "no room, no text");
        return;
    }
    const Decoded expected = DecodePlainly(text, size);
    Require(wide.Text() == expected.text && result == expected.result, "UTF-8 is decoded by its rules");
    Require(narrow.Text() == ToUnits(expected.text), "UTF-16 is the same, cut to 16 bits");

    const GuardedBuffer<unsigned short> cut(size);
    const GuardedBuffer<wchar_t> again(size);
    LCopyUnicodeFromUTF32(cut.Get(), wide.Get(), size);
    LCopyUTF32FromUnicode(again.Get(), cut.Get(), size);
    Require(again.Text() == Cut(expected.text), "UTF-16 is widened as it is");
}

// `text` as any UTF-32 and UTF-16 at once: its bytes are taken for values.
void CheckEncoding(const std::string& text, size_t size) {
    std::wstring wide(text.size() / 4, L'\0');
    std::memcpy(wide.data(), text.data(), wide.size() * 4);
    wide.resize(std::min(wide.find(L'\0'), wide.size()));
    Units units(text.size() / 2, 0);
    std::memcpy(units.data(), text.data(), units.size() * 2);
    units.resize(std::min(units.find(static_cast<unsigned short>(0)), units.size()));

    const ExactText<wchar_t> wideSource(wide);
    const ExactText<unsigned short> unitSource(units);
    const GuardedBuffer<char> encoded(size), unitEncoded(size);
    const unsigned long result = LCopyUTF8FromUTF32(encoded.Get(), wideSource.Get(), size);
    LCopyUTF8FromUnicode(unitEncoded.Get(), unitSource.Get(), size);
    LStringLongTemplate<char> whole;
    LCopyFromUnicode(whole, unitSource.Get());
    unsigned long expected = kDone;
    Require(EncodePlainly(units, std::string::npos, expected) == whole.Get(), "a whole text is encoded by its rules");
    if (!size) return Require(encoded.Text().empty() && unitEncoded.Text().empty(), "no room, no text");
    Require(unitEncoded.Text() == EncodePlainly(units, size, expected), "UTF-16 is encoded by its rules");
    Require(encoded.Text() == EncodePlainly(wide, size, expected) && result == expected,
            "UTF-32 is encoded by its rules");

    GuardedBuffer<unsigned short> field(size + 1);
    Require(LCopyToBigEndianUnicode(field.Get(), unitSource.Get(), size, true) == std::min(units.size(), size),
            "a field holds what fits");
    Require(field.Text().size() == std::min(units.size(), size), "a field is terminated");
    Require(LCopyToBigEndianUnicode(field.Get(), unitSource.Get(), size, false) == size, "a field is filled");
}

// What goes there and back again is the same, and what the system takes for legal is converted alike.
void CheckRoundTrip(const std::string& text) {
    LStringLongTemplate<char> source, back;
    LStringLongTemplate<unsigned short> units;
    source = text.c_str();
    const unsigned long count = LCopyUnicodeFromUTF8(units, source);
    const Decoded decoded = DecodePlainly(text, text.size() + 1);
    Require(units.Get() == ToUnits(decoded.text) && count == decoded.text.size(), "a whole text is decoded");
    LCopyUTF8FromUnicode(back, units);
    std::string wide;
    const bool isLegal = ConvertBySystem("UTF-32LE", "UTF-8", text, wide);
    Require(isLegal == (decoded.result == kDone), "the system takes the same texts for legal");
    if (!isLegal) return;
    Require(wide == std::string(reinterpret_cast<const char*>(decoded.text.data()), decoded.text.size() * 4),
            "the system decodes alike");
    const bool isNarrow = std::all_of(decoded.text.begin(), decoded.text.end(), [](wchar_t c) { return c < 0x10000; });
    if (isNarrow) Require(back.Get() == text, "a text comes back as it was");
}

void CheckWalkers(const std::string& text, size_t size) {
    const ExactText<char> source(text);
    size_t characters = 0, whole = 0, copied = 0;
    for (size_t at = 0; at < text.size(); characters++) {
        Require(LCharsetsUTF8CharIndexToByteIndex(source.Get(), characters) == at, "a character begins at its byte");
        Require(LCharsetsUTF8ByteIndexToCharIndex(source.Get(), at) == characters, "and the byte is its");
        at = std::min(at + LengthOf(static_cast<unsigned char>(text[at])), text.size());
        if (size && at <= size - 1) whole = at;
        if (characters > 16) break;  // each look begins at the front
    }
    const GuardedBuffer<char> copy(size);
    copied = utf8strlcpy(copy.Get(), source.Get(), size);
    Require(copied == copy.Text().size() && text.starts_with(copy.Text()), "a copy is the begin");
    Require(copied >= whole && copied < std::max<size_t>(size, 1), "a copy has all whole characters that fit");
    Require(LCharsetsUTF8CharIndexToByteIndex(source.Get(), utf8strlen(copy.Text().c_str())) == copied,
            "no character is split");
}

using Page = void (*)(char*, const char*, unsigned long);
using PageGrown = void (*)(LStringLongTemplate<char>&, const char*);

// A page by iconv: what fits of what the system converts.
void CheckPage(Page convert, PageGrown grown, const char* to, const char* from, const std::string& text, size_t size) {
    const ExactText<char> source(text);
    const GuardedBuffer<char> out(size);
    convert(out.Get(), source.Get(), size);
    LStringLongTemplate<char> whole;
    grown(whole, source.Get());
    std::string expected;
    const bool isLegal = ConvertBySystem(to, from, text, expected);
    if (isLegal) Require(whole.Get() == expected, "a whole text is converted");
    Require(expected.starts_with(out.Text()) || !isLegal, "what fits is the begin");
    if (isLegal && expected.size() < size) Require(out.Text() == expected, "what fits is converted");
    Require(std::string_view(whole.Get()).starts_with(out.Text()), "both forms convert alike");
}

void CheckAnsi(const std::string& text, size_t size) {
    const ExactText<char> source(text);
    const GuardedBuffer<char> utf8(size), ansi(size);
    LCopyUTF8FromAnsi(utf8.Get(), source.Get(), size);
    LCopyAnsiFromUTF8(ansi.Get(), source.Get(), size);
    const Decoded decoded = DecodePlainly(text, size);
    std::string expected;
    const bool isLatin = std::all_of(decoded.text.begin(), decoded.text.end(), [](wchar_t c) { return c < 0x100; });
    if (isLatin)
        for (const wchar_t c : decoded.text) expected += static_cast<char>(c);
    const bool isCut = std::any_of(decoded.text.begin(), decoded.text.end(), [](wchar_t c) { return c > 0xFFFF; });
    if (!isCut) Require(ansi.Text() == expected, "ISO Latin 1 is all or nothing");
    LStringLongTemplate<char> page, back;
    LStringLongTemplate<unsigned short> units;
    page = text.c_str();
    Require(LCopyUnicodeFromAnsi(units, page) == text.size(), "each byte is a character");
    unsigned long ignored = kDone;
    Require(utf8.Text() == (text.size() < size ? EncodePlainly<unsigned short>(units.Get(), size, ignored) : ""),
            "Windows Latin 1 is read whole or not at all");
    LCopyAnsiFromUnicode(back, units);
    const bool isPlain = std::all_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x80 || byte >= 0xA0;
    });
    if (isPlain) Require(back.Get() == text, "what both pages have comes back");
}

// The platform's strings: all or nothing, and the way back.
void CheckString(const std::string& text, size_t size) {
    for (const CFStringEncoding encoding :
         {kCFStringEncodingUTF8, kCFStringEncodingWindowsLatin1, kCFStringEncodingISOLatin1}) {
        const auto* const bytes = reinterpret_cast<const UInt8*>(text.data());
        const CFStringRef string =
            CFStringCreateWithBytes(kCFAllocatorDefault, bytes, static_cast<CFIndex>(text.size()), encoding, false);
        Require(string || encoding == kCFStringEncodingUTF8, "every byte is a character of a page");
        const GuardedBuffer<char> out(size);
        const bool fits = CFStringGetCString(string, out.Get(), static_cast<CFIndex>(size), encoding);
        Require(fits == (string && text.size() < size), "a string fits or not");
        if (size) Require(out.Text() == (fits ? text : ""), "a string comes back as it was");
        if (string) CFRelease(string);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const uint8_t choice = input.Byte();
    const std::string bytes(input.Rest());
    const std::string text = bytes.substr(0, bytes.find('\0'));
    // Around the length, where cuts fall, or anywhere.
    const size_t room = choice < 128 ? text.size() + 2 - std::min<size_t>(text.size() + 2, choice / 4) : choice - 128u;
    CheckDecoding(text, room);
    CheckEncoding(bytes, room);
    CheckRoundTrip(text);
    CheckWalkers(text, room);
    CheckPage(LCopyFromISO88591, LCopyFromISO88591, "UTF-8", "ISO-8859-1", text, room);
    CheckPage(LCopyToISO88591, LCopyToISO88591, "ISO-8859-1", "UTF-8", text, room);
    CheckPage(LCopyFromISO88595, LCopyFromISO88595, "UTF-8", "ISO-8859-5", text, room);
    CheckPage(LCopyToISO88595, LCopyToISO88595, "ISO-8859-5", "UTF-8", text, room);
    CheckAnsi(text, room);
    CheckString(text, room);
    return 0;
}
