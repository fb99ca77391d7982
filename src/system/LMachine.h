// What the machine is. Any thread.
#pragma once

#include "text/LStringList.h"

// The model names of the devices on the machine's bus, graphics adapters among them, at most 259 bytes each, in the
// order of its registry. None here, where there is no such registry.
void LMachineGetGPUDescriptions(LStringListTemplate<char>& list);
// The system is 10.5 or later, as it was at the first question, and the machine an x86-64.
bool LIsOS64Bit();
bool LIsVersionLeopardOrLater(int major, int minor);
