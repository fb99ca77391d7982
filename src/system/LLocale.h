// The process's locale.
#pragma once

// The first call takes the language and country of the environment ("en_GB"), else those of the user's preferences
// ("AppleLocale", the schedule helper's or everybody's), sets the process's locale by it, in UTF-8 where there is such
// a one, and gives what setlocale says of the category. Every later call gives the same text, whatever it asks for. The
// first call: before other threads run.
const char* LGetLocale(int category);
