// The running application, other ones, and what the desktop does with them. Where there is no desktop of the kind that
// this was made for, nothing is found, shown or opened. Any thread.
#pragma once

#include <Carbon/Processes.h>

// Whether this program runs out of an application bundle.
bool LIsApplicationBundled();

// The main bundle's resources folder, there or not, cut to the size with its terminator; "" when it isn't known. And
// "resources" in it, into 260 bytes.
void LGetInstalledApplicationResourcesFolder(char* out, unsigned long size);
void LGetInstalledApplicationLXAResourcesFolder(char* out);

bool LIsApplicationInstalled(const char* name);

// The first running application of that creator and file type; false, and {0, 0}, when there is none.
bool LGetPSNFromSignature(unsigned long signature, unsigned long type, ProcessSerialNumber* psn);

// Shows the path in the desktop's viewer; of a folder with files in it the content, one of the files being selected.
void LRevealInFinder(const char* path);
void LOpenAddressBook();
