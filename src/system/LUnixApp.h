// What a command-line or background program does first, and the arguments that it keeps. For main, before other threads
// run.
#pragma once

// The arguments that are kept: pointers into the vector that main was given, null at the end.
extern int gargc;
extern char** gargv;

// Names the main thread for bug reports, lets files be created with any permission, keeps the arguments, sets the
// locale and the number of open files. Always true.
bool LUnixAppInitCommon(int argc, char** argv);
// Without the second one if it begins with "-psn", which a launcher adds. What was kept before is dropped.
void LUnixAppCopyCommandLineArguments(int argc, char** argv);
// Takes one out; an index that there isn't does nothing.
void LRemoveCommandLineArgument(int index);

// Sets the soft limit of open files to 1,024, where it is higher, too: signal groups hold no descriptors above it. What
// setrlimit gives: 0, or -1 and errno.
int LSetMaximumNumberOfOpenFiles();
