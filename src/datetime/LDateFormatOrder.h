// The order in which the user's locale writes the fields of a short date. Pure functions but for the locale.
#pragma once

// 0 month-day-year, 1 day-month-year, 2 year-month-day, worked out anew from the current locale (setlocale must have
// been called for it to be the user's).
int LGetLocaleDateFormatOrder();

// The same for a format of strftime, of which the first 259 bytes count (null counts as ""). A field that it lacks
// counts as before all others, so a format without any ("%F" has none) is 1.
int LGetDateFormatOrder(const char* format);
