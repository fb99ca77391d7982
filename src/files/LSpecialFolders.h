// The user's folders by the platform's numbers, and file-type lists; the folders' names are LFile's members.
#pragma once

#include <Foundation/Foundation.h>

// The platform's first folder of that kind (NSSearchPathDirectory) in the user's domain; where it has none, `fallback`
// below the home folder, which is made if it is missing. `dst` holds 260 bytes; a longer path is cut, and not made. Any
// thread.
void GetUserSpecialFolder(char* dst, unsigned int directory, const char* fallback);

// Adds the extensions that a filter list names, without "*.". The list is pairs of terminated texts, a description and
// patterns between semicolons ("*.mov;*.mp4"), ended by an empty text in the place of either. "*.*" adds nothing. Null
// adds nothing.
void ParseFileTypes(NSMutableArray* types, const char* filter);
