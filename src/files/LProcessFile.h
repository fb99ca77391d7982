// Reading and writing in steps of 10 KB, between which the operation can be stopped and its progress is told. Gives an
// LProcessResult: done when all `size` bytes were transferred (also for none), failed for a step that came out short.
#pragma once

#include "files/LReadFileRef.h"
#include "files/LWriteFileRef.h"
#include "threads/LProcessInterface.h"

int LProcessFileRead(LProcessInterface& process, LReadFileRef& file, void* buf, unsigned long size);
int LProcessFileWrite(LProcessInterface& process, LWriteFileRef& file, const void* buf, unsigned long size);
