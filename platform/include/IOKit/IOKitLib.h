// IOKit, the subset that this system calls: which services of a class the machine's registry has, and their properties.
// There is no such registry here: it is empty. An iterator is for one thread.
#pragma once

#include <Foundation/NSDictionary.h>

using io_iterator_t = struct IOServiceIterator*;
using io_object_t = const NSDictionary*;

// In registry order; the caller releases the iterator.
io_iterator_t IOServiceGetMatchingServices(const char* className);
// Null at the end. The object lives as long as the iterator.
io_object_t IOIteratorNext(io_iterator_t iterator);
const NSDictionary& IORegistryEntryProperties(io_object_t service);
void IOObjectRelease(io_iterator_t iterator);
