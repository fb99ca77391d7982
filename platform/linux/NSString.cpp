#include <Foundation/NSString.h>

#include "Utf8.h"

#include <cstring>
#include <new>

NSString::NSString(std::string_view text) {
    if (!platform::IsUtf8(text) || text.find('\0') != text.npos) return;
    *this = WithLength(text.size());
    text.copy(cell->Text(), text.size());
}

NSString NSString::WithLength(size_t length) {
    NSString made;
    made.cell = new (::operator new(sizeof(Cell) + length + 1)) Cell{.length = length};
    made.cell->Text()[length] = '\0';
    return made;
}

void NSString::Free() {
    cell->~Cell();
    ::operator delete(cell);
}

NSString NSString::initWithCString(const char* text, NSStringEncoding encoding) {
    if (!text || encoding != NSUTF8StringEncoding) return {};
    return NSString(std::string_view(text));
}

NSString NSString::stringByAppendingString(const NSString& tail) const {
    if (!cell || !tail.cell) return {};
    NSString joined = WithLength(cell->length + tail.cell->length);
    View().copy(joined.cell->Text(), cell->length);
    tail.View().copy(joined.cell->Text() + cell->length, tail.cell->length);
    return joined;
}

NSRange NSString::rangeOfString(const NSString& part) const {
    if (part.View().empty()) return {NSNotFound, 0};
    const size_t position = View().find(part.View());
    if (position == std::string_view::npos) return {NSNotFound, 0};
    return {position, part.View().size()};
}

bool NSString::getCString(char* buffer, size_t maxLength, NSStringEncoding encoding) const {
    if (!cell || !buffer || encoding != NSUTF8StringEncoding || cell->length >= maxLength) return false;
    std::memcpy(buffer, cell->Text(), cell->length + 1);
    return true;
}
