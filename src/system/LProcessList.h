// Which processes run. Any thread.
#pragma once

#include <bsd/processes.h>

// How many entries; 0, and null, when there is no list. The caller frees it with `free`.
int LGetBSDProcessList(kinfo_proc** list);
// The number of the first process of that name, in whatever case; -1 when there is none.
int LGetBSDProcessUid(const char* name);
// The same, remembered: once there was a process, every later call gives its number, whatever name it asks for.
int LGetProcessUid(const char* name);
// Exactly that name, of which the first 16 characters count.
bool LIsApplicationRunning(const char* name);
