#include "datetime/LDateFormatOrder.h"

#include "text/LAscii.h"
#include "text/LCopyBounded.h"

#include <initializer_list>
#include <langinfo.h>
#include <string_view>

namespace {

enum class Case { Exact, Any };

// The place of the first of two characters "%x" that is `letter`, counted from 1; 0 if there is none.
size_t Place(std::string_view format, char letter, Case letterCase) {
    for (size_t i = 0; i + 1 < format.size(); i++) {
        const char c = format[i + 1];
        if (format[i] == '%' && (letterCase == Case::Any ? LAsciiToLower(c) : c) == letter) return i + 1;
    }
    return 0;
}

}  // namespace

int LGetLocaleDateFormatOrder() {
    return LGetDateFormatOrder(::nl_langinfo(D_FMT));
}

int LGetDateFormatOrder(const char* text) {
    char cut[LTextBufferSize];
    LCopyBounded(cut, text, sizeof cut);
    const std::string_view format = cut;
    if (Place(format, 'D', Case::Exact)) return 0;
    size_t month = Place(format, 'm', Case::Exact);
    for (const char letter : {'b', 'h'})
        if (!month) month = Place(format, letter, Case::Any);
    size_t day = Place(format, 'd', Case::Exact);
    if (!day) day = Place(format, 'e', Case::Exact);
    const size_t year = Place(format, 'y', Case::Any);
    if (year < month && year < day) return 2;
    return month >= day ? 1 : 0;
}
