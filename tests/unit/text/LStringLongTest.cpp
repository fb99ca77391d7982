#include "text/LStringLong.h"
#include "text/LPrintf.h"
#include "text/LStringWriters.h"

#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using String = LStringLongTemplate<char>;

void ExpectText(String& s, std::string_view expected, uint32_t capacity) {
    EXPECT_EQ(std::string_view(s.Get()), expected);
    EXPECT_EQ(s.Length(), expected.size());
    EXPECT_EQ(s.Capacity(), capacity);
}

TEST(LStringLong, GrowsOnlyWhenItMustAndExactly) {
    String s;
    s.GrowToSize(0);
    EXPECT_EQ(s.Buffer(), nullptr);
    EXPECT_STREQ(LUTF8StringLongRef(s), "");
    s.SetLength(5);
    EXPECT_EQ(s.Length(), 0u);
    s.Append("");
    ExpectText(s, "", 1);
    s = "abc";
    ExpectText(s, "abc", 4);
    s.GrowToSize(10);
    ExpectText(s, "abc", 10);
    const char* const buffer = s.Buffer();
    s.GrowToSize(9);
    s.GrowToSize(10);
    s.Append("defghi");
    EXPECT_EQ(s.Buffer(), buffer);
    ExpectText(s, "abcdefghi", 10);
    s.Append("jk");
    ExpectText(s, "abcdefghijk", 12);
    s.SetLength(100);
    EXPECT_EQ(s.Length(), 11u);
    s = "x";
    ExpectText(s, "x", 2);
    s = nullptr;
    s.Append(nullptr);
    ExpectText(s, "", 1);
    EXPECT_STREQ(LUTF8StringLongRef(s), "");
}

TEST(LStringLong, OwnTextIsAValidArgument) {
    String s;
    s = "abcdef";
    s = s.Get() + 1;
    ExpectText(s, "bcdef", 6);
    s.Append(s.Get());  // must grow
    ExpectText(s, "bcdefbcdef", 11);
    s.GrowToSize(64);
    s.Append(s.Get() + 5);  // need not
    ExpectText(s, "bcdefbcdefbcdef", 64);

    s = "abc";
    EXPECT_EQ(s.sprintf("x%sy%s", s.Get(), s.Get() + 1), 7u);  // the buffer moves
    ExpectText(s, "xabcybc", 260);
    EXPECT_EQ(s.tsprintfappend("%s%s", s.Get(), s.Get() + 4), 17u);  // it stays
    ExpectText(s, "xabcybcxabcybcybc", 260);
    s = "%s-";
    EXPECT_EQ(sprintf(s, s.Get(), "q"), 2u);
    ExpectText(s, "q-", 260);
}

TEST(LStringLong, AssignTransfers) {
    String a, b;
    a = "old";
    b = "new";
    const char* const buffer = b.Get();
    a.Assign(b);
    EXPECT_EQ(a.Get(), buffer);
    ExpectText(a, "new", 4);
    EXPECT_EQ(b.Buffer(), nullptr);
    ExpectText(b, "", 0);
    a.Assign(a);
    ExpectText(a, "new", 4);
}

TEST(LStringLong, FormattedTextGrowsByFour) {
    String s;
    EXPECT_EQ(s.sprintf(nullptr), 0u);
    ExpectText(s, "", 260);
    for (const auto& [size, capacity] :
         {std::pair<size_t, uint32_t>{259, 260}, {260, 1040}, {1039, 1040}, {1040, 4160}, {5000, 16640}}) {
        // One by one through the writer and at once through the engine: the same rule.
        const std::string text(size, 'x');
        String whole, pieces;
        EXPECT_EQ(whole.sprintf("%s", text.c_str()), size);
        ExpectText(whole, text, capacity);
        pieces.sprintf("");
        LStringLongTemplateWriter<char> writer(pieces);
        for (char c : text) writer.AddChar(c);
        pieces.SetLength(pieces.Length());
        ExpectText(pieces, text, capacity);
    }
    s = "de";
    EXPECT_EQ(tsprintfappend(s, "%s", "abc"), 5u);
    ExpectText(s, "deabc", 260);
    EXPECT_EQ(s.tsprintfappend(nullptr), 0u);
    ExpectText(s, "deabc", 260);
    EXPECT_EQ(sprintf(s, "%d", 7), 1u);
    ExpectText(s, "7", 260);
}

TEST(LStringLong, OtherWidths) {
    LStringLongTemplate<wchar_t> wide;
    wide = L"\x1F600"
           L"b";
    wide.Append(L"c");
    EXPECT_STREQ(wide.Get(), L"\x1F600"
                             L"bc");
    EXPECT_EQ(wide.Capacity(), 4u);
    EXPECT_THROW(wide.GrowToSize(0x40000000), std::bad_alloc);  // 4 GiB
    LStringLongTemplate<unsigned short> units;
    EXPECT_EQ(units.Get()[0], 0);
    EXPECT_THROW(units.GrowToSize(0x80000000), std::bad_alloc);
    EXPECT_STREQ(wide.Get(), L"\x1F600"
                             L"bc");
}

// One page of text shown many times in a row by the memory manager: gigabytes that cost nothing.
class GiantText {
public:
    GiantText() {
        std::FILE* const file = std::tmpfile();
        const int fd = fileno(file);
        EXPECT_EQ(ftruncate(fd, cPiece), 0);
        char* const piece = static_cast<char*>(mmap(nullptr, cPiece, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
        memset(piece, 'x', cPiece);
        munmap(piece, cPiece);
        void* const room =
            mmap(nullptr, cSize + 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        text = static_cast<char*>(room);
        for (size_t at = 0; at < cSize; at += cPiece) mmap(text + at, cPiece, PROT_READ, MAP_SHARED | MAP_FIXED, fd, 0);
        fclose(file);
    }
    ~GiantText() { munmap(text, cSize + 4096); }
    GiantText(const GiantText&) = delete;
    GiantText& operator=(const GiantText&) = delete;

    // A text of 4 GiB and some more.
    const char* Get() const { return text; }

private:
    static constexpr size_t cPiece = size_t{64} << 20, cSize = (size_t{4} << 30) + cPiece;
    char* text = nullptr;
};

TEST(LStringLong, TextsAbove32BitsAreRefusedAndNothingChanges) {
    const GiantText giant;
    String s;
    s = "kept";
    EXPECT_THROW(s = giant.Get(), std::bad_alloc);
    EXPECT_THROW(s.Append(giant.Get()), std::bad_alloc);
    ExpectText(s, "kept", 5);
    // The engine: what was printed before the refusal stays, terminated.
    EXPECT_THROW(s.tsprintfappend("ab%s", giant.Get()), std::bad_alloc);
    ExpectText(s, "keptab", 260);
    EXPECT_THROW(s.sprintf("c%s", giant.Get()), std::bad_alloc);
    ExpectText(s, "c", 260);
}

}  // namespace
